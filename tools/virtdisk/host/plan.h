#ifndef QUORBIX_VIRTDISK_TOOL_PLAN_H_
#define QUORBIX_VIRTDISK_TOOL_PLAN_H_

#include <cstdint>
#include <optional>
#include <vector>

namespace quorbix::virtdisk::tool {

// Below this count other systems take a volume for FAT12.
inline constexpr std::uint32_t kFewestFat16Clusters = 4085;
inline constexpr std::uint32_t kMostClusters = 65524;
inline constexpr std::uint32_t kLargestClusterBytes = 65536;
// The root has 512 slots, one of which is the label's.
inline constexpr std::uint32_t kRootEntries = 511;
// A size that every build refuses as too large, before anything is allocated.
inline constexpr std::uint64_t kRefusedSize = std::uint64_t{1} << 40U;

// The volume that a build lays out for one size.
struct Geometry {
  std::uint32_t sectorsPerCluster = 0;
  std::uint32_t sectorsPerFat = 0;
  std::uint32_t dataStartSector = 0;  // from the start of the image
  std::uint32_t clusters = 0;
};

// Nothing when a build refuses the size.
std::optional<Geometry> GeometryFor(std::uint64_t sizeBytes);

std::uint32_t ClusterBytes(const Geometry& geometry);

// Whether the FAT has no word for the last clusters. Such clusters are never used, and other FAT
// tools refuse the whole volume.
bool FatIsTooShort(const Geometry& geometry);

// The clusters that can hold data: those with a word in the FAT.
std::uint32_t UsableClusters(const Geometry& geometry);

// What a build copies from a folder, as far as it takes room.
struct FolderContent {
  std::vector<std::uint32_t> directoryEntries{};  // per subfolder: the entries placed in it
  std::vector<std::uint64_t> fileBytes{};         // per file that is not empty
  // A folder or a file with content meets the root when its slots are taken. (An empty file that
  // does so is dropped by the build, without failing it.)
  bool rootOverflows = false;
  // The survey ended early, because what it had met by then fits into no image.
  bool endless = false;
};

std::uint64_t ClustersNeeded(const FolderContent& content, std::uint32_t clusterBytes);

// Whether every folder and file finds its clusters. The root's slots are not asked: no size
// changes them.
bool Fits(const FolderContent& content, const Geometry& geometry);

// The smallest whole number of MiB, from 3 up and above `above` bytes, whose volume the content
// fits into and other FAT tools accept; in bytes. Nothing when there is none.
std::optional<std::uint64_t> SmallestSize(const FolderContent& content, std::uint64_t above = 0);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_PLAN_H_
