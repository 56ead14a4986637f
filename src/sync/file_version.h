#ifndef QUORBIX_VIRTDISK_SYNC_FILE_VERSION_H_
#define QUORBIX_VIRTDISK_SYNC_FILE_VERSION_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace quorbix::virtdisk::internal {

// The comparable state of one file, in the image or on the host. Two versions are the same when
// their content hashes are; the other fields take no part in that.
struct FileVersion {
  std::uint64_t contentHash = 0;
  // In the image: the entry's packed write date and time. On the host: the file clock's raw count,
  // 0 when negative. Different units, never converted into each other.
  std::uint64_t modifiedStamp = 0;
  std::uint32_t size = 0;          // bytes; a host file's is capped at 0xFFFFFFFF
  std::uint16_t firstCluster = 0;  // 0 on the host
};

// By the keys that KeyFromRelPath makes.
using VersionMap = std::unordered_map<std::string, FileVersion>;
using PathMap = std::unordered_map<std::string, std::string>;  // relative paths

// Returns the key under which a file is known on both sides: the elements of its relative path,
// joined by "/", with ASCII letters in lower case. Nothing else is normalised. The path is a text,
// since the path class takes longer to be made than a small file to be read.
std::string KeyFromRelPath(std::string_view relPath);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_SYNC_FILE_VERSION_H_
