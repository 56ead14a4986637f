#include "sync/image_file_map.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/image_crafter.h"
#include "sync/cluster_chain.h"
#include "sync/hash_bytes.h"
#include "sync/image_context.h"
#include "sync/known_hashes.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::ImageCrafter;

struct Map {
  std::vector<DiskFile> files{1};  // what was there before must go
  VersionMap versions{{"old", {}}};
};

Map MapOf(const ImageCrafter& crafter) {
  Map map;
  EXPECT_TRUE(BuildImageFileMap(ContextOf(crafter), map.files, map.versions));
  return map;
}

TEST(BuildImageFileMap, File_IsHashedUpToItsSize) {
  const Map map = MapOf(
      ImageCrafter().File("A.TXT", {.firstCluster = 2, .size = 3}).Chain({2}).Data(2, "abcdef"));
  ASSERT_EQ(map.versions.size(), 1u);
  EXPECT_EQ(map.versions.at("a.txt").contentHash, kHashOfAbc);
  EXPECT_EQ(map.versions.at("a.txt").size, 3u);
  EXPECT_EQ(map.versions.at("a.txt").firstCluster, 2u);
}

TEST(BuildImageFileMap, Files_CarryTheirHashInTheListToo) {
  const Map map =
      MapOf(ImageCrafter().File("A.TXT", {.firstCluster = 2, .size = 3}).Chain({2}).Data(2, "abc"));
  ASSERT_EQ(map.files.size(), 1u);
  EXPECT_EQ(map.files[0].version.contentHash, kHashOfAbc);
}

TEST(BuildImageFileMap, EmptyVolume_ClearsBoth) {
  const Map map = MapOf(ImageCrafter());
  EXPECT_TRUE(map.files.empty());
  EXPECT_TRUE(map.versions.empty());
}

TEST(BuildImageFileMap, EmptyFile_HasTheHashOfNothing) {
  EXPECT_EQ(MapOf(ImageCrafter().File("E")).versions.at("e").contentHash, kHashOfNothing);
}

TEST(BuildImageFileMap, SizeWithoutACluster_IsAnEmptyFile) {
  const Map map = MapOf(ImageCrafter().File("E", {.size = 100}));
  EXPECT_EQ(map.versions.at("e").contentHash, kHashOfNothing);
  EXPECT_EQ(map.versions.at("e").size, 100u);
}

TEST(BuildImageFileMap, SizeZeroWithACluster_IsHashedForItsWholeChain) {
  const Map map =
      MapOf(ImageCrafter().File("A", {.firstCluster = 2}).Chain({2, 4}).Fill(2, 1).Fill(4, 2));
  std::vector<std::uint8_t> content(1024, 1);
  std::fill(content.begin() + 512, content.end(), std::uint8_t{2});
  EXPECT_EQ(map.versions.at("a").contentHash, HashBytes(content));
}

TEST(BuildImageFileMap, ChainShorterThanTheSize_IsHashedAsFarAsItGoes) {
  const Map map =
      MapOf(ImageCrafter().File("A", {.firstCluster = 2, .size = 5000}).Chain({2}).Fill(2, 1));
  EXPECT_EQ(map.versions.at("a").contentHash, HashBytes(std::vector<std::uint8_t>(512, 1)));
}

TEST(BuildImageFileMap, UnreadableFile_StaysInTheListOnly) {
  const Map map = MapOf(ImageCrafter()
                            .File("LOOP", {.firstCluster = 2, .size = 5000})
                            .File("FAR", {.firstCluster = 92, .size = 1})
                            .FatWord(2, 2));
  ASSERT_EQ(map.files.size(), 2u);
  EXPECT_EQ(map.files[0].version.contentHash, 0u);
  EXPECT_EQ(map.files[1].version.contentHash, 0u);
  EXPECT_TRUE(map.versions.empty());
}

TEST(BuildImageFileMap, NamesThatDifferInCase_ShareAKeyAndTheLaterStays) {
  const Map map = MapOf(ImageCrafter()
                            .RawSlot("NAME    TXT", {.firstCluster = 2, .size = 1})
                            .RawSlot("name    txt", {.firstCluster = 2, .size = 2})
                            .Chain({2}));
  EXPECT_EQ(map.files.size(), 2u);
  ASSERT_EQ(map.versions.size(), 1u);
  EXPECT_EQ(map.versions.at("name.txt").size, 2u);
}

TEST(BuildImageFileMap, UnreadableLaterFile_DoesNotReplaceTheEarlier) {
  const Map map = MapOf(ImageCrafter()
                            .RawSlot("NAME    TXT", {.firstCluster = 2, .size = 1})
                            .RawSlot("name    txt", {.firstCluster = 92, .size = 2})
                            .Chain({2}));
  EXPECT_EQ(map.versions.at("name.txt").size, 1u);
}

TEST(BuildImageFileMap, FilesThatBeginInOneCluster_EachEndAtTheirSize) {
  ImageCrafter image({.rootEntryCount = 32});
  image.Chain({2, 3}).Fill(2, 1).Fill(3, 2);
  const std::uint32_t sizes[] = {1024, 1, 512, 0, 513, 1, 1023, 9999, 511};
  for (std::size_t i = 0; i < std::size(sizes); ++i) {
    image.File("F" + std::to_string(i), {.firstCluster = 2, .size = sizes[i]});
  }
  const FatContext context = ContextOf(image);
  Map map;

  ASSERT_TRUE(BuildImageFileMap(context, map.files, map.versions));

  ASSERT_EQ(map.files.size(), std::size(sizes));
  for (std::size_t i = 0; i < std::size(sizes); ++i) {
    std::vector<std::uint8_t> content;
    ASSERT_TRUE(ReadClusterChain(context, 2, content, sizes[i]));
    EXPECT_EQ(map.files[i].version.contentHash, HashBytes(content)) << sizes[i];
  }
}

