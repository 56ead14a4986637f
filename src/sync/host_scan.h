#ifndef QUORBIX_VIRTDISK_SYNC_HOST_SCAN_H_
#define QUORBIX_VIRTDISK_SYNC_HOST_SCAN_H_

#include <cstdint>
#include <filesystem>
#include <string>

#include "sync/file_version.h"

namespace quorbix::virtdisk::internal {

// Takes a snapshot of the regular files below `root`, links to regular files included and files
// whose own name begins with "." left out. A missing `root` is created.
//
// `versions` and `hostPaths` are replaced; a host path is relative to `root` and keeps its letter
// case. Of two names that differ in ASCII case only, the later in the listing stays. `signature`
// is a hash over all files in the order of the listing: equal for equal content listed in equal
// order. Files that cannot be read are left out.
//
// Failure is a non-empty `error`, which is not cleared before. Throws
// std::filesystem::filesystem_error when the listing fails half way (a folder that cannot be
// opened); the maps then hold what was gathered so far.
void ScanHostFiles(const std::filesystem::path& root, VersionMap& versions, PathMap& hostPaths,
                   std::uint64_t& signature, std::string& error);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_SYNC_HOST_SCAN_H_
