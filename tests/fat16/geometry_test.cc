#include "fat16/geometry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "fat16/fat16_fixture.h"

namespace quorbix::virtdisk::internal {
namespace {

Geometry GeometryOf(std::uint64_t sizeBytes) {
  Geometry geometry;
  std::string err;
  EXPECT_TRUE(ComputeGeometry(sizeBytes, geometry, err)) << sizeBytes << ": " << err;
  return geometry;
}

std::string FailureOf(std::uint64_t sizeBytes) {
  Geometry geometry;
  std::string err;
  EXPECT_FALSE(ComputeGeometry(sizeBytes, geometry, err)) << sizeBytes;
  return err;
}

std::string SectorFailureOf(std::uint64_t imageSectors) {
  Geometry geometry;
  std::string err = "what was there before";
  EXPECT_FALSE(LayOutSectors(imageSectors, geometry, err)) << imageSectors;
  return err;
}

TEST(Geometry, OneByteBelow64K_IsTooSmall) {
  EXPECT_EQ(FailureOf(65535), "Image too small (minimum 64 KB)");
  EXPECT_EQ(FailureOf(0), "Image too small (minimum 64 KB)");
}

TEST(Geometry, 64K_IsTheSmallestImage) {
  const Geometry geometry = GeometryOf(65536);
  EXPECT_EQ(geometry.imageSectors, 128u);
  EXPECT_EQ(geometry.partitionSectors, 127u);
  EXPECT_EQ(geometry.sectorsPerCluster, 1u);
  EXPECT_EQ(geometry.sectorsPerFat, 1u);
  EXPECT_EQ(geometry.rootDirSector, 4u);
  EXPECT_EQ(geometry.dataStartSector, 36u);
  EXPECT_EQ(geometry.dataSectors, 92u);
  EXPECT_EQ(geometry.clusterCount, 92u);
}

TEST(Geometry, SizeBetweenSectors_IsRoundedDown) {
  EXPECT_EQ(GeometryOf(65536 + 511).imageSectors, 128u);
  EXPECT_EQ(GeometryOf(65536 + 512).imageSectors, 129u);
}

TEST(Geometry, FewerThanTwoSectors_HoldNoMbr) {
  EXPECT_EQ(SectorFailureOf(0), "Image too small to hold MBR");
  EXPECT_EQ(SectorFailureOf(1), "Image too small to hold MBR");
}

TEST(Geometry, PartitionOf35Sectors_HoldsNoMetadata) {
  EXPECT_EQ(SectorFailureOf(2), "Image too small to hold FAT16 metadata");
  EXPECT_EQ(SectorFailureOf(36), "Image too small to hold FAT16 metadata");
}

TEST(Geometry, PartitionOf36Sectors_HoldsOneCluster) {
  Geometry geometry;
  std::string err;
  ASSERT_TRUE(LayOutSectors(37, geometry, err)) << err;
  EXPECT_EQ(geometry.sectorsPerFat, 1u);
  EXPECT_EQ(geometry.clusterCount, 1u);
}

// Cluster size, FAT length and cluster count on both sides of every change of the cluster size.
struct SizeRow {
  const char* name;
  std::uint64_t sizeBytes;
  std::uint32_t sectorsPerCluster;
  std::uint32_t sectorsPerFat;
  std::uint32_t clusterCount;
};

class GeometryRow : public testing::TestWithParam<SizeRow> {};

TEST_P(GeometryRow, HasTheClusterSizeFatLengthAndClusterCount) {
  const SizeRow& row = GetParam();
  const Geometry geometry = GeometryOf(row.sizeBytes);
  EXPECT_EQ(geometry.sectorsPerCluster, row.sectorsPerCluster);
  EXPECT_EQ(geometry.sectorsPerFat, row.sectorsPerFat);
  EXPECT_EQ(geometry.clusterCount, row.clusterCount);
  EXPECT_EQ(geometry.rootDirSector, 2 + 2 * row.sectorsPerFat);
  EXPECT_EQ(geometry.dataStartSector, 34 + 2 * row.sectorsPerFat);
  EXPECT_EQ(geometry.dataSectors, row.sizeBytes / 512 - geometry.dataStartSector);
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, GeometryRow,
    testing::Values(SizeRow{"Partition16384SectorsKeepsOne", 8 * kMiB + 512, 1, 64, 16223},
                    SizeRow{"OneSectorMoreStartsAtTwo", 8 * kMiB + 1024, 2, 32, 8144},
                    SizeRow{"LastWithTwo", 16862208 - 512, 2, 64, 16385},
                    SizeRow{"FirstWithFour", 16862208, 4, 33, 8208},
                    SizeRow{"32MiBDoublesFromTwoToFour", 32 * kMiB, 4, 64, 16343},
                    SizeRow{"32MiBPartition", 32 * kMiB + 512, 4, 64, 16343},
                    SizeRow{"LastWithFour", 33640448 - 512, 4, 64, 16385},
                    SizeRow{"FirstWithEight", 33640448, 8, 33, 8200},
                    SizeRow{"LastWithEight", 67196928 - 512, 8, 64, 16385},
                    SizeRow{"FirstWith16", 67196928, 16, 33, 8196},
                    SizeRow{"LastWith16", 134309888 - 512, 16, 64, 16385},
                    SizeRow{"FirstWith32", 134309888, 32, 33, 8194},
                    SizeRow{"512MiB", 512 * kMiB, 64, 64, 16381},
                    SizeRow{"1GiB", 1024 * kMiB, 128, 64, 16382},
                    SizeRow{"Over1GiBHasAFatOfMoreThan64Sectors", 1025 * kMiB, 128, 65, 16398},
                    SizeRow{"2GiB", 2048 * kMiB, 128, 128, 32765},
                    SizeRow{"3000MiB", 3000 * kMiB, 128, 188, 47996},
                    SizeRow{"Largest", 4294525951, 128, 256, 65524}),
    [](const testing::TestParamInfo<SizeRow>& row) { return row.param.name; });

class GeometryTooLarge : public testing::TestWithParam<std::uint64_t> {};

TEST_P(GeometryTooLarge, FailsWithoutWrapping) {
  EXPECT_EQ(FailureOf(GetParam()), "Volume too large for FAT16 (max ~2 GB)");
}

INSTANTIATE_TEST_SUITE_P(Sizes, GeometryTooLarge,
                         testing::Values(4294525952,              // 65,525 clusters
                                         4096 * kMiB,             // 2^32: 32 bits would see 0
                                         4096 * kMiB + 65536,     // 32 bits would see 64 KiB
                                         std::uint64_t{1} << 41,  // 2^32 sectors
                                         (std::uint64_t{1} << 41) + 65536, std::uint64_t{1} << 63,
                                         std::numeric_limits<std::uint64_t>::max()));

// The sizes whose FAT lacks the words of the clusters at the end, and how many it lacks.
struct ShortFatRow {
  std::uint64_t sizeBytes;
  std::uint32_t wordsMissing;
};

class GeometryShortFat : public testing::TestWithParam<ShortFatRow> {};

TEST_P(GeometryShortFat, LastUsableClusterIsTheLastOneWithAWord) {
  const Geometry geometry = GeometryOf(GetParam().sizeBytes);
  const std::uint32_t highestCluster = geometry.clusterCount + 1;
  EXPECT_EQ(highestCluster - LastUsableCluster(geometry), GetParam().wordsMissing);
  EXPECT_EQ(LastUsableCluster(geometry), geometry.sectorsPerFat * 256 - 1);
}

INSTANTIATE_TEST_SUITE_P(Sizes, GeometryShortFat,
                         testing::Values(ShortFatRow{148992, 1}, ShortFatRow{149504, 2},
                                         ShortFatRow{150016, 3}, ShortFatRow{150528, 4},
                                         ShortFatRow{282112, 3}, ShortFatRow{528 * kMiB, 1},
                                         ShortFatRow{640 * kMiB, 1}, ShortFatRow{752 * kMiB, 1}));

TEST(Geometry, LastUsableCluster_IsTheLastOfTheVolumeWhereTheFatIsLongEnough) {
  EXPECT_EQ(LastUsableCluster(GeometryOf(65536)), 93u);
  EXPECT_EQ(LastUsableCluster(GeometryOf(2048 * kMiB)), 32766u);
}

TEST(Geometry, WholeMiBSizesWithAShortFat_AreEvery16From528To752) {
  std::vector<std::uint64_t> found;
  for (std::uint64_t size = 1; size <= 4095; ++size) {
    const Geometry geometry = GeometryOf(size * kMiB);
    if (LastUsableCluster(geometry) != geometry.clusterCount + 1) found.push_back(size);
  }
  EXPECT_THAT(found, testing::ElementsAre(528, 544, 560, 576, 592, 608, 624, 640, 656, 672, 688,
                                          704, 720, 736, 752));
}

TEST(Geometry, AnySize_KeepsEverythingInsideTheImage) {
  for (std::uint64_t size = 65536; size <= 4294525951; size += size / 97 + 512) {
    const Geometry geometry = GeometryOf(size);
    ASSERT_EQ(geometry.imageSectors, size / 512);
    ASSERT_EQ(geometry.partitionSectors, geometry.imageSectors - 1);
    ASSERT_EQ(geometry.dataStartSector + geometry.dataSectors, geometry.imageSectors);
    ASSERT_EQ(geometry.clusterCount, geometry.dataSectors / geometry.sectorsPerCluster);
    ASSERT_LE(geometry.clusterCount, 65524u);
    ASSERT_TRUE(geometry.sectorsPerFat <= 64 || geometry.sectorsPerCluster == 128) << size;
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
