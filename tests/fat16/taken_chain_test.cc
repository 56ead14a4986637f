// Content that is put where it belongs: the clusters are taken first, and given back when no file
// comes to use them.

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

constexpr std::uint64_t kSmallDisk = 65536;  // 92 clusters of 512 bytes

std::string Runs(const Fat16Image::Chain& chain) {
  std::string text;
  for (const Fat16Image::ClusterRun& run : chain.runs) {
    text += std::to_string(run.first) + "x" + std::to_string(run.count) + " ";
  }
  return text;
}

// Puts `content` into the chain's runs, as somebody does who reads a file in pieces.
void Put(Fat16Image& image, const Fat16Image::Chain& chain,
         const std::vector<std::uint8_t>& content) {
  auto next = content.begin();
  for (const Fat16Image::ClusterRun& run : chain.runs) {
    const auto bytes = image.RunBytes(run);
    const auto part = std::min(static_cast<std::ptrdiff_t>(bytes.size()), content.end() - next);
    std::copy_n(next, part, bytes.begin());
    next += part;
  }
}

TEST(TakenChain, File_IsByteForByteAsAddFileMakesIt) {
  for (const std::size_t size : {1u, 511u, 512u, 513u, 5000u}) {
    const std::vector<std::uint8_t> content(size, 0xAB);
    std::string err;
    Fat16Image copied = EmptyImage(kSmallDisk);
    Fat16Image inPlace = EmptyImage(kSmallDisk);
    for (Fat16Image* image : {&copied, &inPlace}) image->SeedClusterAllocator(89);
    const auto first =
        copied.AddFile(0, "A       BIN", content.data(), static_cast<std::uint32_t>(size), err);

    const auto chain = inPlace.TakeChain(static_cast<std::uint32_t>(size));
    ASSERT_TRUE(chain);
    Put(inPlace, *chain, content);
    EXPECT_EQ(inPlace.AddTakenFile(0, "A       BIN", *chain, static_cast<std::uint32_t>(size), err),
              first);

    EXPECT_EQ(BytesOf(inPlace), BytesOf(copied)) << size;
  }
}

TEST(TakenChain, NeighbouringClusters_AreOneRun) {
  Fat16Image image = EmptyImage(kSmallDisk);
  EXPECT_EQ(Runs(*image.TakeChain(512)), "2x1 ");
  EXPECT_EQ(Runs(*image.TakeChain(513)), "3x2 ");
}

TEST(TakenChain, AroundWhatIsTaken_GoesOnBehindIt) {
  Fat16Image image = EmptyImage(kSmallDisk);
  image.SeedClusterAllocator(3);
  ASSERT_EQ(image.AllocCluster(), 5);
  image.SeedClusterAllocator(0);
  EXPECT_EQ(Runs(*image.TakeChain(4 * 512)), "2x3 6x1 ");
}

TEST(TakenChain, OfAllTheDiskHas_IsToBeHad) {
  Fat16Image image = EmptyImage(kSmallDisk);
  image.SeedClusterAllocator(90);
  EXPECT_EQ(Runs(*image.TakeChain(92 * 512)), "92x2 2x90 ");
  EXPECT_EQ(image.AllocCluster(), 0);
}

TEST(TakenChain, OfMoreThanIsFree_TakesNothing) {
  Fat16Image image = EmptyImage(kSmallDisk);
  ASSERT_EQ(image.AllocCluster(), 2);
  const std::vector<std::uint8_t> before = BytesOf(image);
  EXPECT_FALSE(image.TakeChain(91 * 512 + 1));
  EXPECT_EQ(BytesOf(image), before);
  EXPECT_TRUE(image.TakeChain(91 * 512));
}

// For this size the FAT has no words for the last clusters.
TEST(TakenChain, ClustersWithoutAWordInTheFat_DoNotCount) {
  Fat16Image image = EmptyImage(640 * test::kMiB);
  const std::uint64_t usable = LastUsableCluster(image.Layout()) - 1;
  ASSERT_LT(usable, image.Layout().clusterCount);
  const auto most = static_cast<std::uint32_t>(usable * image.Layout().sectorsPerCluster * 512);
  EXPECT_FALSE(image.TakeChain(most + 1));
  EXPECT_TRUE(image.TakeChain(most));
}

TEST(GiveBack, AfterTheContentWasThere_LeavesNoTrace) {
  Fat16Image image = EmptyImage(kSmallDisk);
  image.SeedClusterAllocator(90);
  const std::vector<std::uint8_t> before = BytesOf(image);
  const auto chain = image.TakeChain(5000);
  ASSERT_TRUE(chain);
  Put(image, *chain, std::vector<std::uint8_t>(5000, 0xAB));

  image.GiveBack(*chain);

  EXPECT_EQ(BytesOf(image), before);
  EXPECT_EQ(Runs(*image.TakeChain(92 * 512)), "92x2 2x90 ");
}

TEST(AddTakenFile, FullRoot_FailsWithItsMessage) {
  Fat16Image image = EmptyImage(kSmallDisk);
  std::string err;
  for (int i = 0; i < 512; ++i) ASSERT_NE(image.AddFile(0, "TAKEN", nullptr, 0, err), 0);
  const auto chain = image.TakeChain(5);
  EXPECT_EQ(image.AddTakenFile(0, "A", *chain, 5, err), 0);
  EXPECT_EQ(err, "Root directory is full");
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
