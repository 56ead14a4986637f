#ifndef QUORBIX_VIRTDISK_BUILDER_FILE_READING_H_
#define QUORBIX_VIRTDISK_BUILDER_FILE_READING_H_

#include <cstdint>
#include <filesystem>
#include <limits>

#include "common/byte_buffer.h"

namespace quorbix::virtdisk::internal {

enum : int { kReadWhole = 0, kUnreadable = 1 };

// Replaces `content` by the whole content of a host file and returns kReadWhole; returns
// kUnreadable when the file cannot be opened, is no regular file by now, or an error ends the
// reading before the file's end. The size that the file's metadata give is not relied on.
//
// No more than `mostBytes` are read, and one byte beyond them when the file has it: whoever has no
// room for more needs to know no more.
[[nodiscard]] int ReadHostFile(const std::filesystem::path& hostFile, ByteBuffer& content,
                               std::uint64_t mostBytes = std::numeric_limits<std::uint32_t>::max());

// The same for a regular file that is open at its beginning, and whose metadata give `expected`
// bytes.
[[nodiscard]] int ReadOpenedFile(int file, std::uint64_t expected, ByteBuffer& content,
                                 std::uint64_t mostBytes);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BUILDER_FILE_READING_H_
