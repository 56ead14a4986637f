#include "builder/file_reading.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstddef>

#include "common/host_file.h"

namespace quorbix::virtdisk::internal {
namespace {

constexpr std::uint64_t kReadChunk = std::uint64_t{256} * 1024;
// Some files of the system say that they are empty, and give their content to one read alone.
constexpr std::uint64_t kSmallestRead = 4096;

}  // namespace

int ReadHostFile(const std::filesystem::path& hostFile, ByteBuffer& content,
                 std::uint64_t mostBytes) {
  content.Reset(0);
  struct ::stat status;
  const Descriptor file = OpenRegularFile(hostFile.c_str(), status);
  if (!file) return kUnreadable;
  return ReadOpenedFile(file.Get(), static_cast<std::uint64_t>(status.st_size), content, mostBytes);
}

int ReadOpenedFile(int file, std::uint64_t expected, ByteBuffer& content, std::uint64_t mostBytes) {
  // One byte more than expected, so that the file's end is met without another read.
  std::uint64_t chunk = std::min(std::max(expected + 1, kSmallestRead), mostBytes + 1);
  std::size_t size = 0;
  content.Reset(static_cast<std::size_t>(chunk));
  while (chunk > 0) {
    content.Resize(static_cast<std::size_t>(size + chunk));
    const std::ptrdiff_t got = ReadFully(file, content.Span().subspan(size));
    if (got < 0) return kUnreadable;
    size += static_cast<std::size_t>(got);
    if (static_cast<std::uint64_t>(got) < chunk) break;
    chunk = std::min(kReadChunk, mostBytes + 1 - size);
  }
  content.Resize(size);
  return kReadWhole;
}

}  // namespace quorbix::virtdisk::internal
