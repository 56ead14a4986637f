#ifndef QUORBIX_VIRTDISK_COMMON_PARTITION_TYPES_H_
#define QUORBIX_VIRTDISK_COMMON_PARTITION_TYPES_H_

#include <cstdint>

#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::internal::partition_entry {

// The types whose volume the readers look into. FAT12's is among them, deliberately, although every
// FAT is read as one of 16-bit words.
constexpr bool IsSupportedType(std::uint8_t type) {
  return type == kTypeFat12 || type == kTypeFat16Small || type == kTypeFat16 ||
         type == kTypeFat16Lba;
}

}  // namespace quorbix::virtdisk::internal::partition_entry

#endif  // QUORBIX_VIRTDISK_COMMON_PARTITION_TYPES_H_
