#ifndef QUORBIX_VIRTDISK_TOOL_PIECEWISE_H_
#define QUORBIX_VIRTDISK_TOOL_PIECEWISE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

namespace quorbix::virtdisk::tool {

// Told how many bytes more were moved.
using MovedBytes = std::function<void(std::uint64_t bytes)>;

// Reads until `buffer` is full or the file ends. Returns how much was read, or -1: errno says why.
std::ptrdiff_t ReadInPieces(int file, std::span<std::uint8_t> buffer, const MovedBytes& moved = {});

// Writes `bytes` at the place where `file` stands. The system begins to write each piece out to the
// disk while the next ones follow, so that flushing the file at the end is short: a signal is not
// heard before that ends. False: errno says why.
[[nodiscard]] bool WriteInPieces(int file, std::span<const std::uint8_t> bytes,
                                 const MovedBytes& moved = {});

// Gives `file` room for `bytes` bytes at `offset` without changing any that it has, so that writing
// them needs no more of the disk, and hits no limit on the size of files: such a one counts below
// the end of a file too, where the system gives room all the same. False: errno says why.
[[nodiscard]] bool MakeRoom(int file, std::uint64_t offset, std::uint64_t bytes);

// Makes the empty file `to` a copy of the first `bytes` bytes of `from`, in the same way. Where the
// file system can share the data of both it does, and nothing is moved; holes stay holes. False:
// errno says why; it is ENODATA when `from` has fewer bytes.
[[nodiscard]] bool CopyInPieces(int from, int to, std::uint64_t bytes,
                                const MovedBytes& moved = {});

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_PIECEWISE_H_
