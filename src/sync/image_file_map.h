#ifndef QUORBIX_VIRTDISK_SYNC_IMAGE_FILE_MAP_H_
#define QUORBIX_VIRTDISK_SYNC_IMAGE_FILE_MAP_H_

#include <vector>

#include "sync/directory_walk.h"
#include "sync/fat_context.h"
#include "sync/file_version.h"

namespace quorbix::virtdisk::internal {

// Lists and hashes every file of the volume. A file whose chain cannot be read stays in `files`
// with `contentHash` 0 and has no entry in `versions`; of several files with one key the last is
// the one in `versions`.
//
// False as for WalkDirectory, or when the files share so many clusters that reading or copying them
// all would take many times the image's size.
[[nodiscard]] bool BuildImageFileMap(const FatContext& context, std::vector<DiskFile>& files,
                                     VersionMap& versions);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_SYNC_IMAGE_FILE_MAP_H_
