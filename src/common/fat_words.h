#ifndef QUORBIX_VIRTDISK_COMMON_FAT_WORDS_H_
#define QUORBIX_VIRTDISK_COMMON_FAT_WORDS_H_

#include <cstdint>

#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::internal::fat {

constexpr bool IsFree(std::uint16_t word) { return word == kFree; }
constexpr bool IsBad(std::uint16_t word) { return word == kBadCluster; }
constexpr bool IsEndOfChain(std::uint16_t word) { return word >= kFirstEndOfChain; }

// Whether a first cluster or a FAT word leads to a cluster. Reserved values and the bad-cluster
// mark 0xFFF7 do: readers follow them as they stand.
constexpr bool LeadsToCluster(std::uint16_t word) {
  return word >= kFirstCluster && !IsEndOfChain(word);
}

}  // namespace quorbix::virtdisk::internal::fat

#endif  // QUORBIX_VIRTDISK_COMMON_FAT_WORDS_H_
