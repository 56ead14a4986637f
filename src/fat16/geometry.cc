#include "fat16/geometry.h"

#include <algorithm>

#include "common/fail.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::internal {
namespace {

constexpr char kTooSmall[] = "Image too small (minimum 64 KB)";
constexpr char kTooSmallForMbr[] = "Image too small to hold MBR";
constexpr char kTooSmallForMetadata[] = "Image too small to hold FAT16 metadata";

constexpr std::uint64_t kMinimumBytes = 65536;
constexpr std::uint64_t kMiB = 1048576;
constexpr std::uint64_t kMostSectorsPerCluster = 128;
constexpr std::uint64_t kPreferredFatSectors = 64;
constexpr std::uint64_t kMetadataOnlySectors = 35;  // boot sector, two FATs of one sector, root
constexpr std::uint64_t kWordsPerFatSector = kSectorBytes / fat::kWordBytes;
constexpr int kMostFatSizeSteps = 16;

std::uint64_t FirstSectorsPerCluster(std::uint64_t partitionSectors) {
  if (partitionSectors <= 16384) return 1;
  const std::uint64_t bytes = partitionSectors * kSectorBytes;
  std::uint64_t sectorsPerCluster = 2;
  for (std::uint64_t bound = 32 * kMiB; bytes > bound && sectorsPerCluster < kMostSectorsPerCluster;
       bound *= 2) {
    sectorsPerCluster *= 2;
  }
  return sectorsPerCluster;
}

// The two reserved words are deliberately not counted. For some sizes the steps never settle; the
// last of them stands.
std::uint64_t FatSectors(std::uint64_t partitionSectors, std::uint64_t sectorsPerCluster) {
  std::uint64_t fatSectors = 1;
  for (int step = 0; step < kMostFatSizeSteps; ++step) {
    const std::uint64_t overhead = kFatCount * fatSectors + kReservedSectors + kRootDirSectors;
    if (overhead >= partitionSectors) break;
    const std::uint64_t clusters = (partitionSectors - overhead) / sectorsPerCluster;
    const std::uint64_t next = (clusters * fat::kWordBytes + kSectorBytes - 1) / kSectorBytes;
    if (next == fatSectors) break;
    fatSectors = next;
  }
  return fatSectors;
}

// The smallest cluster, from `first` up, whose FAT keeps to the preferred length.
std::uint64_t ChooseSectorsPerCluster(std::uint64_t partitionSectors) {
  std::uint64_t sectorsPerCluster = FirstSectorsPerCluster(partitionSectors);
  while (sectorsPerCluster < kMostSectorsPerCluster &&
         FatSectors(partitionSectors, sectorsPerCluster) > kPreferredFatSectors) {
    sectorsPerCluster *= 2;
  }
  return sectorsPerCluster;
}

}  // namespace

bool LayOutSectors(std::uint64_t imageSectors, Geometry& geometry, std::string& err) {
  if (imageSectors < 2) return Fail(err, kTooSmallForMbr);
  const std::uint64_t partitionSectors = imageSectors - kPartitionStart;
  if (partitionSectors <= kMetadataOnlySectors) return Fail(err, kTooSmallForMetadata);

  const std::uint64_t sectorsPerCluster = ChooseSectorsPerCluster(partitionSectors);
  const std::uint64_t fatSectors =
      std::max<std::uint64_t>(FatSectors(partitionSectors, sectorsPerCluster), 1);
  const std::uint64_t rootDirSector = kFirstFatSector + kFatCount * fatSectors;
  const std::uint64_t dataStartSector = rootDirSector + kRootDirSectors;
  if (dataStartSector >= imageSectors) return Fail(err, kTooSmallForMetadata);
  const std::uint64_t dataSectors = imageSectors - dataStartSector;
  const std::uint64_t clusterCount = dataSectors / sectorsPerCluster;
  if (clusterCount > kMostFat16Clusters) return Fail(err, kSizeTooLarge);

  // From here on at most 65,525 clusters of 128 sectors: everything fits into 32 bits.
  geometry.imageSectors = static_cast<std::uint32_t>(imageSectors);
  geometry.partitionSectors = static_cast<std::uint32_t>(partitionSectors);
  geometry.sectorsPerCluster = static_cast<std::uint32_t>(sectorsPerCluster);
  geometry.sectorsPerFat = static_cast<std::uint32_t>(fatSectors);
  geometry.rootDirSector = static_cast<std::uint32_t>(rootDirSector);
  geometry.dataStartSector = static_cast<std::uint32_t>(dataStartSector);
  geometry.dataSectors = static_cast<std::uint32_t>(dataSectors);
  geometry.clusterCount = static_cast<std::uint32_t>(clusterCount);
  return true;
}

bool ComputeGeometry(std::uint64_t sizeBytes, Geometry& geometry, std::string& err) {
  if (sizeBytes < kMinimumBytes) return Fail(err, kTooSmall);
  return LayOutSectors(sizeBytes / kSectorBytes, geometry, err);
}

std::uint32_t LastUsableCluster(const Geometry& geometry) {
  const auto fatWords = static_cast<std::uint32_t>(geometry.sectorsPerFat * kWordsPerFatSector);
  return std::min(geometry.clusterCount + fat::kFirstCluster, fatWords) - 1;
}

}  // namespace quorbix::virtdisk::internal
