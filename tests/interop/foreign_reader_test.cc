#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include <quorbix/virtdisk/fat_image_builder.h>

#include "interop/fsck_findings.h"
#include "support/child_process.h"
#include "support/need_tool.h"
#include "support/random_tree.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::test {
namespace {

namespace fs = std::filesystem;
using ::testing::IsEmpty;

constexpr std::uint64_t kMiB = 1048576;

struct DiskCase {
  const char* name;
  std::uint64_t imageMiB;
  TreeShape tree;
};

class ForeignReader : public testing::TestWithParam<DiskCase> {
 protected:
  void SetUp() override {
    MakeRandomTree(source, GetParam().tree);
    const auto builder = CreateFat16Builder();
    ASSERT_TRUE(builder->Build(source, image, GetParam().imageMiB * kMiB)) << builder->LastError();
    ASSERT_THAT(builder->SkippedFiles(), IsEmpty());
  }

  TempFolder folder;
  fs::path source = folder / "Disk";
  fs::path image = folder / "disk.img";
};

// mcopy shows a base with inner blanks only up to the first of them, so that names run together.
class MtoolsReader : public ForeignReader {};

TEST_P(ForeignReader, Fsck_FindsNothingButNamesOfDotFiles) {
  NEED_TOOL("fsck.fat");
  const fs::path partition = folder / "partition.img";
  WriteWholeFile(partition, ReadWholeFile(image).substr(512));
  const CommandResult checked = RunCommand({"fsck.fat", "-n", partition.string()});
  const FsckFindings findings = ParseFsckReport(checked.out + checked.err);
  EXPECT_THAT(findings.others, IsEmpty());
  EXPECT_FALSE(findings.hasBadLabel);
  EXPECT_EQ(!findings.badNames.empty(), GetParam().tree.dotFiles) << checked.out;
}

TEST_P(MtoolsReader, Mcopy_ReturnsEveryFileByteForByte) {
  NEED_TOOL("mcopy");
  fs::create_directory(folder / "copied");
  const CommandResult copied = RunCommand(
      {"mcopy", "-s", "-n", "-i", image.string() + "@@512", "::", (folder / "copied").string()});
  ASSERT_EQ(copied.status, 0) << copied.err;
  EXPECT_TRUE(Summarize(folder / "copied") == Summarize(source));
}

TEST_P(ForeignReader, SevenZip_ReturnsEveryFileByteForByteFromTheWholeImage) {
  NEED_TOOL("7z");
  const CommandResult copied =
      RunCommand({"7z", "x", "-y", "-o" + (folder / "copied").string(), image.string()});
  ASSERT_EQ(copied.status, 0) << copied.out << copied.err;
  EXPECT_TRUE(Summarize(folder / "copied") == Summarize(source));
}

std::string NameOf(const testing::TestParamInfo<DiskCase>& disk) { return disk.param.name; }

const auto kPlainDisks = testing::Values(
    DiskCase{"3MiB", 3, {.seed = 1, .files = 150, .mostBytes = 9000}},
    DiskCase{"3MiBWithDotFiles", 3, {.seed = 2, .mostBytes = 9000, .dotFiles = true}},
    DiskCase{"8MiBOfManyFiles", 8, {.seed = 3, .files = 500, .mostBytes = 6000}},
    DiskCase{"33MiB", 33, {.seed = 4, .files = 200, .mostBytes = 100000}},
    DiskCase{"100MiB", 100, {.seed = 5, .directories = 100, .files = 400}});

const auto kDisksWithInnerBlanks = testing::Values(
    DiskCase{"9MiBWithInnerBlanks", 9, {.seed = 6, .innerBlanks = true}},
    DiskCase{"33MiBWithAll", 33, {.seed = 7, .innerBlanks = true, .dotFiles = true}});

INSTANTIATE_TEST_SUITE_P(Plain, ForeignReader, kPlainDisks, NameOf);
INSTANTIATE_TEST_SUITE_P(Plain, MtoolsReader, kPlainDisks, NameOf);
INSTANTIATE_TEST_SUITE_P(InnerBlanks, ForeignReader, kDisksWithInnerBlanks, NameOf);

// The sizes whose FAT is too short for their clusters are refused by other tools, which is why the
// program passes over them; the library builds them all the same.
TEST(ForeignReaderOfAShortFat, Fsck_RefusesTheVolume) {
  NEED_TOOL("fsck.fat");
  TempFolder folder;
  folder.Folder("empty");
  const auto builder = CreateFat16Builder();
  ASSERT_TRUE(builder->Build(folder / "empty", folder / "disk.img", 528 * kMiB));
  ASSERT_EQ(RunCommand({"dd", "if=" + (folder / "disk.img").string(),
                        "of=" + (folder / "partition.img").string(), "bs=512", "skip=1",
                        "count=2000", "conv=sparse"})
                .status,
            0);
  fs::resize_file(folder / "partition.img", 528 * kMiB - 512);
  const CommandResult checked = RunCommand({"fsck.fat", "-n", (folder / "partition.img").string()});
  EXPECT_NE(checked.status, 0);
  EXPECT_THAT(ParseFsckReport(checked.out + checked.err).others, testing::Not(IsEmpty()));
}

}  // namespace
}  // namespace quorbix::virtdisk::test
