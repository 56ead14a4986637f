#include "disk/fat32_volume.h"

#include <bit>
#include <cstddef>
#include <vector>

#include "browser/path_text.h"
#include "common/byte_order.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::tool {
namespace {

using internal::kSectorBytes;
using internal::LoadU16;
using internal::LoadU32;
namespace boot_sector = internal::boot_sector;
namespace mbr = internal::mbr;
namespace partition_entry = internal::partition_entry;

constexpr std::uint8_t kTypeFat32 = 0x0B;
constexpr std::uint8_t kTypeFat32Lba = 0x0C;

// Behind the fields that the boot sectors of FAT16 have, too.
constexpr std::size_t kSectorsPerFat32 = 36;    // u32
constexpr std::size_t kInfoSector = 48;         // u16
constexpr std::size_t kExtendedSignature = 66;  // u8
constexpr std::size_t kVolumeId = 67;           // u32
constexpr std::size_t kVolumeLabel = 71;        // char[11]
constexpr std::size_t kFileSystemType = 82;     // char[8]

// In the sector that counts.
constexpr std::size_t kInfoSignature = 484;  // u32
constexpr std::size_t kFreeClusters = 488;   // u32
constexpr std::uint32_t kInfoMark = 0x61417272;

// A sector of 512 bytes. Empty where the image ends before, or fails.
std::vector<std::uint8_t> SectorAt(internal::ByteSource& image, std::uint64_t offset) {
  if (offset > image.Size() || image.Size() - offset < kSectorBytes) return {};
  std::vector<std::uint8_t> buffer;
  std::string ignored;
  const std::uint8_t* bytes = image.Read(offset, kSectorBytes, buffer, ignored);
  if (bytes == nullptr) return {};
  return {bytes, bytes + kSectorBytes};
}

bool IsSigned(const std::vector<std::uint8_t>& sector) {
  return sector.size() == kSectorBytes && internal::HasSignature(sector.data());
}

std::optional<Fat32Volume::Partition> FindPartition(const std::vector<std::uint8_t>& sector) {
  for (std::size_t i = 0; i < mbr::kPartitionCount; ++i) {
    const std::uint8_t* entry = &sector[mbr::kPartitionTable + i * partition_entry::kSize];
    const std::uint8_t type = entry[partition_entry::kType];
    if (type != kTypeFat32 && type != kTypeFat32Lba) continue;
    return Fat32Volume::Partition{type, LoadU32(entry + partition_entry::kStartLba),
                                  LoadU32(entry + partition_entry::kSectorCount)};
  }
  return std::nullopt;
}

bool IsFat32(const Fat32Volume& volume, const std::uint8_t* boot) {
  const bool hasSectors = volume.sectorBytes >= kSectorBytes && volume.sectorBytes <= 4096 &&
                          std::has_single_bit(volume.sectorBytes);
  const bool hasFat16Fields = LoadU16(boot + boot_sector::kSectorsPerFat) != 0 ||
                              LoadU16(boot + boot_sector::kRootEntryCount) != 0;
  return hasSectors && !hasFat16Fields && std::has_single_bit(volume.sectorsPerCluster) &&
         volume.reservedSectors != 0 && volume.fats != 0 && volume.sectorsPerFat != 0;
}

std::optional<std::uint32_t> CountedFree(internal::ByteSource& image, std::uint64_t volumeOffset,
                                         const Fat32Volume& volume, std::uint16_t infoSector) {
  const std::vector<std::uint8_t> info =
      SectorAt(image, volumeOffset + std::uint64_t{infoSector} * volume.sectorBytes);
  if (info.empty() || LoadU32(&info[kInfoSignature]) != kInfoMark) return std::nullopt;
  const std::uint32_t free = LoadU32(&info[kFreeClusters]);
  if (free > volume.Clusters()) return std::nullopt;  // all bits mean that nobody has counted
  return free;
}

std::optional<Fat32Volume> VolumeAt(internal::ByteSource& image, std::uint64_t offset) {
  const std::vector<std::uint8_t> sector = SectorAt(image, offset);
  if (!IsSigned(sector)) return std::nullopt;
  const std::uint8_t* boot = sector.data();
  Fat32Volume volume;
  volume.sectorBytes = LoadU16(boot + boot_sector::kBytesPerSector);
  volume.sectorsPerCluster = boot[boot_sector::kSectorsPerCluster];
  volume.reservedSectors = LoadU16(boot + boot_sector::kReservedSectors);
  volume.fats = boot[boot_sector::kFatCount];
  volume.totalSectors = LoadU32(boot + boot_sector::kTotalSectors32);
  volume.sectorsPerFat = LoadU32(boot + kSectorsPerFat32);
  if (!IsFat32(volume, boot)) return std::nullopt;
  if (boot[kExtendedSignature] == boot_sector::kExtendedSignatureValue) {
    volume.volumeId = LoadU32(boot + kVolumeId);
  }
  volume.label = internal::TrimPaddedAscii(boot + kVolumeLabel, boot_sector::kVolumeLabelSize);
  volume.fileSystemType =
      internal::TrimPaddedAscii(boot + kFileSystemType, boot_sector::kFileSystemTypeSize);
  volume.freeClusters = CountedFree(image, offset, volume, LoadU16(boot + kInfoSector));
  return volume;
}

}  // namespace

std::uint64_t Fat32Volume::Clusters() const {
  const std::uint64_t inFront = reservedSectors + std::uint64_t{fats} * sectorsPerFat;
  if (sectorsPerCluster == 0 || totalSectors <= inFront) return 0;
  return (totalSectors - inFront) / sectorsPerCluster;
}

std::optional<Fat32Volume> FindFat32(internal::ByteSource& image) {
  std::optional<Fat32Volume> volume = VolumeAt(image, 0);
  if (volume) return volume;
  const std::vector<std::uint8_t> first = SectorAt(image, 0);
  if (!IsSigned(first)) return std::nullopt;
  const auto partition = FindPartition(first);
  if (!partition || partition->startSector == 0) return std::nullopt;
  volume = VolumeAt(image, std::uint64_t{partition->startSector} * kSectorBytes);
  if (volume) volume->partition = partition;
  return volume;
}

}  // namespace quorbix::virtdisk::tool
