#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "program_run.h"
#include "small_disk.h"
#include "support/child_process.h"
#include "support/image_crafter.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

using test::ImageCrafter;
using test::ProgramRun;
using test::RunVirtdisk;
using test::SmallDisk;
using test::TempFolder;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Pair;

class PutCommand : public ::testing::Test {
 protected:
  PutCommand() { test::WriteBytes(folder / "disk.img", SmallDisk().Bytes()); }

  ProgramRun Put(const std::string& path, const std::string& content,
                 const std::string& image = "disk.img") {
    folder.File("new", content);
    return RunVirtdisk({"put", (folder / image).string(), path, (folder / "new").string()});
  }

  TempFolder folder;
};

TEST_F(PutCommand, File_GetsTheNewContentAndNothingElseChanges) {
  ImageCrafter expected = SmallDisk();
  expected.Fill(2, 0).Data(2, "hello").U32(expected.RootOffset() + 28, 5);
  EXPECT_EQ(Put("/a.txt", "hello").status, 0);
  EXPECT_EQ(test::ReadBytes(folder / "disk.img"), expected.Bytes());
}

TEST_F(PutCommand, Image_KeepsItsMode) {
  fs::permissions(folder / "disk.img", fs::perms{0640});
  EXPECT_EQ(Put("/a.txt", "hello").status, 0);
  EXPECT_EQ(fs::status(folder / "disk.img").permissions(), fs::perms{0640});
}

TEST_F(PutCommand, ImageBehindALink_IsReplacedAndTheLinkStays) {
  folder.Link("link.img", "disk.img");
  EXPECT_EQ(Put("/a.txt", "hello", "link.img").status, 0);
  EXPECT_TRUE(fs::is_symlink(folder / "link.img"));
  EXPECT_EQ(RunVirtdisk({"cat", (folder / "disk.img").string(), "/A.TXT"}).out, "hello");
}

TEST_F(PutCommand, ContentBeyondItsClusters_FailsAndTellsTheRoom) {
  const ProgramRun run = Put("/A.TXT", std::string(513, 'x'));
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: new file content exceeds allocated cluster chain\n"));
  EXPECT_THAT(run.err, HasSubstr("has 513 bytes"));
  EXPECT_THAT(run.err, HasSubstr("has room for 512"));
  EXPECT_EQ(test::ReadBytes(folder / "disk.img"), SmallDisk().Bytes());
}

TEST_F(PutCommand, StandardInput_IsNotTakenForAFile) {
  const ProgramRun run = RunVirtdisk({"put", (folder / "disk.img").string(), "/A.TXT", "-"});
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.err, HasSubstr("`put` reads a file, not the standard input"));
  EXPECT_EQ(test::ReadBytes(folder / "disk.img"), SmallDisk().Bytes());
}

TEST_F(PutCommand, FileThatTheSystemMakesUp_IsStoredWhole) {
  const std::string disk = (folder / "disk.img").string();
  EXPECT_EQ(RunVirtdisk({"put", disk, "A.TXT", "/proc/sys/kernel/ostype"}).status, 0);
  EXPECT_EQ(RunVirtdisk({"cat", disk, "A.TXT"}).out, "Linux\n");
  const ProgramRun large = RunVirtdisk({"put", disk, "A.TXT", "/proc/cpuinfo"});
  EXPECT_EQ(large.status, 1);
  EXPECT_THAT(large.err, HasSubstr("/proc/cpuinfo has more than the 512 bytes that A.TXT in "));
  EXPECT_EQ(RunVirtdisk({"cat", disk, "A.TXT"}).out, "Linux\n");
}

TEST_F(PutCommand, DeviceOrPipe_IsRefused) {
  folder.Pipe("pipe").Link("device", "/dev/null");
  for (const char* place : {"pipe", "device"}) {
    const ProgramRun run = Put("/A.TXT", "x", place);
    EXPECT_EQ(run.status, 3);
    EXPECT_THAT(run.err, HasSubstr(std::string(place) + " is no regular file\n"));
  }
}

TEST_F(PutCommand, MissingFileInTheImage_Fails) {
  EXPECT_THAT(Put("/NOPE", "x").err, HasSubstr("virtdisk: file not found\n"));
}

TEST_F(PutCommand, MissingFileOnTheHost_Fails) {
  const ProgramRun run =
      RunVirtdisk({"put", (folder / "disk.img").string(), "/A.TXT", "/nonexistent"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: cannot read /nonexistent: "));
}

TEST_F(PutCommand, HostDiskFull_LeavesTheOldImageAndNothingElse) {
  folder.File("new", "hello");
  const int status = test::RunInChild({.fileSizeLimit = 4096}, [&] {
    const ProgramRun run =
        RunVirtdisk({"put", (folder / "disk.img").string(), "/A.TXT", (folder / "new").string()});
    return run.err.find("Nothing was written to") != std::string::npos ? run.status : 99;
  });
  EXPECT_EQ(status, 1);
  EXPECT_EQ(test::ReadBytes(folder / "disk.img"), SmallDisk().Bytes());
  EXPECT_THAT(folder.Files("."), ElementsAre(Pair("disk.img", ::testing::_), Pair("new", "hello")));
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
