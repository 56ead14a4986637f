#include "guard/long_names.h"

#include <cstddef>
#include <string>

#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

// A slot of a long name: the number of its part, the first of which lies next to the entry, and a
// checksum of the entry's short name, which tells it from one whose entry is gone.
constexpr std::size_t kNumber = 0;
constexpr std::size_t kNameChecksum = 13;
constexpr std::uint8_t kNumberBits = 0x3F;
constexpr std::uint8_t kAttributeBits = 0x3F;

std::uint8_t ChecksumOf(const std::uint8_t* shortName) {
  unsigned sum = 0;
  for (std::size_t i = 0; i < dir_entry::kNameSize; ++i) {
    sum = (((sum & 1) << 7) + (sum >> 1) + shortName[i]) & 0xFF;
  }
  return static_cast<std::uint8_t>(sum);
}

}  // namespace

bool LongNames::Has(const EntryRecord& record) {
  std::string err;
  const auto before = SlotBefore(record);
  if (!before) return false;
  const std::uint8_t* slot = source.Read(record.dirEntryOffset, dir_entry::kSize, buffer, err);
  if (slot == nullptr) return false;
  const std::uint8_t checksum = ChecksumOf(slot);
  slot = source.Read(*before, dir_entry::kSize, buffer, err);
  return slot != nullptr && slot[kNumber] != dir_entry::kDeleted &&
         (slot[kNumber] & kNumberBits) == 1 &&
         (slot[dir_entry::kAttributes] & kAttributeBits) == dir_entry::kAttrLongName &&
         slot[kNameChecksum] == checksum;
}

std::optional<std::uint64_t> LongNames::SlotBefore(const EntryRecord& record) {
  const std::uint64_t offset = record.dirEntryOffset;
  if (record.parent == VolumeIndex::kNoRecord) {
    const Fat16FsInfo& info = index.Info();
    const std::uint64_t root = std::uint64_t{info.rootDirStartSector} * info.bytesPerSector;
    return offset > root ? std::optional(offset - dir_entry::kSize) : std::nullopt;
  }
  const ChainTable& chains = index.Chains();
  const std::uint64_t inData = offset - chains.ClusterOffset(fat::kFirstCluster);
  if (inData % chains.ClusterBytes() != 0) return offset - dir_entry::kSize;
  const std::uint64_t cluster = fat::kFirstCluster + inData / chains.ClusterBytes();
  return EndOfClusterBefore(static_cast<std::uint16_t>(cluster), record.parent);
}

// The directory's chain was walked to make the record: it has an end.
std::optional<std::uint64_t> LongNames::EndOfClusterBefore(std::uint16_t cluster,
                                                           std::uint32_t directory) {
  const ChainTable& chains = index.Chains();
  const std::uint16_t first = index.Records()[directory].firstCluster;
  if (cluster == first) return std::nullopt;
  std::uint16_t& at = reached.emplace(directory, first).first->second;
  while (true) {
    const std::uint16_t next = chains.Next(at);
    if (next == ChainTable::kNoNextCluster) return std::nullopt;
    if (next == cluster) return chains.ClusterOffset(at) + chains.ClusterBytes() - dir_entry::kSize;
    at = next;
  }
}

}  // namespace quorbix::virtdisk::internal::guard
