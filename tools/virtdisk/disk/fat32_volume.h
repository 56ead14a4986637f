#ifndef QUORBIX_VIRTDISK_TOOL_FAT32_VOLUME_H_
#define QUORBIX_VIRTDISK_TOOL_FAT32_VOLUME_H_

#include <cstdint>
#include <optional>
#include <string>

#include "browser/byte_source.h"

namespace quorbix::virtdisk::tool {

// What a volume of FAT32, which nothing here reads, says of itself.
struct Fat32Volume {
  struct Partition {
    std::uint8_t type = 0;
    std::uint32_t startSector = 0;
    std::uint32_t sectors = 0;
  };
  std::optional<Partition> partition;  // nothing: it begins with the image
  std::string label;                   // of the boot sector
  std::optional<std::uint32_t> volumeId;
  std::string fileSystemType;
  std::uint32_t sectorBytes = 0;
  std::uint32_t sectorsPerCluster = 0;
  std::uint32_t totalSectors = 0;
  std::uint32_t reservedSectors = 0;
  std::uint32_t fats = 0;
  std::uint32_t sectorsPerFat = 0;
  std::optional<std::uint32_t> freeClusters;  // as it was counted last, where it was

  std::uint64_t ClusterBytes() const { return std::uint64_t{sectorBytes} * sectorsPerCluster; }
  std::uint64_t Clusters() const;
};

// Looks for a volume of FAT32 at the beginning of the image and in the first partition that is
// marked as one. Nothing where there is none, or where its sectors could not be read.
std::optional<Fat32Volume> FindFat32(internal::ByteSource& image);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_FAT32_VOLUME_H_
