// What a preview says against what a build then does, over folders of many shapes.

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

#include "quorbix/virtdisk/build_preview.h"
#include "quorbix/virtdisk/fat16_fs_image.h"
#include "quorbix/virtdisk/fat_image_builder.h"
#include "support/random_tree.h"
#include "support/sizes.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk {
namespace {

namespace fs = std::filesystem;
using test::kMiB;
using test::TempFolder;

// Path to content; a directory's content is "/".
using Tree = std::map<std::string, std::string>;

Tree Predicted(const BuildPreview& preview, const fs::path& folder) {
  Tree tree;
  for (const BuildPreviewEntry& entry : preview.entries) {
    if (entry.fate != BuildFate::kCopied || entry.isHidden) continue;
    tree[entry.imagePath] = entry.isDirectory ? "/" : test::ReadWholeFile(folder / entry.hostPath);
  }
  return tree;
}

Tree Listed(const fs::path& imagePath) {
  Fat16FsImage image;
  std::string err;
  EXPECT_TRUE(image.LoadFromBytes(test::ReadBytes(imagePath), err)) << err;
  std::vector<Fat16FsEntry> entries;
  image.Search("/", entries, err);
  Tree tree;
  for (const Fat16FsEntry& entry : entries) {
    std::vector<std::uint8_t> content;
    EXPECT_EQ(image.ReadFile(entry.path, content, err), !entry.isDirectory) << err;
    tree[entry.path] = entry.isDirectory ? "/" : std::string(content.begin(), content.end());
  }
  return tree;
}

std::vector<std::string> PredictedSkips(const BuildPreview& preview, const fs::path& folder) {
  std::vector<std::string> skipped;
  for (const BuildPreviewEntry& entry : preview.entries) {
    if (entry.fate != BuildFate::kLeftOut) continue;
    skipped.push_back((folder / entry.hostPath).string() + " [" + entry.reason + "]");
  }
  return skipped;
}

TempFolder& Fill(TempFolder& folder, std::uint32_t seed) {
  std::mt19937 random(seed);
  test::MakeRandomTree(folder / "disk", {.seed = seed,
                                         .directories = random() % 30,
                                         .files = random() % 300,
                                         .mostBytes = 1 + random() % 6000,
                                         .innerBlanks = random() % 2 == 0,
                                         .dotFiles = random() % 2 == 0});
  folder.Link("disk/link.txt", "x").Pipe("disk/pipe").Link("disk/mem", "/proc/self/mem");
  folder.File("disk/target/f", "behind").Link("disk/folder link", "target");
  return folder;
}

void Compare(std::uint32_t seed) {
  TempFolder folder;
  Fill(folder, seed);
  const fs::path source = folder / "disk";
  const auto builder = CreateFat16Builder();
  BuildPreview preview;
  std::string err;
  ASSERT_TRUE(PreviewBuild(source, preview, err)) << err;
  for (const std::uint64_t size : {65536u, 90000u, 200'000u, 500'000u, 1'000'000u, 4'000'000u}) {
    const ImageFit fit = FitIntoImage(preview, size);
    ASSERT_EQ(builder->Build(source, folder / "disk.img", size), fit.builds) << size;
    EXPECT_EQ(builder->LastError(), fit.message) << size;
    if (!fit.builds) continue;
    EXPECT_EQ(builder->SkippedFiles(), PredictedSkips(preview, source));
    if (!fit.holds) continue;
    EXPECT_EQ(Listed(folder / "disk.img"), Predicted(preview, source)) << size;
  }
}

TEST(PreviewAgreement, RandomFolders_AreBuiltAsToldAtEverySize) {
  for (std::uint32_t seed = 0; seed < 8; ++seed) {
    SCOPED_TRACE(seed);
    Compare(seed);
    ASSERT_FALSE(testing::Test::HasFailure());
  }
}

TEST(PreviewAgreement, SmallestImage_HoldsAndNoSmallerOneThatOthersReadDoes) {
  for (std::uint32_t seed = 100; seed < 104; ++seed) {
    SCOPED_TRACE(seed);
    TempFolder folder;
    test::MakeRandomTree(folder / "disk", {.seed = seed, .files = 150, .mostBytes = 60'000});
    BuildPreview preview;
    std::string err;
    ASSERT_TRUE(PreviewBuild(folder / "disk", preview, err)) << err;
    const std::uint64_t smallest = SmallestImage(preview);
    EXPECT_TRUE(FitIntoImage(preview, smallest).holds);
    EXPECT_TRUE(CreateFat16Builder()->Build(folder / "disk", folder / "disk.img", smallest));
    for (std::uint64_t size = kMiB; size < smallest; size += kMiB) {
      const ImageFit fit = FitIntoImage(preview, size);
      EXPECT_FALSE(fit.holds && fit.isCommonlyRead) << size;
    }
  }
}

}  // namespace
}  // namespace quorbix::virtdisk
