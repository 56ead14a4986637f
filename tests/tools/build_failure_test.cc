#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "build_run.h"
#include "program_run.h"
#include "support/child_process.h"
#include "support/image_crafter.h"
#include "support/sizes.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

using test::BuildDisk;
using test::kMiB;
using test::ProgramRun;
using test::RunVirtdisk;
using test::TempFolder;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string OldDisk() {
  const std::vector<std::uint8_t> bytes = test::ImageCrafter().Bytes();
  return {bytes.begin(), bytes.end()};
}

TEST(BuildCommand, SizeBeyondTheLargest_IsToldWithIt) {
  TempFolder folder;
  folder.File("DISK/A.TXT", "a");
  const ProgramRun run = RunVirtdisk(
      {"build", (folder / "DISK").string(), (folder / "disk.img").string(), "--size", "4G"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("The largest image is one of --size 4095M."));
}

TEST(BuildCommand, FullRoot_IsToldWithWhatToDo) {
  TempFolder folder;
  for (int i = 0; i < 512; ++i) folder.File("DISK/" + std::to_string(i), "x");
  const ProgramRun run = BuildDisk(folder);
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("more than 511 entries at its top"));
  EXPECT_FALSE(folder.Exists("disk.img"));
}

TEST(BuildCommand, ArgumentsThatMayBeMisspelt_AreNotExchanged) {
  TempFolder folder;
  folder.Folder("DISK").Folder("OTHER").File("letter.txt", "text");
  for (const char* first : {"missing", "letter.txt", "OTHER"}) {
    const ProgramRun run =
        RunVirtdisk({"build", (folder / first).string(), (folder / "DISK").string()});
    EXPECT_EQ(run.status, 3) << first;
    EXPECT_THAT(run.err, HasSubstr("virtdisk build FOLDER IMAGE"));
  }
  EXPECT_FALSE(folder.Exists("missing"));
  EXPECT_EQ(folder.Read("letter.txt"), "text");
}

TEST(BuildCommand, SizeTooSmallForTheFolder_IsToldWithTheOneNeeded) {
  TempFolder folder;
  folder.File("DISK/A.BIN", std::string(4 * kMiB, 'a')).File("disk.img", OldDisk());
  const ProgramRun run = BuildDisk(folder, {"--size", "3M"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: Disk full while writing file\n"));
  EXPECT_THAT(run.err, HasSubstr("The folder needs an image of 5 MiB"));
  EXPECT_EQ(folder.Read("disk.img"), OldDisk());
}

TEST(BuildCommand, SizeBelow64K_FailsWithTheLibrarysMessage) {
  TempFolder folder;
  folder.File("DISK/A.TXT", "a");
  const ProgramRun run = BuildDisk(folder, {"--size", "65535"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: Image too small (minimum 64 KB)\n"));
}

TEST(BuildCommand, FolderBeyondAnyImage_FailsAndSaysWhy) {
  TempFolder folder;
  folder.File("DISK/SPARSE.BIN");
  fs::resize_file(folder / "DISK/SPARSE.BIN", 5ULL << 30);
  const ProgramRun run = BuildDisk(folder);
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: no image can hold " + (folder / "DISK").string()));
  EXPECT_THAT(run.err, HasSubstr("It needs more than 4.0 GiB"));
  EXPECT_FALSE(folder.Exists("disk.img"));
}

TEST(BuildCommand, MissingFolder_FailsWithTheLibrarysMessage) {
  const TempFolder folder;
  const ProgramRun run = BuildDisk(folder);
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(
      run.err,
      HasSubstr("virtdisk: Source folder does not exist: " + (folder / "DISK").string() + "\n"));
  EXPECT_THAT(run.out, IsEmpty());
}

TEST(BuildCommand, FileAsFolder_FailsWithTheLibrarysMessage) {
  TempFolder folder;
  folder.File("DISK", "a");
  EXPECT_THAT(BuildDisk(folder).err, HasSubstr("virtdisk: Source path is not a directory: "));
}

TEST(BuildCommand, OutputThatCannotBeOpened_FailsWithAMessage) {
  TempFolder folder;
  folder.Folder("DISK");
  const ProgramRun run =
      RunVirtdisk({"build", (folder / "DISK").string(), "/nonexistent/disk.img"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: cannot write /nonexistent/disk.img: No such file"));
}

TEST(BuildCommand, FolderBehindAForbiddenOne_FailsWithAMessage) {
  TempFolder folder;
  folder.File("UP/DISK/A.TXT", "a").Forbidden("UP");
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    const ProgramRun run =
        RunVirtdisk({"build", (folder / "UP/DISK").string(), "/tmp/never-written.img"});
    return run.status == 1 && run.err.find("Permission denied") != std::string::npos ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

// It would give an empty disk in the place of a full one.
TEST(BuildCommand, FolderThatMayNotBeListed_ReplacesNothing) {
  TempFolder folder;
  folder.File("DISK/A.TXT", "a");
  EXPECT_EQ(BuildDisk(folder).status, 0);
  const std::string before = folder.Read("disk.img");
  fs::permissions(folder.Path(), fs::perms{0777});
  fs::permissions(folder / "disk.img", fs::perms{0666});
  fs::permissions(folder / "DISK", fs::perms::none);
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    const ProgramRun plain = BuildDisk(folder);
    const ProgramRun inPlace = BuildDisk(folder, {"--in-place"});
    const ProgramRun measure = RunVirtdisk({"measure", (folder / "DISK").string()});
    const ProgramRun demo = RunVirtdisk({"demo", (folder / "DISK").string()});
    for (const ProgramRun& run : {plain, inPlace, measure, demo}) {
      if (run.status != 1 || run.err.find("DISK: Permission denied") == std::string::npos) return 1;
    }
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(folder.Read("disk.img"), before);
}

TEST(BuildCommand, SubfolderThatMayNotBeListed_IsToldInWords) {
  TempFolder folder;
  folder.File("DISK/SUB/A.TXT", "a");
  fs::permissions(folder.Path(), fs::perms{0777});
  fs::permissions(folder / "DISK/SUB", fs::perms::none);
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    const std::string told = "SUB [what it holds could not be listed: Permission denied]";
    return BuildDisk(folder).err.find(told) != std::string::npos ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(BuildCommand, EmptyPathsAndTheStandardOutput_AreRefused) {
  TempFolder folder;
  folder.File("DISK/A.TXT", "a");
  const std::string source = (folder / "DISK").string();
  EXPECT_EQ(RunVirtdisk({"build", "", (folder / "disk.img").string()}).status, 2);
  EXPECT_EQ(RunVirtdisk({"build", source, ""}).status, 2);
  EXPECT_EQ(RunVirtdisk({"build", source, "-"}).status, 2);
  EXPECT_FALSE(fs::exists("-"));
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
