#ifndef QUORBIX_VIRTDISK_GUARD_LONG_NAMES_H_
#define QUORBIX_VIRTDISK_GUARD_LONG_NAMES_H_

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "browser/byte_source.h"
#include "browser/entry_record.h"
#include "browser/volume_index.h"

namespace quorbix::virtdisk::internal::guard {

// Tells which entries of a volume have long names, which lie in the slots before their own and are
// in no listing here.
class LongNames {
 public:
  // Both have to outlive this, and the index has been parsed.
  LongNames(const VolumeIndex& volumeIndex, ByteSource& imageSource)
      : index(volumeIndex), source(imageSource) {}

  // To be asked about the index's records in their order: then all questions together take no more
  // steps than the directories have clusters and slots. One whose slots cannot be read has none.
  bool Has(const EntryRecord& record);

 private:
  std::optional<std::uint64_t> SlotBefore(const EntryRecord& record);
  std::optional<std::uint64_t> EndOfClusterBefore(std::uint16_t cluster, std::uint32_t directory);

  const VolumeIndex& index;
  ByteSource& source;
  // By the directory's record: a cluster of it, before that of the record asked about last.
  std::unordered_map<std::uint32_t, std::uint16_t> reached;
  std::vector<std::uint8_t> buffer;
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_LONG_NAMES_H_
