#ifndef QUORBIX_VIRTDISK_CHECK_SYSTEM_AREA_H_
#define QUORBIX_VIRTDISK_CHECK_SYSTEM_AREA_H_

#include <cstdint>

#include "check/fat_table.h"
#include "check/finding_list.h"
#include "quorbix/virtdisk/fat16_fs_image.h"

namespace quorbix::virtdisk::internal {

// What lies in front of the directories. `sector` is the image's first one, of kSectorBytes.
void CheckPartitions(const std::uint8_t* sector, std::uint64_t imageBytes, const Fat16FsInfo& info,
                     FindingList& findings);

// `boot` is the volume's first sector. False: there are no clusters, or they are not those of
// FAT16.
bool CheckBootSector(const std::uint8_t* boot, std::uint64_t imageBytes, const Fat16FsInfo& info,
                     FindingList& findings);

// False: the image could not be read, and `err` says why.
[[nodiscard]] bool CheckFats(ByteSource& image, const FatTable& fat, std::uint8_t mediaByte,
                             unsigned copies, FindingList& findings, std::string& err);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_CHECK_SYSTEM_AREA_H_
