#include "check/partitions.h"

#include <algorithm>
#include <cstddef>

#include "common/byte_order.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::internal {
namespace {

const std::uint8_t* EntryAt(const std::uint8_t* sector, std::size_t place) {
  return sector + mbr::kPartitionTable + place * partition_entry::kSize;
}

bool CanBeATable(const std::uint8_t* sector) {
  for (std::size_t i = 0; i < mbr::kPartitionCount; ++i) {
    const std::uint8_t* entry = EntryAt(sector, i);
    const std::uint8_t status = entry[partition_entry::kStatus];
    if (status != 0 && status != partition_entry::kActive) return false;
    if (entry[partition_entry::kType] == 0) continue;
    if (LoadU32(entry + partition_entry::kStartLba) == 0) return false;
    if (LoadU32(entry + partition_entry::kSectorCount) == 0) return false;
  }
  return HasSignature(sector);
}

}  // namespace

std::vector<Partition> UsedPartitions(const std::uint8_t* sector) {
  std::vector<Partition> partitions;
  for (std::size_t i = 0; i < mbr::kPartitionCount; ++i) {
    const std::uint8_t* entry = EntryAt(sector, i);
    if (entry[partition_entry::kType] == 0) continue;
    const std::uint64_t start = LoadU32(entry + partition_entry::kStartLba);
    const std::uint64_t count = LoadU32(entry + partition_entry::kSectorCount);
    partitions.push_back({i + 1, entry[partition_entry::kType], start, start + count});
  }
  return partitions;
}

std::size_t PlaceOf(const Fat16FsInfo& info, const std::vector<Partition>& partitions) {
  if (!info.partitioned) return partitions.size();
  // The first that fits is the one that is read.
  const auto chosen =
      std::find_if(partitions.begin(), partitions.end(), [&](const Partition& partition) {
        return partition.start == info.partitionStartLba && partition.type == info.partitionType;
      });
  return static_cast<std::size_t>(chosen - partitions.begin());
}

bool FindOtherPartitions(ByteSource& image, const Fat16FsInfo& info, std::vector<Partition>& others,
                         std::string& err) {
  others.clear();
  if (image.Size() < kSectorBytes) return true;
  std::vector<std::uint8_t> buffer;
  const std::uint8_t* sector = image.Read(0, kSectorBytes, buffer, err);
  if (sector == nullptr) return false;
  if (!info.partitioned && !CanBeATable(sector)) return true;
  others = UsedPartitions(sector);
  const std::size_t chosen = PlaceOf(info, others);
  if (chosen < others.size()) others.erase(others.begin() + static_cast<std::ptrdiff_t>(chosen));
  return true;
}

}  // namespace quorbix::virtdisk::internal
