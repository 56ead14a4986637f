#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "fat16/fat16_fixture.h"
#include "fat16/fat16_image.h"
#include "support/image_bytes.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::BytesOf;
using ::testing::Each;
using ::testing::ElementsAre;

constexpr std::uint64_t kSmallest = 65536;  // clusters 2 to 93, FATs at 1,024 and 1,536

std::vector<unsigned> TakeAllClusters(Fat16Image& image) {
  std::vector<unsigned> taken;
  while (const unsigned cluster = image.AllocCluster()) taken.push_back(cluster);
  return taken;
}

std::vector<unsigned> Range(unsigned first, unsigned last) {
  std::vector<unsigned> numbers;
  for (unsigned n = first; n <= last; ++n) numbers.push_back(n);
  return numbers;
}

TEST(Fat16Image, AllocCluster_BeginsAtTwoAndGoesUp) {
  Fat16Image image = EmptyImage(kSmallest);
  EXPECT_EQ(image.AllocCluster(), 2);
  EXPECT_EQ(image.AllocCluster(), 3);
}

TEST(Fat16Image, AllocCluster_MarksTheClusterInBothFats) {
  Fat16Image image = EmptyImage(kSmallest);
  std::vector<std::uint8_t> expected = BytesOf(image);
  image.SeedClusterAllocator(3);
  ASSERT_EQ(image.AllocCluster(), 5);
  for (const std::size_t fat : {1024u, 1536u}) expected[fat + 10] = expected[fat + 11] = 0xFF;
  EXPECT_EQ(BytesOf(image), expected);
}

TEST(Fat16Image, SeedClusterAllocator_TakesTheSeedModuloTheClusterCount) {
  Fat16Image image = EmptyImage(kSmallest);
  image.SeedClusterAllocator(92 * 1000 + 17);
  EXPECT_EQ(image.AllocCluster(), 19);
  image.SeedClusterAllocator(0xFFFFFFFF);  // 4,294,967,295 mod 92 = 11
  EXPECT_EQ(image.AllocCluster(), 13);
  image.SeedClusterAllocator(92);
  EXPECT_EQ(image.AllocCluster(), 2);
}

TEST(Fat16Image, AllocCluster_WrapsToTwoWhenTheTailIsFull) {
  Fat16Image image = EmptyImage(kSmallest);
  image.SeedClusterAllocator(91);
  EXPECT_EQ(image.AllocCluster(), 93);
  EXPECT_EQ(image.AllocCluster(), 2);
}

TEST(Fat16Image, AllocCluster_SkipsTakenClusters) {
  Fat16Image image = EmptyImage(kSmallest);
  image.SeedClusterAllocator(4);
  ASSERT_EQ(image.AllocCluster(), 6);
  image.SeedClusterAllocator(3);
  EXPECT_EQ(image.AllocCluster(), 5);
  EXPECT_EQ(image.AllocCluster(), 7);
}

TEST(Fat16Image, AllocCluster_HandsOutEveryClusterOnceThenZero) {
  Fat16Image image = EmptyImage(kSmallest);
  image.SeedClusterAllocator(50);
  std::vector<unsigned> taken = TakeAllClusters(image);
  EXPECT_EQ(taken.front(), 52u);
  EXPECT_EQ(taken.back(), 51u);
  std::sort(taken.begin(), taken.end());
  EXPECT_EQ(taken, Range(2, 93));
  EXPECT_EQ(image.AllocCluster(), 0);
}

TEST(Fat16Image, AllocCluster_ReachesTheHighestClusterOfTheLargestVolume) {
  Fat16Image image = EmptyImage(4294525440);
  image.SeedClusterAllocator(65523);
  EXPECT_EQ(image.AllocCluster(), 65525);
  EXPECT_EQ(image.AllocCluster(), 2);
}

// Volumes whose FATs lack the words of their last clusters: those words would fall on the second
// FAT and on the root directory.
class ShortFatVolume : public testing::TestWithParam<std::uint64_t> {};

TEST_P(ShortFatVolume, AllocCluster_NeverHandsOutAClusterWithoutAWord) {
  Fat16Image image = EmptyImage(GetParam());
  const unsigned words = image.Layout().sectorsPerFat * 256;
  ASSERT_GT(image.Layout().clusterCount + 2, words);
  std::vector<unsigned> taken = TakeAllClusters(image);
  EXPECT_EQ(taken, Range(2, words - 1));
}

TEST_P(ShortFatVolume, AllocCluster_SeededBeyondTheWordsWrapsToTwo) {
  Fat16Image image = EmptyImage(GetParam());
  image.SeedClusterAllocator(image.Layout().clusterCount - 1);
  EXPECT_EQ(image.AllocCluster(), 2);
}

TEST_P(ShortFatVolume, FilledToTheLastCluster_KeepsFatsAndRootIntact) {
  Fat16Image image = EmptyImage(GetParam());
  TakeAllClusters(image);
  const std::size_t fatBytes = image.Layout().sectorsPerFat * 512;
  const auto at = [&](std::size_t offset) {
    return image.Bytes().begin() + static_cast<std::ptrdiff_t>(offset);
  };
  EXPECT_THAT(std::vector<int>(at(1024), at(1028)), ElementsAre(0xF8, 0xFF, 0xFF, 0xFF));
  EXPECT_TRUE(std::equal(at(1024), at(1024 + fatBytes), at(1024 + fatBytes)));
  const std::vector<int> root(at(1024 + 2 * fatBytes), at(1024 + 2 * fatBytes + 16384));
  EXPECT_THAT(root, Each(0));
}

TEST_P(ShortFatVolume, FilledWithFiles_LeavesTheDataOfTheWordlessClustersAlone) {
  Fat16Image image = EmptyImage(GetParam());
  std::string err;
  const std::vector<std::uint8_t> content(image.Layout().sectorsPerCluster * 512, 0xAA);
  const auto size = static_cast<std::uint32_t>(content.size());
  image.SeedClusterAllocator(image.Layout().clusterCount - 1);
  while (image.AddFile(0, "A", content.data(), size, err) != 0) continue;
  const unsigned words = image.Layout().sectorsPerFat * 256;
  const std::size_t wordless =
      (image.Layout().dataStartSector + (words - 2) * image.Layout().sectorsPerCluster) * 512ull;
  EXPECT_TRUE(std::all_of(image.Bytes().begin() + static_cast<std::ptrdiff_t>(wordless),
                          image.Bytes().end(), [](std::uint8_t byte) { return byte == 0; }));
}

INSTANTIATE_TEST_SUITE_P(Sizes, ShortFatVolume,
                         testing::Values(148992, 149504, 150016, 150528, 282112));

TEST(Fat16Image, AllocCluster_NeverHandsOutTheWordlessClusterOf640MiB) {
  Fat16Image image = EmptyImage(640 * kMiB);
  ASSERT_EQ(image.Layout().clusterCount, 10239u);
  image.SeedClusterAllocator(10238);  // cluster 10,240, whose word is the second FAT's first
  EXPECT_EQ(image.AllocCluster(), 2);
  EXPECT_EQ(TakeAllClusters(image), Range(3, 10239));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
