#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_BLANK_DISK_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_BLANK_DISK_H_

#include <array>
#include <cstdint>
#include <string>

#include "support/image_crafter.h"

namespace quorbix::virtdisk::test {

// The disk that a build of an empty folder must give, as told by hand. As it stands: 65,536 bytes.
struct BlankDiskFields {
  std::uint8_t sectorsPerCluster = 1;
  std::uint16_t sectorsPerFat = 1;
  std::uint32_t clusters = 92;
  std::uint32_t trailingSectors = 0;
  std::uint32_t partitionSectors = 127;
  std::array<std::uint8_t, 3> lastSectorChs = {0x02, 0x02, 0x00};  // LBA 127 = 2 * 63 + 1
  std::string label = "           ";
  std::uint32_t volumeId = 0;
};

// Master boot record, boot sector, both FATs, the label entry as the root's first slot, and zeros.
// The next slot goes after the label entry.
ImageCrafter BlankDisk(const BlankDiskFields& fields);

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_BLANK_DISK_H_
