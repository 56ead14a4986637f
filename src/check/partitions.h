#ifndef QUORBIX_VIRTDISK_CHECK_PARTITIONS_H_
#define QUORBIX_VIRTDISK_CHECK_PARTITIONS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "browser/byte_source.h"
#include "quorbix/virtdisk/fat16_fs_image.h"

namespace quorbix::virtdisk::internal {

// An entry of a partition table that is in use.
struct Partition {
  std::uint64_t number = 0;  // from 1
  std::uint8_t type = 0;
  std::uint64_t start = 0;  // sector
  std::uint64_t end = 0;    // sector
};

// Of the table in an image's first sector.
std::vector<Partition> UsedPartitions(const std::uint8_t* sector);

// The place in `partitions` of the one whose volume `info` describes; their number for none.
std::size_t PlaceOf(const Fat16FsInfo& info, const std::vector<Partition>& partitions);

// Fills `others` with the partitions that are not looked into: all but the one whose volume `info`
// describes. Where that is none, the first sector may be a boot sector, too, which has other things
// in the place of a table: one that no table can have is taken for none.
//
// False: the image could not be read, and `err` says why.
[[nodiscard]] bool FindOtherPartitions(ByteSource& image, const Fat16FsInfo& info,
                                       std::vector<Partition>& others, std::string& err);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_CHECK_PARTITIONS_H_
