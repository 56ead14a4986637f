#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "build_run.h"
#include "program_run.h"
#include "support/sizes.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

using test::kMiB;
using test::ProgramRun;
using test::RunVirtdisk;
using test::TempFolder;
using ::testing::HasSubstr;
using ::testing::Not;

TEST(MeasureCommand, EmptyFilesWithoutASlot_AreCountedAsABuildCountsThem) {
  TempFolder folder;
  for (int i = 0; i < 520; ++i) folder.File("DISK/E" + std::to_string(i));
  const std::string disk = (folder / "DISK").string();
  const auto measured = RunVirtdisk({"measure", disk, "--json"}).Json();
  const auto built = RunVirtdisk({"build", disk, (folder / "disk.img").string(), "--json"}).Json();
  EXPECT_EQ(measured["files"], 511);
  EXPECT_EQ(measured["leftOut"], 0);
  EXPECT_EQ(measured["dropped"], 9);
  EXPECT_EQ(built["files"], measured["files"]);
  EXPECT_EQ(built["skipped"].size(), measured["leftOut"]);
  EXPECT_EQ(built["dropped"], measured["dropped"]);
}

TEST(MeasureCommand, Folder_IsMeasured) {
  TempFolder folder;
  folder.File("DISK/A.TXT", std::string(1000, 'a')).File("DISK/SUB/B.TXT", "b");
  const ProgramRun run = RunVirtdisk({"measure", (folder / "DISK").string()});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("files        2\ndirectories  1\n"
                                 "content      1,001 bytes\nauto size    3 MiB\n"));
}

TEST(MeasureCommand, Sizes_AreATableOfThoseThatWillDo) {
  TempFolder folder;
  folder.File("DISK/A.BIN", std::string(4 * kMiB, 'a'));
  const std::string out = RunVirtdisk({"measure", (folder / "DISK").string()}).out;
  EXPECT_THAT(out, HasSubstr("    image  clusters of  clusters  needed        free\n"
                             "    5 MiB    512 bytes    10,126   8,192     967 KiB\n"));
  EXPECT_THAT(out, Not(HasSubstr("   4 MiB")));
  EXPECT_THAT(out, HasSubstr("\n4,095 MiB       64 KiB    65,515      64     4.0 GiB\n"));
}

TEST(MeasureCommand, FolderWithEntriesLeftOut_CountsThem) {
  TempFolder folder;
  folder.Link("DISK/MEM", "/proc/self/mem");
  EXPECT_THAT(RunVirtdisk({"measure", (folder / "DISK").string()}).out,
              HasSubstr("left out     1\n"));
}

TEST(MeasureCommand, FilesBehindLinks_AreContentThatABuildCopies) {
  TempFolder folder;
  folder.File("OUT/A.TXT", "abc").File("DISK/B.TXT", "b").Link("DISK/LINK", "../OUT");
  const std::string disk = (folder / "DISK").string();
  EXPECT_THAT(RunVirtdisk({"measure", disk}).out, HasSubstr("content      4 bytes\n"));
  const auto record = RunVirtdisk({"measure", disk, "--json"}).Json();
  EXPECT_EQ(record["bytes"], 1);
  EXPECT_EQ(record["copiedBytes"], 4);
}

TEST(MeasureCommand, RootThatOverflows_HasNoTableAndSaysWhy) {
  TempFolder folder;
  for (int i = 0; i < 512; ++i) folder.File("DISK/" + std::to_string(i), "x");
  const ProgramRun run = RunVirtdisk({"measure", (folder / "DISK").string()});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, Not(HasSubstr("clusters")));
  EXPECT_THAT(run.err, HasSubstr("511 entries"));
}

TEST(MeasureCommand, Json_IsOneObject) {
  TempFolder folder;
  folder.File("DISK/A.BIN", std::string(4 * kMiB, 'a'));
  const auto record = RunVirtdisk({"measure", (folder / "DISK").string(), "--json"}).Json();
  EXPECT_EQ(record["bytes"], 4 * kMiB);
  EXPECT_EQ(record["autoSize"], 5 * kMiB);
  EXPECT_EQ(record["files"], 1);
  EXPECT_EQ(record["sizes"][0]["bytes"], 5 * kMiB);
  EXPECT_EQ(record["sizes"][0]["clustersNeeded"], 8192);
}

TEST(MeasureCommand, FolderBeyondAnyImage_HasNoSize) {
  TempFolder folder;
  folder.File("DISK/SPARSE.BIN");
  fs::resize_file(folder / "DISK/SPARSE.BIN", 5ULL << 30);
  const ProgramRun run = RunVirtdisk({"measure", (folder / "DISK").string(), "--json"});
  EXPECT_EQ(run.Json()["bytes"], 5ULL << 30);
  EXPECT_TRUE(run.Json()["autoSize"].is_null());
  EXPECT_THAT(run.err, HasSubstr("no FAT16 image can hold"));
}

TEST(MeasureCommand, MissingFolder_Fails) {
  const ProgramRun run = RunVirtdisk({"measure", "/nonexistent"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: Source folder does not exist: /nonexistent\n"));
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
