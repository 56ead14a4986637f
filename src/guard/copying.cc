#include "guard/copying.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "common/host_file.h"
#include "common/write_out.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

constexpr std::size_t kCopiedAtOnce = std::size_t{256} * 1024;

}  // namespace

Copying CopyToEnd(int from, int to, WhenStopped whenStopped, WorkMonitor& monitor) {
  std::vector<std::uint8_t> buffer(kCopiedAtOnce);
  for (std::uint64_t done = 0;;) {
    if (whenStopped == WhenStopped::kEnd && monitor.IsStopped()) return Copying::kStopped;
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

}  // namespace quorbix::virtdisk::internal::guard
