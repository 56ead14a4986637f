#ifndef QUORBIX_VIRTDISK_TOOL_HOST_FILE_H_
#define QUORBIX_VIRTDISK_TOOL_HOST_FILE_H_

#include <cstdint>
#include <filesystem>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "host/piecewise.h"

namespace quorbix::virtdisk::tool {

// A reason for failing to read or write.
inline constexpr char kNotRegular[] = "it is not a regular file";
inline constexpr char kChangedMeanwhile[] = "it has changed meanwhile, and was left as it is";

// The system's words for an error number.
std::string SystemText(int error);

// "cannot write PATH: REASON" goes into `err`. Returns false, so that a failing branch is one line.
bool FailToWriteFile(std::string& err, const std::filesystem::path& path,
                     const std::string& reason);

// Tells how many bytes a regular file of the host has that may be read. False: `err` says why not.
bool HostFileBytes(const std::filesystem::path& path, std::uint64_t& bytes, std::string& err);

// Reads a regular file of the host to its end, whatever its size says, but `most` bytes at most. On
// failure, and when it changes meanwhile, returns false, says why in `err` and leaves `bytes`
// empty.
bool ReadHostFile(const std::filesystem::path& path, std::vector<std::uint8_t>& bytes,
                  std::string& err, const MovedBytes& moved = {},
                  std::uint64_t most = std::numeric_limits<std::uint64_t>::max());

// Puts `bytes` in place of the file `path` through a temporary file in the same folder, which is
// written out to the disk and then renamed, so that a crash leaves the old file or the new one.
//
// A file that is replaced keeps its mode and, where the process may give it away, its owner; hard
// links to it keep the old content. A symbolic link at `path` is replaced itself. Whatever else is
// no regular file is refused. On failure returns false, says why in `err`, and nothing is left
// behind.
bool WriteHostFile(const std::filesystem::path& path, std::span<const std::uint8_t> bytes,
                   std::string& err);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_HOST_FILE_H_
