#include "preview/dry_image.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "fat16/fat16_image.h"

namespace quorbix::virtdisk::internal {
namespace {

Geometry Smallest() {  // 92 clusters of 512 bytes, 16 slots to a cluster
  Geometry geometry;
  std::string err;
  EXPECT_TRUE(ComputeGeometry(65536, geometry, err)) << err;
  return geometry;
}

TEST(DryImage, Root_Takes511Entries) {
  DryImage image(Smallest());
  std::string err;
  for (int i = 0; i < 511; ++i) ASSERT_TRUE(image.AddFile(0, 0, err));
  EXPECT_FALSE(image.AddFile(0, 0, err));
  EXPECT_EQ(err, "Root directory is full");
}

TEST(DryImage, FileOfAllClusters_FitsAndOneByteMoreDoesNot) {
  DryImage fits(Smallest());
  DryImage full(Smallest());
  std::string err;
  EXPECT_TRUE(fits.AddFile(0, 92 * 512, err));
  EXPECT_FALSE(full.AddFile(0, 92 * 512 + 1, err));
  EXPECT_EQ(err, "Disk full while writing file");
}

TEST(DryImage, NoClusterLeft_IsADiskFull) {
  DryImage image(Smallest());
  std::string err;
  ASSERT_TRUE(image.AddFile(0, 92 * 512, err));
  EXPECT_FALSE(image.AddFile(0, 1, err));
  EXPECT_EQ(err, "Disk full");
  err.clear();
  EXPECT_FALSE(image.AddDirectory(0, err));
  EXPECT_EQ(err, "Disk full");
}

TEST(DryImage, FifteenthEntryOfADirectory_TakesAnotherCluster) {
  DryImage image(Smallest());
  std::string err;
  ASSERT_TRUE(image.AddDirectory(0, err));
  for (int i = 0; i < 14; ++i) ASSERT_TRUE(image.AddFile(1, 0, err));
  EXPECT_EQ(image.ClustersTaken(), 1u);
  ASSERT_TRUE(image.AddFile(1, 0, err));
  EXPECT_EQ(image.ClustersTaken(), 2u);
}

TEST(DryImage, DirectoryThatCannotGrow_SaysSo) {
  DryImage image(Smallest());
  std::string err;
  ASSERT_TRUE(image.AddDirectory(0, err));
  for (int i = 0; i < 14; ++i) ASSERT_TRUE(image.AddFile(1, 0, err));
  ASSERT_TRUE(image.AddFile(0, 91 * 512, err));
  EXPECT_FALSE(image.AddFile(1, 0, err));
  EXPECT_EQ(err, "Disk full, cannot extend directory");
}

// The same entries into both, until one says no.
void CompareWithRealImage(unsigned seed) {
  std::mt19937 random(seed);
  Fat16Image image;
  std::string err, dryErr;
  ASSERT_TRUE(image.Init(65536 + random() % 40 * 512, err));
  image.SetVolumeLabel("");
  DryImage dry(image.Layout());
  std::vector<std::uint32_t> clusters{0};
  const std::vector<std::uint8_t> content(5000, 'x');
  for (int i = 0; i < 2000; ++i) {
    const std::size_t parent = random() % clusters.size();
    const auto bytes = static_cast<std::uint32_t>(random() % 3 == 0 ? random() % 2000 : 0);
    bool added = false;
    bool dryAdded = false;
    if (random() % 10 == 0) {
      const std::uint16_t cluster = image.AddDirectory(clusters[parent], "D", err);
      added = cluster != 0;
      dryAdded = dry.AddDirectory(parent, dryErr);
      if (added) clusters.push_back(cluster);
    } else {
      added = image.AddFile(clusters[parent], "F", content.data(), bytes, err) != 0;
      dryAdded = dry.AddFile(parent, bytes, dryErr);
    }
    ASSERT_EQ(dryAdded, added) << i;
    ASSERT_EQ(dryErr, err) << i;
    if (!added && bytes != 0) return;
  }
}

TEST(DryImage, RandomEntries_MeetWhatARealImageMeets) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    CompareWithRealImage(seed);
    ASSERT_FALSE(testing::Test::HasFailure());
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
