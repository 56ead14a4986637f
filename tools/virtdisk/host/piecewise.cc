#include "host/piecewise.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <vector>

#include "common/host_file.h"
#include "common/write_out.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::size_t kPieceBytes = std::size_t{8} << 20;

// Where data begins at `offset` or after it; `end` when there is nothing but a hole, and `offset`
// where the file system does not tell.
::off64_t NextData(int file, ::off64_t offset, ::off64_t end) {
  const ::off64_t data = ::lseek(file, offset, SEEK_DATA);
  if (data >= 0) return std::min(data, end);
  return errno == ENXIO ? end : offset;
}

::off64_t NextHole(int file, ::off64_t offset, ::off64_t end) {
  const ::off64_t hole = ::lseek(file, offset, SEEK_HOLE);
  return hole > offset ? std::min(hole, end) : end;
}

// Copies up to a piece by way of this process. Returns as copy_file_range.
::ssize_t CopyByHand(int from, int to, ::off64_t offset, std::size_t count) {
  std::vector<std::uint8_t> buffer(count);
  const ::ssize_t got = ::pread(from, buffer.data(), count, offset);
  if (got <= 0) return got;
  return ::pwrite(to, buffer.data(), static_cast<std::size_t>(got), offset);
}

::ssize_t CopyPart(int from, int to, ::off64_t offset, std::size_t count) {
  ::off64_t fromOffset = offset;
  ::off64_t toOffset = offset;
  const ::ssize_t copied = ::copy_file_range(from, &fromOffset, to, &toOffset, count, 0);
  const bool isUnable =
      copied < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP);
  return isUnable ? CopyByHand(from, to, offset, count) : copied;
}

bool CopyData(int from, int to, ::off64_t offset, ::off64_t end, const MovedBytes& moved) {
  while (offset < end) {
    const auto count = static_cast<std::size_t>(
        std::min<::off64_t>(end - offset, static_cast<::off64_t>(kPieceBytes)));
    const ::ssize_t copied = CopyPart(from, to, offset, count);
    if (copied < 0 && errno == EINTR) continue;
    if (copied == 0) errno = ENODATA;
    if (copied <= 0) return false;
    offset += copied;
    internal::WriteOutSoon(to, static_cast<std::uint64_t>(offset - copied),
                           static_cast<std::uint64_t>(offset));
    if (moved) moved(static_cast<std::uint64_t>(copied));
  }
  return true;
}

bool IsWithinLimit(std::uint64_t end) {
  struct ::rlimit limit {};
  return ::getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY ||
         end <= limit.rlim_cur;
}

}  // namespace

bool MakeRoom(int file, std::uint64_t offset, std::uint64_t bytes) {
  errno = IsWithinLimit(offset + bytes)
              ? ::posix_fallocate(file, static_cast<::off_t>(offset), static_cast<::off_t>(bytes))
              : EFBIG;
  return errno == 0;
}

bool CopyInPieces(int from, int to, std::uint64_t bytes, const MovedBytes& moved) {
  const auto end = static_cast<::off64_t>(bytes);
  struct ::stat status {};
  if (::fstat(from, &status) != 0) return false;
  if (status.st_size < end) {
    errno = ENODATA;
    return false;
  }
  if (::ioctl(to, FICLONE, from) == 0) {
    if (moved) moved(bytes);
    return ::ftruncate(to, end) == 0;
  }
  if (::ftruncate(to, end) != 0) return false;
  for (::off64_t offset = 0; offset < end;) {
    const ::off64_t data = NextData(from, offset, end);
    const ::off64_t hole = NextHole(from, data, end);
    if (moved) moved(static_cast<std::uint64_t>(data - offset));
    if (!CopyData(from, to, data, hole, moved)) return false;
    offset = hole;
  }
  return true;
}

std::ptrdiff_t ReadInPieces(int file, std::span<std::uint8_t> buffer, const MovedBytes& moved) {
  std::size_t done = 0;
  while (done < buffer.size()) {
    const auto piece = buffer.subspan(done, std::min(buffer.size() - done, kPieceBytes));
    const std::ptrdiff_t got = internal::ReadFully(file, piece);
    if (got < 0) return -1;
    done += static_cast<std::size_t>(got);
    if (moved) moved(static_cast<std::uint64_t>(got));
    if (static_cast<std::size_t>(got) < piece.size()) break;
  }
  return static_cast<std::ptrdiff_t>(done);
}

bool WriteInPieces(int file, std::span<const std::uint8_t> bytes, const MovedBytes& moved) {
  while (!bytes.empty()) {
    const auto piece = bytes.first(std::min(bytes.size(), kPieceBytes));
    if (!internal::WriteFully(file, piece)) return false;
    const auto end = static_cast<std::uint64_t>(::lseek(file, 0, SEEK_CUR));
    internal::WriteOutSoon(file, end - piece.size(), end);
    if (moved) moved(piece.size());
    bytes = bytes.subspan(piece.size());
  }
  return true;
}

}  // namespace quorbix::virtdisk::tool
