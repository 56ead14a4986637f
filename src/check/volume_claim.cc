#include "check/volume_claim.h"

#include <limits>

#include "fat16/geometry.h"

namespace quorbix::virtdisk::internal {

bool IsBeyondSectorNumbers(const Fat16FsInfo& info) {
  const std::uint64_t dataStart = std::uint64_t{info.partitionStartLba} + info.reservedSectors +
                                  std::uint64_t{info.fatCount} * info.sectorsPerFat +
                                  info.rootDirSectors;
  return dataStart > std::numeric_limits<std::uint32_t>::max();
}

std::uint64_t ClaimedClusters(const Fat16FsInfo& info) {
  if (info.dataStartSector < info.partitionStartLba) return 0;
  const std::uint64_t inFront = info.dataStartSector - info.partitionStartLba;
  if (info.sectorsPerCluster == 0 || info.totalSectors <= inFront) return 0;
  return (info.totalSectors - inFront) / info.sectorsPerCluster;
}

VolumeClaim ClaimOf(const Fat16FsInfo& info) {
  const std::string& type = info.fileSystemType;
  if (type.starts_with("FAT12")) return VolumeClaim::kFat12;
  if (type.starts_with("FAT32")) return VolumeClaim::kFat32;
  const bool hasFat16Fields = info.sectorsPerFat != 0 && info.rootEntryCount != 0;
  if (!hasFat16Fields) return VolumeClaim::kFat32;
  if (ClaimedClusters(info) >= kFewestFat16Clusters) return VolumeClaim::kFat16;
  return type.starts_with("FAT16") ? VolumeClaim::kSmallFat16 : VolumeClaim::kTooFew;
}

}  // namespace quorbix::virtdisk::internal
