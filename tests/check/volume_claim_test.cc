#include "check/volume_claim.h"

#include <gtest/gtest.h>

namespace quorbix::virtdisk::internal {
namespace {

// A volume of 4,084 clusters when `totalSectors` is 4084 + 35 and the type says nothing.
Fat16FsInfo Volume(std::uint32_t clusters, const char* type) {
  Fat16FsInfo info;
  info.partitionStartLba = 1;
  info.sectorsPerCluster = 1;
  info.sectorsPerFat = 16;
  info.rootEntryCount = 512;
  info.dataStartSector = 1 + 65;
  info.totalSectors = 65 + clusters;
  info.fileSystemType = type;
  return info;
}

TEST(VolumeClaim, NumberOfClusters_IsThatBehindTheRoot) {
  EXPECT_EQ(ClaimedClusters(Volume(7, "")), 7u);
  EXPECT_EQ(ClaimedClusters(Volume(0, "")), 0u);
  EXPECT_EQ(ClaimedClusters(Fat16FsInfo()), 0u);
}

TEST(VolumeClaim, SectorsInFrontOfTheClusters_EndWhereNumbersEnd) {
  Fat16FsInfo info = Volume(5000, "FAT16");
  info.reservedSectors = 1;
  info.fatCount = 2;
  info.rootDirSectors = 32;
  info.partitionStartLba = 0xFFFFFFFF - 65;
  EXPECT_FALSE(IsBeyondSectorNumbers(info));
  ++info.partitionStartLba;
  EXPECT_TRUE(IsBeyondSectorNumbers(info));
  info.dataStartSector = 0;  // as it then wraps
  EXPECT_EQ(ClaimedClusters(info), 0u);
}

TEST(VolumeClaim, UntypedVolume_GoesByItsClusters) {
  EXPECT_EQ(ClaimOf(Volume(4084, "")), VolumeClaim::kTooFew);
  EXPECT_EQ(ClaimOf(Volume(4085, "")), VolumeClaim::kFat16);
}

TEST(VolumeClaim, SmallVolumeThatSaysFat16_IsReadable) {
  EXPECT_EQ(ClaimOf(Volume(4084, "FAT16")), VolumeClaim::kSmallFat16);
  EXPECT_EQ(ClaimOf(Volume(4085, "FAT16")), VolumeClaim::kFat16);
  EXPECT_FALSE(WouldBeMisread(VolumeClaim::kSmallFat16));
  EXPECT_FALSE(WouldBeMisread(VolumeClaim::kFat16));
}

TEST(VolumeClaim, OtherTypes_AreTakenAtTheirWord) {
  EXPECT_EQ(ClaimOf(Volume(5000, "FAT12")), VolumeClaim::kFat12);
  EXPECT_EQ(ClaimOf(Volume(5000, "FAT32")), VolumeClaim::kFat32);
  EXPECT_TRUE(WouldBeMisread(VolumeClaim::kFat12));
  EXPECT_TRUE(WouldBeMisread(VolumeClaim::kFat32));
  EXPECT_TRUE(WouldBeMisread(VolumeClaim::kTooFew));
}

TEST(VolumeClaim, FieldsThatFat32KeepsAtZero_MeanFat32) {
  Fat16FsInfo info = Volume(5000, "");
  info.sectorsPerFat = 0;
  EXPECT_EQ(ClaimOf(info), VolumeClaim::kFat32);
  info = Volume(5000, "");
  info.rootEntryCount = 0;
  EXPECT_EQ(ClaimOf(info), VolumeClaim::kFat32);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
