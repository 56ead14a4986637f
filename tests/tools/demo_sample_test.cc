#include "commands/demo_sample.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "browser/path_text.h"
#include "support/temp_folder.h"

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

TEST(WriteSample, Names_AreThoseOfTheDiskInAnotherCase) {
  const TempFolder folder;
  WriteSample(folder / "SAMPLE");
  const BuildPreview preview = PreviewOf(folder / "SAMPLE");
  EXPECT_EQ(preview.files, 6U);
  for (const BuildPreviewEntry& entry : preview.entries) {
    EXPECT_EQ(internal::NormalizePath(entry.hostPath), internal::NormalizePath(entry.imagePath));
    EXPECT_TRUE(entry.isDirectory || entry.bytes != 0);
  }
}

TEST(CopyFolder, Tree_IsCopiedButForWhatNoDiskShows) {
  TempFolder folder;
  folder.File("FROM/Long name.txt", "1").File("FROM/Sub folder/b.c.d", "2").Pipe("FROM/pipe");
  folder.File("FROM/.hidden", "3");
  CopyFolder(folder / "FROM", PreviewOf(folder / "FROM"), folder / "TO");
  EXPECT_THAT(folder.Files("TO"),
              ElementsAre(Pair("Long name.txt", "1"), Pair("Sub folder/b.c.d", "2")));
}

// The demonstration edits them.
TEST(CopyFolder, WriteProtectedFiles_MayBeWrittenInTheCopy) {
  namespace fs = std::filesystem;
  TempFolder folder;
  folder.File("FROM/a.txt", "1");
  fs::permissions(folder / "FROM/a.txt", fs::perms{0444});
  CopyFolder(folder / "FROM", PreviewOf(folder / "FROM"), folder / "TO");
  const fs::perms forOwner = fs::status(folder / "TO/a.txt").permissions() & fs::perms::owner_all;
  EXPECT_EQ(forOwner, fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(folder.Read("TO/a.txt"), "1");
  EXPECT_EQ(fs::status(folder / "FROM/a.txt").permissions(), fs::perms{0444});
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
