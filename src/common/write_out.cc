#include "common/write_out.h"

#include <fcntl.h>

#include <cerrno>

namespace quorbix::virtdisk::internal {
namespace {

constexpr std::uint64_t kPieceBytes = std::uint64_t{4} << 20;
// That may be on their way at the same time: a slow stick takes less than a second for them.
constexpr std::uint64_t kMostPieces = 4;

void Sync(int file, std::uint64_t piece, unsigned how) {
  ::sync_file_range(file, static_cast<::off64_t>(piece * kPieceBytes),
                    static_cast<::off64_t>(kPieceBytes), how);
}

}  // namespace

void WriteOutSoon(int file, std::uint64_t begin, std::uint64_t end) {
  const int error = errno;
  for (std::uint64_t piece = begin / kPieceBytes; piece < end / kPieceBytes; ++piece) {
    Sync(file, piece, SYNC_FILE_RANGE_WRITE);
    if (piece >= kMostPieces) Sync(file, piece - kMostPieces, SYNC_FILE_RANGE_WAIT_BEFORE);
  }
  errno = error;
}

void WriteRestOutSoon(int file) {
  const int error = errno;
  ::sync_file_range(file, 0, 0, SYNC_FILE_RANGE_WRITE);
  errno = error;
}

}  // namespace quorbix::virtdisk::internal
