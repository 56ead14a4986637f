#include "host/plan.h"

#include <algorithm>
#include <map>

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::uint64_t kMebi = 1048576;
constexpr std::uint32_t kSectorBytes = 512;
constexpr std::uint64_t kSmallestImage = 65536;
constexpr std::uint32_t kSlotBytes = 32;
constexpr std::uint32_t kFatWordsPerSector = 256;
constexpr std::uint32_t kBootAndRootSectors = 33;
constexpr std::uint64_t kMostFatSectorsPreferred = 64;
constexpr std::uint64_t kLargestSectorsPerCluster = 128;
constexpr std::uint64_t kMostPartitionSectors = 0xFFFFFFFF;
constexpr std::uint64_t kLargestFile = 0xFFFFFFFF;
constexpr std::uint64_t kSmallestAutoMebi = 3;
constexpr std::uint64_t kLargestAutoMebi = 4095;

std::uint64_t FirstSectorsPerCluster(std::uint64_t partitionSectors) {
  if (partitionSectors <= 16384) return 1;
  const std::uint64_t bytes = partitionSectors * kSectorBytes;
  std::uint64_t sectors = 2;
  for (std::uint64_t bound = 32 * kMebi; bytes > bound && sectors < kLargestSectorsPerCluster;
       bound *= 2) {
    sectors *= 2;
  }
  return sectors;
}

// The two reserved words are not counted and the steps are limited, so that for some sizes the
// result is too short: the library lays its volumes out that way.
std::uint64_t FatSectors(std::uint64_t partitionSectors, std::uint64_t sectorsPerCluster) {
  std::uint64_t sectors = 1;
  for (int step = 0; step < 16; ++step) {
    const std::uint64_t overhead = 2 * sectors + kBootAndRootSectors;
    if (overhead >= partitionSectors) break;
    const std::uint64_t clusters = (partitionSectors - overhead) / sectorsPerCluster;
    const std::uint64_t next = (clusters + kFatWordsPerSector - 1) / kFatWordsPerSector;
    if (next == sectors) break;
    sectors = next;
  }
  return sectors;
}

std::uint64_t DivideUp(std::uint64_t amount, std::uint64_t unit) {
  return amount / unit + (amount % unit != 0 ? 1 : 0);
}

}  // namespace

std::optional<Geometry> GeometryFor(std::uint64_t sizeBytes) {
  if (sizeBytes < kSmallestImage) return std::nullopt;
  const std::uint64_t totalSectors = sizeBytes / kSectorBytes;
  const std::uint64_t partitionSectors = totalSectors - 1;
  if (partitionSectors > kMostPartitionSectors) return std::nullopt;
  std::uint64_t sectorsPerCluster = FirstSectorsPerCluster(partitionSectors);
  while (sectorsPerCluster < kLargestSectorsPerCluster &&
         FatSectors(partitionSectors, sectorsPerCluster) > kMostFatSectorsPreferred) {
    sectorsPerCluster *= 2;
  }
  const std::uint64_t fatSectors =
      std::max<std::uint64_t>(FatSectors(partitionSectors, sectorsPerCluster), 1);
  const std::uint64_t dataStart = 1 + 2 * fatSectors + kBootAndRootSectors;
  if (dataStart >= totalSectors) return std::nullopt;
  const std::uint64_t clusters = (totalSectors - dataStart) / sectorsPerCluster;
  if (clusters > kMostClusters) return std::nullopt;
  return Geometry{static_cast<std::uint32_t>(sectorsPerCluster),
                  static_cast<std::uint32_t>(fatSectors), static_cast<std::uint32_t>(dataStart),
                  static_cast<std::uint32_t>(clusters)};
}

std::uint32_t ClusterBytes(const Geometry& geometry) {
  return geometry.sectorsPerCluster * kSectorBytes;
}

bool FatIsTooShort(const Geometry& geometry) {
  return UsableClusters(geometry) < geometry.clusters;
}

std::uint32_t UsableClusters(const Geometry& geometry) {
  return std::min(geometry.clusters, geometry.sectorsPerFat * kFatWordsPerSector - 2);
}

std::uint64_t ClustersNeeded(const FolderContent& content, std::uint32_t clusterBytes) {
  std::uint64_t clusters = 0;
  for (const std::uint32_t entries : content.directoryEntries) {
    // "." and ".." come first.
    clusters += DivideUp(std::uint64_t{entries} + 2, clusterBytes / kSlotBytes);
  }
  for (const std::uint64_t bytes : content.fileBytes) {
    clusters += DivideUp(std::min(bytes, kLargestFile), clusterBytes);
  }
  return clusters;
}

bool Fits(const FolderContent& content, const Geometry& geometry) {
  if (content.endless) return false;
  return ClustersNeeded(content, ClusterBytes(geometry)) <= UsableClusters(geometry);
}

std::optional<std::uint64_t> SmallestSize(const FolderContent& content, std::uint64_t above) {
  if (content.endless) return std::nullopt;
  std::map<std::uint32_t, std::uint64_t> needed;  // by cluster size: eight at most
  for (std::uint64_t mebi = std::max(kSmallestAutoMebi, above / kMebi + 1);
       mebi <= kLargestAutoMebi; ++mebi) {
    const std::optional<Geometry> geometry = GeometryFor(mebi * kMebi);
    if (!geometry || FatIsTooShort(*geometry)) continue;
    const std::uint32_t clusterBytes = ClusterBytes(*geometry);
    const auto [known, added] = needed.try_emplace(clusterBytes, 0);
    if (added) known->second = ClustersNeeded(content, clusterBytes);
    if (known->second <= UsableClusters(*geometry)) return mebi * kMebi;
  }
  return std::nullopt;
}

}  // namespace quorbix::virtdisk::tool
