#include "browser/volume_description.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "browser/path_text.h"
#include "common/byte_order.h"
#include "common/fail.h"
#include "common/partition_types.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::internal {
namespace {

constexpr std::string_view kTooSmall = "image too small";
constexpr std::string_view kBootSectorBeyondEnd = "vbr offset out of range";
constexpr std::string_view kBadBpb = "unsupported or invalid FAT16 BPB";

// Fills the partition's fields from the first entry of the partition table in `sector` that can be
// used. False when its boot sector does not fit an image of `imageBytes`; a table without such an
// entry is no failure.
bool ChoosePartition(const std::uint8_t* sector, std::uint64_t imageBytes, Fat16FsInfo& info) {
  if (!HasSignature(sector)) return true;
  for (std::size_t i = 0; i < mbr::kPartitionCount; ++i) {
    const std::uint8_t* entry = sector + mbr::kPartitionTable + i * partition_entry::kSize;
    const std::uint8_t type = entry[partition_entry::kType];
    const std::uint32_t startLba = LoadU32(entry + partition_entry::kStartLba);
    const std::uint64_t offset = std::uint64_t{startLba} * kSectorBytes;
    if (!partition_entry::IsSupportedType(type) || startLba == 0 || offset >= imageBytes) continue;
    info.partitioned = true;
    info.partitionType = type;
    info.partitionStartLba = startLba;
    info.partitionSectorCount = LoadU32(entry + partition_entry::kSectorCount);
    info.volumeOffset = offset;
    return imageBytes - offset >= kSectorBytes;
  }
  return true;
}

void DecodeBootSector(const std::uint8_t* boot, Fat16FsInfo& info) {
  info.bytesPerSector = LoadU16(boot + boot_sector::kBytesPerSector);
  info.sectorsPerCluster = boot[boot_sector::kSectorsPerCluster];
  info.reservedSectors = LoadU16(boot + boot_sector::kReservedSectors);
  info.fatCount = boot[boot_sector::kFatCount];
  info.rootEntryCount = LoadU16(boot + boot_sector::kRootEntryCount);
  info.sectorsPerFat = LoadU16(boot + boot_sector::kSectorsPerFat);
  info.totalSectors = LoadU16(boot + boot_sector::kTotalSectors16);
  if (info.totalSectors == 0) info.totalSectors = LoadU32(boot + boot_sector::kTotalSectors32);
  info.fileSystemType =
      TrimPaddedAscii(boot + boot_sector::kFileSystemType, boot_sector::kFileSystemTypeSize);
  info.volumeLabel =
      TrimPaddedAscii(boot + boot_sector::kVolumeLabel, boot_sector::kVolumeLabelSize);
}

// Deliberately no more than this: disks with other oddities are read as far as they go.
bool HasUsableGeometry(const Fat16FsInfo& info) {
  return info.bytesPerSector == kSectorBytes && info.sectorsPerCluster != 0 && info.fatCount != 0 &&
         info.rootEntryCount != 0 && info.sectorsPerFat != 0;
}

void DeriveGeometry(Fat16FsInfo& info) {
  const std::uint32_t rootBytes = info.rootEntryCount * std::uint32_t{dir_entry::kSize};
  info.fatStartSector = info.partitionStartLba + info.reservedSectors;
  info.rootDirStartSector = info.fatStartSector + std::uint32_t{info.fatCount} * info.sectorsPerFat;
  info.rootDirSectors = (rootBytes + kSectorBytes - 1) / kSectorBytes;
  info.dataStartSector = info.rootDirStartSector + info.rootDirSectors;
}

}  // namespace

bool DescribeVolume(ByteSource& image, Fat16FsInfo& info, std::string& err) {
  if (image.Size() < kSectorBytes) return Fail(err, kTooSmall);
  std::vector<std::uint8_t> buffer;
  const std::uint8_t* first = image.Read(0, kSectorBytes, buffer, err);
  if (first == nullptr) return false;
  if (!ChoosePartition(first, image.Size(), info)) return Fail(err, kBootSectorBeyondEnd);
  const std::uint8_t* boot = image.Read(info.volumeOffset, kSectorBytes, buffer, err);
  if (boot == nullptr) return false;
  DecodeBootSector(boot, info);
  if (!HasUsableGeometry(info)) return Fail(err, kBadBpb);
  DeriveGeometry(info);
  return true;
}

}  // namespace quorbix::virtdisk::internal
