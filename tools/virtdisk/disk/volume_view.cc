#include "disk/volume_view.h"

#include <algorithm>

#include "common/byte_order.h"
#include "common/fat_words.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace boot_sector = internal::boot_sector;
namespace fat = internal::fat;
using internal::kSectorBytes;

constexpr std::uint64_t kWordsPerFatSector = kSectorBytes / fat::kWordBytes;
constexpr std::uint64_t kMostFatClusters = fat::kBadCluster - fat::kFirstCluster;
constexpr std::size_t kBytesToTheVolumeId = boot_sector::kVolumeId + 4;

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
                       std::uint64_t imageBytes) {
  internal::MemorySource source(bytes);
  std::string neverFails;
  Load(info, source, imageBytes, neverFails);
}

std::optional<VolumeView> VolumeView::Read(const Fat16FsInfo& info, internal::ByteSource& source,
                                           std::string& err) {
  VolumeView view;
  if (!view.Load(info, source, source.Size(), err)) return std::nullopt;
  return view;
}

bool VolumeView::Load(const Fat16FsInfo& info, internal::ByteSource& source,
                      std::uint64_t imageBytes, std::string& err) {
  if (!LoadVolumeId(info.volumeOffset, source, err)) return false;
  const std::uint64_t fatStart = std::uint64_t{info.partitionStartLba} + info.reservedSectors;
  const std::uint64_t fatOffset = fatStart * kSectorBytes;
  rootStart = fatStart + std::uint64_t{info.fatCount} * info.sectorsPerFat;
  dataStart = rootStart + info.rootDirSectors;
  clusterBytes = static_cast<std::uint32_t>(info.sectorsPerCluster * kSectorBytes);
  if (info.sectorsPerCluster == 0 || fatOffset >= source.Size()) return true;
  const std::uint64_t clusters =
      DataSectors(info, dataStart, imageBytes / kSectorBytes) / info.sectorsPerCluster;
  const std::uint64_t fatWords = std::min<std::uint64_t>(info.sectorsPerFat * kWordsPerFatSector,
                                                         (source.Size() - fatOffset) / 2);
  const std::uint64_t inFat = fatWords < fat::kFirstCluster ? 0 : fatWords - fat::kFirstCluster;
  clusterCount = static_cast<std::uint32_t>(std::min({clusters, inFat, kMostFatClusters}));
  if (clusterCount == 0) return true;
  const std::size_t wordsBytes = (std::size_t{clusterCount} + fat::kFirstCluster) * 2;
  std::vector<std::uint8_t> buffer;
  const std::uint8_t* fat = source.Read(fatOffset, wordsBytes, buffer, err);
  if (fat == nullptr) return false;
  words.assign(fat, fat + wordsBytes);
  return true;
}

bool VolumeView::LoadVolumeId(std::uint64_t bootSector, internal::ByteSource& source,
                              std::string& err) {
  const bool isThere =
      bootSector < source.Size() && source.Size() - bootSector >= kBytesToTheVolumeId;
  if (!isThere) return true;
  std::vector<std::uint8_t> buffer;
  const std::uint8_t* boot = source.Read(bootSector, kBytesToTheVolumeId, buffer, err);
  if (boot == nullptr) return false;
  if (boot[boot_sector::kExtendedSignature] == boot_sector::kExtendedSignatureValue) {
    volumeId = internal::LoadU32(boot + boot_sector::kVolumeId);
  }
  return true;
}

bool VolumeView::HasCluster(std::uint32_t cluster) const {
  return cluster >= fat::kFirstCluster && cluster - fat::kFirstCluster < clusterCount;
}

std::uint16_t VolumeView::FatWord(std::uint32_t cluster) const {
  if (!HasCluster(cluster)) return 0;
  return internal::LoadU16(&words[std::size_t{cluster} * 2]);
}

ClusterCounts VolumeView::CountClusters() const {
  ClusterCounts counts;
  for (std::uint32_t i = 0; i < clusterCount; ++i) {
    const std::uint16_t word = FatWord(fat::kFirstCluster + i);
    ++(fat::IsFree(word) ? counts.free : fat::IsBad(word) ? counts.bad : counts.used);
  }
  return counts;
}

}  // namespace quorbix::virtdisk::tool
