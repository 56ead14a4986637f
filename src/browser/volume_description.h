#ifndef QUORBIX_VIRTDISK_BROWSER_VOLUME_DESCRIPTION_H_
#define QUORBIX_VIRTDISK_BROWSER_VOLUME_DESCRIPTION_H_

#include <string>

#include "browser/byte_source.h"
#include "quorbix/virtdisk/fat16_fs_image.h"

namespace quorbix::virtdisk::internal {

// Finds the FAT16 volume in `image`, behind a partition table or at byte 0, and describes it in
// `info`, which comes empty.
//
// On failure returns false and says why in `err`; `info` holds what was read before.
[[nodiscard]] bool DescribeVolume(ByteSource& image, Fat16FsInfo& info, std::string& err);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BROWSER_VOLUME_DESCRIPTION_H_
