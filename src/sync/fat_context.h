#ifndef QUORBIX_VIRTDISK_SYNC_FAT_CONTEXT_H_
#define QUORBIX_VIRTDISK_SYNC_FAT_CONTEXT_H_

#include <cstdint>
#include <filesystem>
#include <string>

#include "common/byte_buffer.h"

namespace quorbix::virtdisk::internal {

// A parsed image. The four fields that name a first sector count sectors from the start of the
// image file, not of the partition.
struct FatContext {
  ByteBuffer image;  // the whole file
  std::uint32_t partitionStartLba = 0;
  std::uint32_t bytesPerSector = 0;
  std::uint32_t sectorsPerCluster = 0;
  std::uint32_t reservedSectors = 0;
  std::uint32_t fatCount = 0;
  std::uint32_t rootEntryCount = 0;
  std::uint32_t sectorsPerFat = 0;
  std::uint32_t rootDirSectors = 0;
  std::uint32_t fatStartSector = 0;
  std::uint32_t rootDirStartSector = 0;
  std::uint32_t dataStartSector = 0;
};

// Reads a whole image file. On failure returns false and says why in `error`.
[[nodiscard]] bool LoadImageBytes(const std::filesystem::path& path, ByteBuffer& bytes,
                                  std::string& error);

// Finds the first supported partition of `context.image` and fills the other fields. On failure
// returns false and says why in `error`; the context is then of no use.
[[nodiscard]] bool ParseLoadedImage(FatContext& context, std::string& error);

// LoadImageBytes and ParseLoadedImage in one.
[[nodiscard]] bool ParseFatContext(const std::filesystem::path& path, FatContext& context,
                                   std::string& error);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_SYNC_FAT_CONTEXT_H_