TEST(BuildImageFileMap, FilesOnALoop_AreReadableUpToIt) {
  const Map map = MapOf(ImageCrafter()
                            .File("LONG", {.firstCluster = 2, .size = 1025})
                            .File("FITS", {.firstCluster = 2, .size = 1024})
                            .File("ALL", {.firstCluster = 2, .size = 0})
                            .FatWord(2, 3)
                            .FatWord(3, 2));
  EXPECT_EQ(map.versions.size(), 1u);
  EXPECT_TRUE(map.versions.contains("fits"));
}

// A disk of 30 MB that is one chain, and files that all begin in it.
ImageCrafter OneLongChain(const std::vector<std::uint32_t>& sizes) {
  constexpr std::uint16_t kClusters = 60000;
  ImageCrafter image({.rootEntryCount = 32768, .sectorsPerFat = 256, .clusters = kClusters});
  for (std::uint16_t i = 2; i < kClusters + 1; ++i) {
    image.FatWord(i, static_cast<std::uint16_t>(i + 1));
  }
  image.FatWord(kClusters + 1, 0xFFFF);
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    image.File("F" + std::to_string(i), {.firstCluster = 2, .size = sizes[i]});
  }
  return image;
}

TEST(BuildImageFileMap, AFewFilesOnOneLongChain_AreAllHashed) {
  EXPECT_EQ(MapOf(OneLongChain(std::vector<std::uint32_t>(8, 0))).versions.size(), 8u);
}

TEST(BuildImageFileMap, ManyShortFilesOnOneLongChain_AreAllHashed) {
  std::vector<std::uint32_t> sizes;
  for (std::uint32_t i = 0; i < 30000; ++i) sizes.push_back(1 + i % 8000);
  EXPECT_EQ(MapOf(OneLongChain(sizes)).versions.size(), sizes.size());
}

// Copied one by one they would come to 900 GB.
TEST(BuildImageFileMap, ManyLongFilesOnOneLongChain_AreRefused) {
  std::vector<std::uint32_t> sizes;
  for (std::uint32_t i = 0; i < 30000; ++i) sizes.push_back(0xFFFFFFFF - i);
  Map map;
  EXPECT_FALSE(BuildImageFileMap(ContextOf(OneLongChain(sizes)), map.files, map.versions));
  EXPECT_TRUE(map.versions.empty());
}

// Files that each begin one cluster further on in the same chain.
ImageCrafter FilesAlongOneChain(std::uint16_t clusters) {
  ImageCrafter image({.rootEntryCount = 512, .sectorsPerFat = 4, .clusters = clusters});
  for (std::uint16_t cluster = 2; cluster < clusters + 2; ++cluster) {
    image.File("F" + std::to_string(cluster), {.firstCluster = cluster, .size = 0});
    const bool last = cluster == clusters + 1;
    image.FatWord(cluster, last ? std::uint16_t{0xFFFF} : static_cast<std::uint16_t>(cluster + 1));
  }
  return image;
}

TEST(BuildImageFileMap, FilesThatShareAFewClusters_AreAllHashed) {
  EXPECT_EQ(MapOf(FilesAlongOneChain(20)).versions.size(), 20u);
}

TEST(BuildImageFileMap, FilesThatShareFarTooMuch_AreRefused) {
  // 500 chains of 250 clusters on average are some 64 MB, in an image of 280 KB.
  Map map;
  EXPECT_FALSE(BuildImageFileMap(ContextOf(FilesAlongOneChain(500)), map.files, map.versions));
  EXPECT_TRUE(map.versions.empty());
}

TEST(BuildImageFileMap, VolumeBeyond4GiB_IsReadThere) {
  const auto volume = ImageCrafter({.partitioned = false})
                          .File("A.TXT", {.firstCluster = 4, .size = 600})
                          .Directory("SUB", 2)
                          .InCluster(2)
                          .File("B.TXT", {.firstCluster = 6, .size = 3})
                          .Chain({2})
                          .Chain({4, 5})
                          .Fill(4, 'a')
                          .Fill(5, 'a')
                          .Data(6, "abc");
  constexpr std::uint64_t kStart = (std::uint64_t{1} << 32) + 7 * 512;
  FatContext context;
  context.image.Resize(kStart + volume.Bytes().size());
  std::fill_n(context.image.data(), 512, 0);
  std::copy(volume.Bytes().begin(), volume.Bytes().end(), context.image.data() + kStart);
  context.image[446 + 4] = 0x06;
  context.image[446 + 8] = 7;  // sector 2^23 + 7
  context.image[446 + 10] = 0x80;
  std::string error;
  ASSERT_TRUE(ParseLoadedImage(context, error)) << error;
  std::vector<DiskFile> files;
  VersionMap versions;

  EXPECT_TRUE(BuildImageFileMap(context, files, versions));

  EXPECT_EQ(versions.at("a.txt").contentHash, HashBytes(std::vector<std::uint8_t>(600, 'a')));
  EXPECT_EQ(versions.at("sub/b.txt").contentHash, kHashOfAbc);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
