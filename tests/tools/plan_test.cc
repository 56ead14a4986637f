#include "host/plan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "support/sizes.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::kKiB;
using test::kMiB;
using ::testing::ElementsAre;

struct GeometryRow {
  std::uint64_t size;
  std::uint32_t sectorsPerCluster, sectorsPerFat, dataStartSector, clusters;
};

TEST(GeometryFor, Sizes_GiveTheVolumesThatABuildMakes) {
  for (const GeometryRow& row : std::vector<GeometryRow>{
           {65536, 1, 1, 36, 92},
           {66047, 1, 1, 36, 92},
           {3 * kMiB, 1, 24, 82, 6062},
           {8 * kMiB + 512, 1, 64, 162, 16223},
           {8 * kMiB + 1024, 2, 32, 98, 8144},
           {32 * kMiB, 4, 64, 162, 16343},
           {640 * kMiB, 128, 40, 114, 10239},
           {4095 * kMiB, 128, 256, 546, 65515},
       }) {
    const std::optional<Geometry> geometry = GeometryFor(row.size);
    ASSERT_TRUE(geometry) << row.size;
    EXPECT_EQ(geometry->sectorsPerCluster, row.sectorsPerCluster) << row.size;
    EXPECT_EQ(geometry->sectorsPerFat, row.sectorsPerFat) << row.size;
    EXPECT_EQ(geometry->dataStartSector, row.dataStartSector) << row.size;
    EXPECT_EQ(geometry->clusters, row.clusters) << row.size;
  }
}

TEST(GeometryFor, SizesThatABuildRefuses_HaveNone) {
  EXPECT_FALSE(GeometryFor(0));
  EXPECT_FALSE(GeometryFor(65535));
  EXPECT_FALSE(GeometryFor(4096 * kMiB));
  EXPECT_FALSE(GeometryFor(kRefusedSize));
  EXPECT_FALSE(GeometryFor(std::numeric_limits<std::uint64_t>::max()));
}

TEST(FatIsTooShort, WholeMebibytes_AreTheKnownFifteen) {
  std::vector<std::uint64_t> tooShort;
  for (std::uint64_t mebi = 3; mebi <= 4095; ++mebi) {
    if (FatIsTooShort(*GeometryFor(mebi * kMiB))) tooShort.push_back(mebi);
  }
  EXPECT_THAT(tooShort, ElementsAre(528, 544, 560, 576, 592, 608, 624, 640, 656, 672, 688, 704, 720,
                                    736, 752));
}

TEST(FatIsTooShort, SmallSizes_LoseOneToThreeClusters) {
  EXPECT_FALSE(FatIsTooShort(*GeometryFor(148480)));
  EXPECT_EQ(GeometryFor(148992)->clusters, 255U);
  EXPECT_EQ(UsableClusters(*GeometryFor(148992)), 254U);
  EXPECT_EQ(GeometryFor(149504)->clusters, 256U);
  EXPECT_EQ(UsableClusters(*GeometryFor(149504)), 254U);
  EXPECT_EQ(GeometryFor(150016)->clusters, 257U);
  EXPECT_EQ(UsableClusters(*GeometryFor(150016)), 254U);
}

TEST(ClustersNeeded, Files_TakeWholeClusters) {
  EXPECT_EQ(ClustersNeeded({.fileBytes = {1, 512, 513}}, 512), 4U);
}

TEST(ClustersNeeded, Directory_TakesTwoSlotsOfItsOwn) {
  EXPECT_EQ(ClustersNeeded({.directoryEntries = {0}}, 512), 1U);
  EXPECT_EQ(ClustersNeeded({.directoryEntries = {14}}, 512), 1U);
  EXPECT_EQ(ClustersNeeded({.directoryEntries = {15}}, 512), 2U);
  EXPECT_EQ(ClustersNeeded({.directoryEntries = {2046, 2047}}, 65536), 3U);
}

TEST(ClustersNeeded, FileOf5GiB_CountsAsFarAsASizeFieldReaches) {
  EXPECT_EQ(ClustersNeeded({.fileBytes = {5ULL << 30}}, 65536), 65536U);
}

TEST(Fits, ContentOfExactlyAllClusters_Fits) {
  const Geometry geometry = *GeometryFor(65536);
  EXPECT_TRUE(Fits({.fileBytes = {92 * 512}}, geometry));
  EXPECT_FALSE(Fits({.fileBytes = {92 * 512 + 1}}, geometry));
}

TEST(Fits, ClustersWithoutAWordInTheFat_DoNotCount) {
  const Geometry geometry = *GeometryFor(149504);
  EXPECT_TRUE(Fits({.fileBytes = {254 * 512}}, geometry));
  EXPECT_FALSE(Fits({.fileBytes = {255 * 512}}, geometry));
}

TEST(SmallestSize, EmptyFolder_Takes3MiB) { EXPECT_EQ(SmallestSize({}), 3 * kMiB); }

TEST(SmallestSize, OneByteMoreThan3MiBHolds_Takes4MiB) {
  EXPECT_EQ(SmallestSize({.fileBytes = {6062 * 512}}), 3 * kMiB);
  EXPECT_EQ(SmallestSize({.fileBytes = {6062 * 512 + 1}}), 4 * kMiB);
}

TEST(SmallestSize, SizeWithTooShortAFat_IsPassedOver) {
  EXPECT_EQ(SmallestSize({.fileBytes = {8431ULL * 65536}}), 527 * kMiB);
  EXPECT_EQ(SmallestSize({.fileBytes = {8432ULL * 65536}}), 529 * kMiB);
}

TEST(SmallestSize, Above_IsTheNextOneUp) {
  EXPECT_EQ(SmallestSize({}, 3 * kMiB), 4 * kMiB);
  EXPECT_EQ(SmallestSize({}, 527 * kMiB), 529 * kMiB);
  EXPECT_EQ(SmallestSize({}, 4095 * kMiB), std::nullopt);
}

TEST(SmallestSize, LargestContent_Takes4095MiB) {
  FolderContent content;
  content.fileBytes.assign(65515, 65536);
  EXPECT_EQ(SmallestSize(content), 4095 * kMiB);
  content.fileBytes.push_back(1);
  EXPECT_EQ(SmallestSize(content), std::nullopt);
}

TEST(SmallestSize, FolderWithoutEnd_HasNone) {
  EXPECT_EQ(SmallestSize({.endless = true}), std::nullopt);
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
