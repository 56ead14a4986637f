#include "disk/image_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/image_crafter.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::ImageCrafter;
using ::testing::ElementsAre;

void Load(const ImageCrafter& crafter, Fat16FsImage& image) {
  std::string err;
  ASSERT_TRUE(image.LoadFromBytes(crafter.Bytes(), err)) << err;
}

std::vector<std::string> PathsBelow(const Fat16FsImage& image, const std::string& path) {
  const ImageTree tree(image);
  std::vector<std::string> paths;
  for (const Fat16FsEntry* entry : tree.Below(path)) paths.push_back(entry->path);
  return paths;
}

ImageCrafter SmallTree() {
  ImageCrafter crafter;
  crafter.File("Z.TXT").Directory("SUB", 2).File("A.TXT").Directory("DEEP", 3);
  crafter.Chain({2}).InCluster(2).DotEntries(2, 0).File("B.TXT").Directory("IN", 4);
  crafter.Chain({3}).InCluster(3).DotEntries(3, 0);
  crafter.Chain({4}).InCluster(4).DotEntries(4, 2).File("C.TXT");
  return crafter;
}

TEST(ImageTree, Below_GoesDepthFirstDirectoriesBeforeFiles) {
  Fat16FsImage image;
  Load(SmallTree(), image);
  EXPECT_THAT(PathsBelow(image, "/"), ElementsAre("/DEEP", "/SUB", "/SUB/IN", "/SUB/IN/C.TXT",
                                                  "/SUB/B.TXT", "/A.TXT", "/Z.TXT"));
}

TEST(ImageTree, BelowADirectory_IsFoundInAnyCase) {
  Fat16FsImage image;
  Load(SmallTree(), image);
  EXPECT_THAT(PathsBelow(image, "sub\\"), ElementsAre("/SUB/IN", "/SUB/IN/C.TXT", "/SUB/B.TXT"));
}

TEST(ImageTree, DirectoriesThatShareAPath_AreOpenedOnce) {
  ImageCrafter crafter;
  crafter.Directory("DIR", 2).RawSlot("dir        ", {.attributes = 0x10, .firstCluster = 3});
  crafter.Chain({2}).InCluster(2).File("A.TXT");
  crafter.Chain({3}).InCluster(3).File("B.TXT");
  Fat16FsImage image;
  Load(crafter, image);
  EXPECT_THAT(PathsBelow(image, "/"), ElementsAre("/DIR", "/DIR/A.TXT", "/dir/B.TXT", "/dir"));
}

TEST(ImageTree, PairsOfDirectoriesThatShareAPath_DoNotMultiply) {
  ImageCrafter crafter;
  crafter.Directory("DIR", 2).RawSlot("dir        ", {.attributes = 0x10, .firstCluster = 3});
  for (std::uint16_t cluster = 2; cluster < 90; cluster += 2) {
    const auto odd = static_cast<std::uint16_t>(cluster + 1);
    const auto next = static_cast<std::uint16_t>(cluster + 2);
    crafter.Chain({cluster}).Chain({odd}).InCluster(odd).InCluster(cluster);
    if (next < 90) {
      crafter.Directory("DIR", next)
          .RawSlot("dir        ",
                   {.attributes = 0x10, .firstCluster = static_cast<std::uint16_t>(next + 1)});
    }
  }
  Fat16FsImage image;
  Load(crafter, image);
  EXPECT_EQ(PathsBelow(image, "/").size(), 88U);
}

TEST(ImageTree, Find_IgnoresCaseAndSeparators) {
  Fat16FsImage image;
  Load(SmallTree(), image);
  const ImageTree tree(image);
  ASSERT_NE(tree.Find("sub//b.txt"), nullptr);
  EXPECT_EQ(tree.Find("sub//b.txt")->path, "/SUB/B.TXT");
  EXPECT_EQ(tree.Find("/NOTHING"), nullptr);
}

TEST(ImageTree, IsDirectory_KnowsTheRootAndFolders) {
  Fat16FsImage image;
  Load(SmallTree(), image);
  const ImageTree tree(image);
  EXPECT_TRUE(tree.IsDirectory(""));
  EXPECT_TRUE(tree.IsDirectory("/sub"));
  EXPECT_FALSE(tree.IsDirectory("/A.TXT"));
}

TEST(ImageTree, EmptyImage_HasNoEntries) {
  const Fat16FsImage image;
  const ImageTree tree(image);
  EXPECT_TRUE(tree.Entries().empty());
  EXPECT_TRUE(tree.Below("/").empty());
}

TEST(ParentPath, NameWithASeparator_IsCutOffWhole) {
  Fat16FsEntry entry;
  entry.name = "A/B";
  entry.path = "/SUB/A/B";
  EXPECT_EQ(ParentPath(entry), "/SUB");
  entry.path = "/A/B";
  EXPECT_EQ(ParentPath(entry), "/");
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
