#include "check/fat_table.h"

#include <algorithm>
#include <cstddef>

#include "fat16/geometry.h"

namespace quorbix::virtdisk::internal {
namespace {

// How many of `wanted` bytes from `offset` on the image has.
std::uint64_t BytesThere(const ByteSource& image, std::uint64_t offset, std::uint64_t wanted) {
  return offset >= image.Size() ? 0 : std::min(wanted, image.Size() - offset);
}

std::uint64_t SectorOffset(std::uint64_t sector) { return sector * kSectorBytes; }

}  // namespace

bool FatTable::Load(ByteSource& image, std::uint64_t clusters, std::string& err) {
  const std::uint64_t ownWords =
      SectorOffset(info.sectorsPerFat) / fat::kWordBytes - fat::kFirstCluster;
  const std::uint64_t dataOffset = SectorOffset(info.dataStartSector);
  const std::uint64_t inImage =
      dataOffset >= image.Size() ? 0 : (image.Size() - dataOffset) / ClusterBytes();
  const std::uint64_t count = std::min({clusters, ownWords, inImage, kMostFat16Clusters});
  const std::uint64_t offset = SectorOffset(info.fatStartSector);
  const auto bytes = static_cast<std::size_t>(
      BytesThere(image, offset, (count + fat::kFirstCluster) * fat::kWordBytes));
  words.clear();
  end = fat::kFirstCluster;
  if (bytes == 0) return true;
  std::vector<std::uint8_t> buffer;
  const std::uint8_t* fatBytes = image.Read(offset, bytes, buffer, err);
  if (fatBytes == nullptr) return false;
  words.assign(fatBytes, fatBytes + bytes);
  end = std::max(static_cast<std::uint32_t>(bytes / fat::kWordBytes), fat::kFirstCluster);
  return true;
}

std::uint64_t FatTable::ClusterOffset(std::uint32_t cluster) const {
  return SectorOffset(info.dataStartSector) +
         (std::uint64_t{cluster} - fat::kFirstCluster) * ClusterBytes();
}

bool FatTable::Compare(ByteSource& image, unsigned copy, Difference& difference,
                       std::string& err) const {
  difference = {};
  const std::uint64_t offset =
      SectorOffset(info.fatStartSector + std::uint64_t{copy} * info.sectorsPerFat);
  const auto bytes = static_cast<std::size_t>(BytesThere(image, offset, words.size()));
  if (bytes < fat::kWordBytes) return true;
  std::vector<std::uint8_t> buffer;
  const std::uint8_t* other = image.Read(offset, bytes, buffer, err);
  if (other == nullptr) return false;
  for (std::size_t at = 0; at + 1 < bytes; at += fat::kWordBytes) {
    if (LoadU16(other + at) == LoadU16(words.data() + at)) continue;
    if (difference.words++ == 0) {
      difference.first = static_cast<std::uint32_t>(at / fat::kWordBytes);
    }
  }
  return true;
}

}  // namespace quorbix::virtdisk::internal
