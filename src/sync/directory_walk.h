#ifndef QUORBIX_VIRTDISK_SYNC_DIRECTORY_WALK_H_
#define QUORBIX_VIRTDISK_SYNC_DIRECTORY_WALK_H_

#include <string>
#include <vector>

#include "sync/fat_context.h"
#include "sync/file_version.h"

namespace quorbix::virtdisk::internal {

// A regular file of the image. `relPath` has one element per directory level, parted by "/". It is
// a text, since the path class takes many times the memory for each element.
struct DiskFile {
  std::string relPath;
  FileVersion version;
};

// Appends every file of the volume to `files`, in directory order, depth first, with `contentHash`
// 0. Directories that cannot be read contribute nothing, nor do those whose path is longer than the
// host could name.
//
// False: the volume shows more than its size has room for, as no sound one does (directories that
// share clusters, mostly). `files` is then cut short, and nothing must be concluded from what it
// lacks.
[[nodiscard]] bool WalkDirectory(const FatContext& context, std::vector<DiskFile>& files);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_SYNC_DIRECTORY_WALK_H_
