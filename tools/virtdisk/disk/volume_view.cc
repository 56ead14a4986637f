#include "disk/volume_view.h"

#include <algorithm>

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::uint64_t kBytesPerSector = 512;
constexpr std::uint64_t kWordsPerFatSector = 256;
constexpr std::uint64_t kMostFatClusters =
    0xFFF7 - kFirstCluster;                       // numbers end below the bad mark
constexpr std::uint64_t kExtendedSignature = 38;  // u8, from the boot sector's start
constexpr std::uint64_t kVolumeId = 39;           // u32
constexpr std::uint32_t kHasVolumeId = 0x29;

// The sectors between the first cluster and the end of the volume. A volume that does not tell its
// length goes to the end of the image.
std::uint64_t DataSectors(const Fat16FsInfo& info, std::uint64_t dataStart,
                          std::uint64_t imageSectors) {
  if (dataStart >= imageSectors) return 0;
  const std::uint64_t inImage = imageSectors - dataStart;
  if (info.totalSectors == 0) return inImage;
  const std::uint64_t end = std::uint64_t{info.partitionStartLba} + info.totalSectors;
  return end <= dataStart ? 0 : std::min(inImage, end - dataStart);
}

}  // namespace

VolumeView::VolumeView(const Fat16FsInfo& info, std::span<const std::uint8_t> bytes)
    : VolumeView(info, bytes, bytes.size()) {}

VolumeView::VolumeView(const Fat16FsInfo& info, std::span<const std::uint8_t> bytes,
                       std::uint64_t imageBytes)
    : image(bytes), bootSector(info.volumeOffset) {
  const std::uint64_t fatStart = std::uint64_t{info.partitionStartLba} + info.reservedSectors;
  fatOffset = fatStart * kBytesPerSector;
  rootStart = fatStart + std::uint64_t{info.fatCount} * info.sectorsPerFat;
  dataStart = rootStart + info.rootDirSectors;
  clusterBytes = static_cast<std::uint32_t>(info.sectorsPerCluster * kBytesPerSector);
  if (info.sectorsPerCluster == 0 || fatOffset >= bytes.size()) return;
  const std::uint64_t clusters =
      DataSectors(info, dataStart, imageBytes / kBytesPerSector) / info.sectorsPerCluster;
  const std::uint64_t fatWords = std::min<std::uint64_t>(info.sectorsPerFat * kWordsPerFatSector,
                                                         (bytes.size() - fatOffset) / 2);
  const std::uint64_t inFat = fatWords < kFirstCluster ? 0 : fatWords - kFirstCluster;
  clusterCount = static_cast<std::uint32_t>(std::min({clusters, inFat, kMostFatClusters}));
}

bool VolumeView::HasCluster(std::uint32_t cluster) const {
  return cluster >= kFirstCluster && cluster - kFirstCluster < clusterCount;
}

std::uint16_t VolumeView::FatWord(std::uint32_t cluster) const {
  if (!HasCluster(cluster)) return 0;
  const std::optional<std::uint32_t> word = LoadNumber(fatOffset + std::uint64_t{cluster} * 2, 2);
  return static_cast<std::uint16_t>(word.value_or(0));
}

ClusterCounts VolumeView::CountClusters() const {
  ClusterCounts counts;
  for (std::uint32_t i = 0; i < clusterCount; ++i) {
    const std::uint16_t word = FatWord(kFirstCluster + i);
    ++(word == 0 ? counts.free : IsBadMark(word) ? counts.bad : counts.used);
  }
  return counts;
}

std::optional<std::uint32_t> VolumeView::VolumeId() const {
  if (LoadNumber(bootSector + kExtendedSignature, 1) != kHasVolumeId) return std::nullopt;
  return LoadNumber(bootSector + kVolumeId, 4);
}

std::optional<std::uint32_t> VolumeView::LoadNumber(std::uint64_t offset, std::size_t width) const {
  if (offset > image.size() || width > image.size() - offset) return std::nullopt;
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < width; ++i) {
    number |= std::uint32_t{image[offset + i]} << (8 * i);
  }
  return number;
}

}  // namespace quorbix::virtdisk::tool
