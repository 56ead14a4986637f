#include "sync/fat_context.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>

#include "common/byte_order.h"
#include "common/fail.h"
#include "common/host_file.h"
#include "common/partition_types.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::internal {
namespace fs = std::filesystem;

namespace {

constexpr char kCannotOpenImage[] = "Cannot open image: ";
constexpr char kInvalidImageSize[] = "Invalid image size: ";
constexpr char kCannotReadImage[] = "Cannot read image: ";
constexpr char kImageTooSmall[] = "Image too small";
constexpr char kNoSupportedPartition[] = "No supported FAT partition in MBR";
constexpr char kBootSectorOutOfRange[] = "VBR offset out of range";
constexpr char kUnsupportedVolume[] = "Unsupported or invalid FAT BPB";

// Null when no entry has a supported type. Nothing else of the sector is looked at.
const std::uint8_t* FindPartition(const ByteBuffer& image) {
  for (std::size_t i = 0; i < mbr::kPartitionCount; ++i) {
    const std::uint8_t* entry = &image[mbr::kPartitionTable + i * partition_entry::kSize];
    if (partition_entry::IsSupportedType(entry[partition_entry::kType])) return entry;
  }
  return nullptr;
}

void ReadBootSector(const std::uint8_t* sector, FatContext& context) {
  context.bytesPerSector = LoadU16(sector + boot_sector::kBytesPerSector);
  context.sectorsPerCluster = sector[boot_sector::kSectorsPerCluster];
  context.reservedSectors = LoadU16(sector + boot_sector::kReservedSectors);
  context.fatCount = sector[boot_sector::kFatCount];
  context.rootEntryCount = LoadU16(sector + boot_sector::kRootEntryCount);
  context.sectorsPerFat = LoadU16(sector + boot_sector::kSectorsPerFat);
}

// A start sector near 2^32 makes these sums wrap; every access checks what comes of it.
void DeriveSectors(FatContext& context) {
  context.rootDirSectors =
      (context.rootEntryCount * static_cast<std::uint32_t>(dir_entry::kSize) + kSectorBytes - 1) /
      kSectorBytes;
  context.fatStartSector = context.partitionStartLba + context.reservedSectors;
  context.rootDirStartSector = context.fatStartSector + context.fatCount * context.sectorsPerFat;
  context.dataStartSector = context.rootDirStartSector + context.rootDirSectors;
}

}  // namespace

bool LoadImageBytes(const fs::path& path, ByteBuffer& bytes, std::string& error) {
  const Descriptor in = OpenHostFile(path.c_str(), O_RDONLY);
  const ::off_t size = in ? ::lseek(in.Get(), 0, SEEK_END) : -1;
  if (size < 0) return Fail(error, kCannotOpenImage + path.native());
  if (size == 0 || size % kSectorBytes != 0) return Fail(error, kInvalidImageSize + path.native());
  bytes.Reset(static_cast<std::size_t>(size));
  const bool whole =
      ::lseek(in.Get(), 0, SEEK_SET) == 0 && ReadFully(in.Get(), bytes.Span()) == size;
  return whole || Fail(error, kCannotReadImage + path.native());
}

bool ParseLoadedImage(FatContext& context, std::string& error) {
  const ByteBuffer& image = context.image;
  if (image.size() < kSectorBytes) return Fail(error, kImageTooSmall);
  const std::uint8_t* partition = FindPartition(image);
  if (partition == nullptr) return Fail(error, kNoSupportedPartition);
  context.partitionStartLba = LoadU32(partition + partition_entry::kStartLba);
  const std::uint64_t start = std::uint64_t{context.partitionStartLba} * kSectorBytes;
  if (start > image.size() - kSectorBytes) return Fail(error, kBootSectorOutOfRange);
  ReadBootSector(&image[start], context);
  if (context.bytesPerSector != kSectorBytes || context.sectorsPerCluster == 0 ||
      context.fatCount == 0 || context.sectorsPerFat == 0) {
    return Fail(error, kUnsupportedVolume);
  }
  DeriveSectors(context);
  return true;
}

bool ParseFatContext(const fs::path& path, FatContext& context, std::string& error) {
  return LoadImageBytes(path, context.image, error) && ParseLoadedImage(context, error);
}

}  // namespace quorbix::virtdisk::internal
