#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "image_commands_fixture.h"
#include "program_run.h"
#include "support/child_process.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::DiskWithADotFolder;
using test::ProgramRun;
using test::RunVirtdisk;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using MapCommand = test::ImageCommands;

TEST_F(MapCommand, HiddenEntries_AreNoDamage) {
  Write(DiskWithADotFolder());
  const auto record = RunVirtdisk({"map", Image(), "--json"}).Json();
  EXPECT_EQ(record["hidden"], 2);
  EXPECT_EQ(record["lostOrBroken"], 0);
}

TEST_F(MapCommand, Console_ShowsTheDisk) {
  const ProgramRun run = RunVirtdisk({"map", Image()});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("CRAFTED: 47.5 KiB, 90 clusters of 512 bytes\n"));
  EXPECT_THAT(run.out, HasSubstr("  ====%ADB.B...."));
}

TEST_F(MapCommand, Picture_IsWrittenAsAFile) {
  const ProgramRun run = RunVirtdisk({"map", Image(), "-o", (folder / "disk.svg").string()});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, IsEmpty());
  EXPECT_THAT(folder.Read("disk.svg"), ::testing::StartsWith("<svg "));
}

TEST_F(MapCommand, PictureToTheStandardOutput_IsData) {
  EXPECT_THAT(RunVirtdisk({"map", Image(), "-o", "-"}).out, ::testing::StartsWith("<svg "));
  // In place of the picture before.
  EXPECT_EQ(RunVirtdisk({"map", Image(), "-o", (folder / "disk.svg").string()}).status, 0);
  folder.File("letter.svg", "Dear aunt,").Link("null.svg", "/dev/null");
  const std::string letter = (folder / "letter.svg").string();
  const std::string device = (folder / "null.svg").string();
  for (const std::string& place : {letter, device}) {
    EXPECT_EQ(RunVirtdisk({"map", Image(), "-o", place}).status, 3) << place;
  }
  EXPECT_EQ(folder.Read("letter.svg"), "Dear aunt,");
  EXPECT_EQ(RunVirtdisk({"map", Image(), "-o", device, "--force"}).status, 3);
  EXPECT_EQ(std::filesystem::read_symlink(device), "/dev/null");
  EXPECT_EQ(RunVirtdisk({"map", Image(), "-o", letter, "--force"}).status, 0);
  EXPECT_THAT(folder.Read("letter.svg"), ::testing::StartsWith("<svg "));
}

TEST_F(MapCommand, PictureOrPageOfSomebodyElse_IsRefusedUnlessForced) {
  const std::vector<std::string> documents{
      "<?xml version=\"1.0\"?>\n<letter>Dear aunt,</letter>\n",
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>Letter",
      "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 1 1\"></svg>\n", "<html>", "<svg"};
  for (const char* name : {"letter.svg", "letter.html"}) {
    const std::string letter = (folder / name).string();
    for (const std::string& document : documents) {
      folder.File(name, document);
      const ProgramRun run = RunVirtdisk({"map", Image(), "-o", letter});
      EXPECT_EQ(run.status, 3) << document;
      EXPECT_THAT(run.err, HasSubstr(letter + " exists, and `virtdisk map` did not draw it\n"));
      EXPECT_EQ(folder.Read(name), document);
    }
    EXPECT_EQ(RunVirtdisk({"map", Image(), "-o", letter, "--force"}).status, 0);
  }
}

// By what it begins with, which later versions have to keep.
TEST_F(MapCommand, PictureOrPageThatItDrew_IsReplaced) {
  folder.File("disk.svg",
              "<svg xmlns=\"http://www.w3.org/2000/svg\" data-drawn-by=\"virtdisk map\" ");
  folder.File("disk.html",
              "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
              "<meta name=\"generator\" content=\"virtdisk map\">\n");
  for (const char* name : {"disk.svg", "disk.html"}) {
    const std::string place = (folder / name).string();
    EXPECT_EQ(RunVirtdisk({"map", Image(), "-o", place}).status, 0) << name;
    EXPECT_EQ(RunVirtdisk({"map", Image(), "-o", place}).status, 0) << name;
    EXPECT_THAT(folder.Read(name), HasSubstr("CRAFTED"));
  }
}

TEST_F(MapCommand, WriteProtectedPicture_IsRefusedUnlessForced) {
  std::filesystem::permissions(folder.Path(), std::filesystem::perms{0777});
  const std::string picture = (folder / "disk.svg").string();
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    if (RunVirtdisk({"map", Image(), "-o", picture}).status != 0) return 9;
    std::filesystem::permissions(picture, std::filesystem::perms{0444});
    const ProgramRun run = RunVirtdisk({"map", Image(), "-o", picture});
    if (run.err.find("disk.svg is write-protected") == std::string::npos) return 8;
    const int forced = RunVirtdisk({"map", Image(), "-o", picture, "--force"}).status;
    return forced == 0 ? run.status : 7;
  });
  EXPECT_EQ(status, 3);
}

TEST_F(MapCommand, NameOfNoPicture_GivesStatus2AndTheEndingsThereAre) {
  for (const char* name : {"disk.png", "disk", "disk.svg.bak", "svg"}) {
    const ProgramRun run = RunVirtdisk({"map", Image(), "-o", (folder / name).string(), "--force"});
    EXPECT_EQ(run.status, 2) << name;
    EXPECT_THAT(run.err, HasSubstr(std::string(name) + " is no name of a picture"));
    EXPECT_THAT(run.err, HasSubstr(".svg is a picture, in .html or .htm a page"));
    EXPECT_FALSE(std::filesystem::exists(folder / name));
  }
}

TEST_F(MapCommand, EndingOfAPicture_MayBeInCapitals) {
  EXPECT_EQ(RunVirtdisk({"map", Image(), "-o", (folder / "DISK.SVG").string()}).status, 0);
  EXPECT_THAT(folder.Read("DISK.SVG"), ::testing::StartsWith("<svg "));
}

TEST_F(MapCommand, PictureBehindALink_IsReplacedThere) {
  folder.File("real.svg").Link("link.svg", "real.svg").Link("dangling.svg", "new.svg");
  for (const char* place : {"link.svg", "dangling.svg"}) {
    EXPECT_EQ(RunVirtdisk({"map", Image(), "-o", (folder / place).string()}).status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(folder / place)) << place;
  }
  EXPECT_THAT(folder.Read("real.svg"), ::testing::StartsWith("<svg "));
  EXPECT_THAT(folder.Read("new.svg"), ::testing::StartsWith("<svg "));
}

TEST_F(MapCommand, PictureThatCannotBeWritten_Fails) {
  const ProgramRun run = RunVirtdisk({"map", Image(), "-o", "/nonexistent/disk.svg"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: cannot write /nonexistent/disk.svg"));
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
