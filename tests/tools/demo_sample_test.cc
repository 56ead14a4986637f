#include "commands/demo_sample.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "commands/build_notes.h"
#include "support/temp_folder.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::TempFolder;
using ::testing::ElementsAre;
using ::testing::Pair;

BuildPreview PreviewOf(const std::filesystem::path& folder) {
  BuildPreview preview;
  std::string err;
  EXPECT_TRUE(PreviewBuild(folder, preview, err)) << err;
  return preview;
}

void CopyForDisk(const TempFolder& folder) {
  CopyUnderShortNames(folder / "FROM", PreviewOf(folder / "FROM"), folder / "TO");
}

TEST(WriteSample, Names_AreThoseOfTheDiskInAnotherCase) {
  const TempFolder folder;
  WriteSample(folder / "SAMPLE");
  const BuildPreview preview = PreviewOf(folder / "SAMPLE");
  EXPECT_EQ(preview.files, 6U);
  for (const BuildPreviewEntry& entry : preview.entries) {
    EXPECT_EQ(PathKey(entry.hostPath), PathKey(entry.imagePath));
    EXPECT_TRUE(entry.isDirectory || entry.bytes != 0);
  }
}

TEST(CopyUnderShortNames, Tree_GetsTheNamesOfTheDisk) {
  TempFolder folder;
  folder.File("FROM/Long name.txt", "1").File("FROM/Sub folder/b.c.d", "2").Pipe("FROM/pipe");
  CopyForDisk(folder);
  EXPECT_THAT(folder.Files("TO"),
              ElementsAre(Pair("LONG_NAM.TXT", "1"), Pair("SUB_FOLD/B_C.D", "2")));
}

TEST(CopyUnderShortNames, Copy_NeedsNoOtherNames) {
  TempFolder folder;
  folder.File("FROM/a.txt", "1").File("FROM/A.TXT", "2").File("FROM/.hidden", "3");
  CopyForDisk(folder);
  EXPECT_EQ(folder.Files("TO").size(), 2U);
  EXPECT_TRUE(TakeNotes(PreviewOf(folder / "TO"), {}).renamed.empty());
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
