#include "commands/auto_size.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/sizes.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::kMiB;
using ::testing::HasSubstr;

BuildPreview RootOf(int files, std::uint64_t bytes) {
  BuildPreview preview;
  for (int i = 0; i < files; ++i) {
    BuildPreviewEntry entry;
    entry.hostPath = std::to_string(i);
    entry.imagePath = "/" + entry.hostPath;
    entry.bytes = bytes;
    preview.entries.push_back(entry);
  }
  return preview;
}

TEST(AutoSize, FolderThatFits_TakesTheSmallestImage) {
  EXPECT_EQ(AutoSize(RootOf(2, 1)), 3 * kMiB);
  EXPECT_EQ(AutoSize(RootOf(2, 1), 3 * kMiB), 4 * kMiB);
}

TEST(AutoSize, EmptyFilesBeyondTheRootsSlots_AreNoHindrance) {
  EXPECT_EQ(AutoSize(RootOf(600, 0)), 3 * kMiB);
}

TEST(AutoSize, FilesWithContentBeyondTheRootsSlots_FitNowhere) {
  EXPECT_EQ(AutoSize(RootOf(511, 1)), 3 * kMiB);
  EXPECT_EQ(AutoSize(RootOf(512, 1)), 0U);
  EXPECT_THAT(WhyNoSizeWillDo(RootOf(512, 1)), HasSubstr("more than 511 entries"));
}

TEST(AutoSize, FolderWithoutEnd_FitsNowhere) {
  BuildPreview preview = RootOf(1, 1);
  preview.isEndless = true;
  EXPECT_EQ(AutoSize(preview), 0U);
  EXPECT_THAT(WhyNoSizeWillDo(preview), HasSubstr("links"));
}

TEST(AutoSize, MoreClustersThanAnyImageHas_FitNowhere) {
  EXPECT_EQ(AutoSize(RootOf(500, 131 * 65536 + 1)), 0U);
  EXPECT_THAT(WhyNoSizeWillDo(RootOf(500, 131 * 65536 + 1)), HasSubstr("clusters"));
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
