#ifndef QUORBIX_VIRTDISK_SYNC_IMAGE_READER_H_
#define QUORBIX_VIRTDISK_SYNC_IMAGE_READER_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "sync/file_version.h"

namespace quorbix::virtdisk::internal {

// A parsed image. The four fields that name a first sector count sectors from the start of the
// image file, not of the partition.
struct FatContext {
  std::vector<std::uint8_t> image;  // the whole file
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

// A regular file of the image. `relPath` has one element per directory level, parted by "/". It is
// a text, since the path class takes many times the memory for each element.
struct DiskFile {
  std::string relPath;
  FileVersion version;
};

// Reads a whole image file. On failure returns false and says why in `error`.
[[nodiscard]] bool LoadImageBytes(const std::filesystem::path& path,
                                  std::vector<std::uint8_t>& bytes, std::string& error);

// Finds the first supported partition of `context.image` and fills the other fields. On failure
// returns false and says why in `error`; the context is then of no use.
[[nodiscard]] bool ParseLoadedImage(FatContext& context, std::string& error);

// LoadImageBytes and ParseLoadedImage in one.
[[nodiscard]] bool ParseFatContext(const std::filesystem::path& path, FatContext& context,
                                   std::string& error);

// Reads the chain that begins in cluster `start`, up to `limit` bytes; 0 is no limit. A `start`
// that leads to no cluster is an empty chain, and a chain that ends before `limit` is no failure.
// False: the chain loops, or leaves the image, before `limit` is reached.
[[nodiscard]] bool ReadClusterChain(const FatContext& context, std::uint16_t start,
                                    std::vector<std::uint8_t>& bytes, std::uint32_t limit);

// Appends every file of the volume to `files`, in directory order, depth first, with `contentHash`
// 0. Directories that cannot be read contribute nothing, nor do those whose path is longer than the
// host could name.
//
// False: the volume shows more than its size has room for, as no sound one does (directories that
// share clusters, mostly). `files` is then cut short, and nothing must be concluded from what it
// lacks.
[[nodiscard]] bool WalkDirectory(const FatContext& context, std::vector<DiskFile>& files);

// Lists and hashes every file of the volume. A file whose chain cannot be read stays in `files`
// with `contentHash` 0 and has no entry in `versions`; of several files with one key the last is
// the one in `versions`.
//
// False as for WalkDirectory, or when the files share so many clusters that reading them all would
// take many times the image's size.
[[nodiscard]] bool BuildImageFileMap(const FatContext& context, std::vector<DiskFile>& files,
                                     VersionMap& versions);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_SYNC_IMAGE_READER_H_
