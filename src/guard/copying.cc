#include "guard/copying.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "common/host_file.h"
#include "common/write_out.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

constexpr std::size_t kCopiedAtOnce = std::size_t{256} * 1024;

// Small enough that what has not changed is found, and as large as what a disk writes at once.
constexpr std::size_t kComparedAtOnce = 4096;

std::ptrdiff_t ReadAt(int file, std::uint64_t offset, std::span<std::uint8_t> buffer) {
  if (::lseek(file, static_cast<::off_t>(offset), SEEK_SET) < 0) return -1;
  return ReadFully(file, buffer);
}

// Writes what of `bytes` is not at `offset` already, as `there` says: block by block, and those
// beside each other together.
bool WriteDifferences(int file, std::uint64_t offset, std::span<const std::uint8_t> bytes,
                      std::span<const std::uint8_t> there) {
  const auto differs = [&](std::size_t at) {
    const auto block = bytes.subspan(at, std::min(kComparedAtOnce, bytes.size() - at));
    return at + block.size() > there.size() ||
           !std::equal(block.begin(), block.end(), there.subspan(at).begin());
  };
  for (std::size_t begin = 0; begin < bytes.size();) {
    std::size_t end = begin;
    while (end < bytes.size() && differs(end)) {
      end = std::min(end + kComparedAtOnce, bytes.size());
    }
    if (end > begin && !WriteAt(file, offset + begin, bytes.subspan(begin, end - begin))) {
      return false;
    }
    begin = end > begin ? end : begin + kComparedAtOnce;
  }
  return true;
}

}  // namespace

Copying CopyToEnd(int from, int to, WorkMonitor& monitor) {
  std::vector<std::uint8_t> buffer(kCopiedAtOnce);
  for (std::uint64_t done = 0;;) {
    if (monitor.IsStopped()) return Copying::kStopped;
    const std::ptrdiff_t got = ReadFully(from, buffer);
    if (got < 0) return Copying::kCannotRead;
    if (got == 0) return Copying::kDone;
    const auto bytes = std::span(buffer).first(static_cast<std::size_t>(got));
    if (!WriteFully(to, bytes)) return Copying::kCannotWrite;
    WriteOutSoon(to, done, done + bytes.size());
    done += bytes.size();
    monitor.Add(bytes.size());
  }
}

bool WriteAt(int file, std::uint64_t offset, std::span<const std::uint8_t> bytes) {
  return ::lseek(file, static_cast<::off_t>(offset), SEEK_SET) >= 0 && WriteFully(file, bytes);
}

Copying CopyDifferences(int from, int to, std::uint64_t offset, WorkMonitor& monitor) {
  std::vector<std::uint8_t> wanted(kCopiedAtOnce);
  std::vector<std::uint8_t> there(kCopiedAtOnce);
  for (;;) {
    const std::size_t beyondBlock = offset % kComparedAtOnce;
    const std::size_t most = beyondBlock == 0 ? wanted.size() : kComparedAtOnce - beyondBlock;
    const std::ptrdiff_t got = ReadAt(from, offset, std::span(wanted).first(most));
    if (got < 0) return Copying::kCannotRead;
    if (got == 0) return Copying::kDone;
    const auto bytes = std::span(wanted).first(static_cast<std::size_t>(got));
    // Where it cannot be read, all of it is written.
    const std::ptrdiff_t before = ReadAt(to, offset, std::span(there).first(bytes.size()));
    const auto known =
        std::span(there).first(static_cast<std::size_t>(std::max<std::ptrdiff_t>(before, 0)));
    if (!WriteDifferences(to, offset, bytes, known)) return Copying::kCannotWrite;
    WriteOutSoon(to, offset, offset + bytes.size());
    offset += bytes.size();
    monitor.Add(bytes.size());
  }
}

}  // namespace quorbix::virtdisk::internal::guard
