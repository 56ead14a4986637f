#ifndef QUORBIX_VIRTDISK_FAT16_GEOMETRY_H_
#define QUORBIX_VIRTDISK_FAT16_GEOMETRY_H_

#include <cstdint>
#include <string>

namespace quorbix::virtdisk::internal {

// What every image written here has in common. Sectors count from the start of the image.
inline constexpr std::uint32_t kPartitionStart = 1;
inline constexpr std::uint32_t kReservedSectors = 1;
inline constexpr std::uint32_t kFatCount = 2;
inline constexpr std::uint32_t kFirstFatSector = kPartitionStart + kReservedSectors;
inline constexpr std::uint32_t kRootEntryCount = 512;
inline constexpr std::uint32_t kRootDirSectors = 32;
inline constexpr std::uint32_t kMostRootEntries = kRootEntryCount - 1;  // the label takes a slot

// Other systems go by the number of clusters alone: fewer are FAT12, more are FAT32.
inline constexpr std::uint64_t kFewestFat16Clusters = 4085;
inline constexpr std::uint64_t kMostFat16Clusters = 65524;

// Where everything lies in an image of a given size. Sectors count from the start of the image.
struct Geometry {
  std::uint32_t imageSectors = 0;
  std::uint32_t partitionSectors = 0;
  std::uint32_t sectorsPerCluster = 0;
  std::uint32_t sectorsPerFat = 0;
  std::uint32_t rootDirSector = 0;
  std::uint32_t dataStartSector = 0;
  std::uint32_t dataSectors = 0;
  std::uint32_t clusterCount = 0;
};

// What messages of too few bytes begin with, and that of too many.
inline constexpr char kSizeTooSmall[] = "Image too small";
inline constexpr char kSizeTooLarge[] = "Volume too large for FAT16 (max ~2 GB)";

// Computes the geometry of an image of `sizeBytes` bytes, whatever the number: nothing wraps and
// nothing is allocated. On failure returns false and sets `err` to one of
//   "Image too small (minimum 64 KB)"
//   "Image too small to hold MBR"
//   "Image too small to hold FAT16 metadata"
//   "Volume too large for FAT16 (max ~2 GB)"
[[nodiscard]] bool ComputeGeometry(std::uint64_t sizeBytes, Geometry& geometry, std::string& err);

// The part of ComputeGeometry that follows the test of the size in bytes.
[[nodiscard]] bool LayOutSectors(std::uint64_t imageSectors, Geometry& geometry, std::string& err);

// The highest cluster number that can be handed out. The size of a FAT leaves out its two reserved
// words, so that the words of the last few clusters can lie beyond it; those clusters cannot be
// used.
std::uint32_t LastUsableCluster(const Geometry& geometry);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_FAT16_GEOMETRY_H_
