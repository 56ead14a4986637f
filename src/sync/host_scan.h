#ifndef QUORBIX_VIRTDISK_SYNC_HOST_SCAN_H_
#define QUORBIX_VIRTDISK_SYNC_HOST_SCAN_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "sync/file_version.h"

namespace quorbix::virtdisk::internal {

struct HostFile {
  std::string relPath;  // to the folder scanned, in its own letter case
  std::string key;
  FileVersion version;
};

struct HostSnapshot {
  std::vector<HostFile> files;  // in the order of the listing
  // A hash over all files: equal for equal content listed in equal order.
  std::uint64_t signature = 0;
};

// By key. Of two names that differ in ASCII case only, the later in the listing stays. Most scans
// find that nothing has changed, and nobody needs the maps then, which take as long as the reading
// of small files.
VersionMap VersionsOf(const HostSnapshot& snapshot);
PathMap PathsOf(const HostSnapshot& snapshot);

// Takes a snapshot of the regular files below `root`, links to regular files included and files
// whose own name begins with "." left out, in place of what `snapshot` held. Files that cannot be
// read are left out. A missing `root` is created.
//
// Failure is a non-empty `error`, which is not cleared before. Throws
// std::filesystem::filesystem_error when the listing fails half way (a folder that cannot be
// opened); the snapshot then holds what was gathered so far.
void ScanHostFiles(const std::filesystem::path& root, HostSnapshot& snapshot, std::string& error);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_SYNC_HOST_SCAN_H_
