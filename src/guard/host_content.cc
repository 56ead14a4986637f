#include "guard/host_content.h"

#include <cstddef>
#include <span>

#include "common/host_file.h"
#include "sync/hash_bytes.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;

}  // namespace

HostContentReader::HostContentReader(WorkMonitor& workMonitor)
    : monitor(workMonitor), buffer(kBufferBytes) {}

bool HostContentReader::Read(int file, Content& content, std::vector<std::uint8_t>* bytes) {
  content = {.hash = kEmptyHash, .size = 0};
  while (!IsStopped()) {
    const std::ptrdiff_t got = ReadFully(file, buffer);
    if (got < 0) return false;
    if (got == 0) return true;
    const auto piece = std::span(buffer).first(static_cast<std::size_t>(got));
    content.hash = HashBytes(piece, content.hash);
    content.size += piece.size();
    if (bytes != nullptr && content.size <= bytes->capacity()) {
      bytes->insert(bytes->end(), piece.begin(), piece.end());
    }
    monitor.Add(piece.size());
  }
  return false;
}

}  // namespace quorbix::virtdisk::internal::guard
