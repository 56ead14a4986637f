#include "host/piecewise.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>

#include "common/host_file.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::size_t kPieceBytes = std::size_t{8} << 20;
// Bytes that may wait to be written out, however fast they come.
constexpr ::off64_t kMostWaiting = ::off64_t{64} << 20;

// Not every file system can do it; then flushing takes longer.
void WriteOut(int file, ::off64_t end) {
  const auto piece = static_cast<::off64_t>(kPieceBytes);
  ::sync_file_range(file, std::max<::off64_t>(end - piece, 0), piece, SYNC_FILE_RANGE_WRITE);
  if (end <= kMostWaiting) return;
  ::sync_file_range(file, end - kMostWaiting - piece, piece, SYNC_FILE_RANGE_WAIT_BEFORE);
}

}  // namespace

bool WriteInPieces(int file, std::span<const std::uint8_t> bytes, const MovedBytes& moved) {
  while (!bytes.empty()) {
    const auto piece = bytes.first(std::min(bytes.size(), kPieceBytes));
    if (!internal::WriteFully(file, piece)) return false;
    WriteOut(file, ::lseek(file, 0, SEEK_CUR));
    if (moved) moved(piece.size());
    bytes = bytes.subspan(piece.size());
  }
  return true;
}

}  // namespace quorbix::virtdisk::tool
