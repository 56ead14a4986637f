#include "browser/file_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "common/host_file.h"

namespace quorbix::virtdisk::internal {
namespace {

constexpr std::string_view kCannotOpen = "image could not be opened: ";
constexpr std::string_view kCannotRead = "image could not be read: ";
constexpr std::string_view kNoImage = "neither a regular file nor a block device";
constexpr std::string_view kShorterThanBefore = "it is shorter than it was";

std::string SystemText() { return std::generic_category().message(errno); }

bool FailToOpen(std::string& err, std::string_view reason) {
  err = kCannotOpen;
  err += reason;
  return false;
}

}  // namespace

std::unique_ptr<FileSource> FileSource::Open(const std::filesystem::path& path, std::string& err) {
  std::unique_ptr<FileSource> source(new FileSource);
  return source->OpenFile(path, err) ? std::move(source) : nullptr;
}

FileSource::FileSource() : cache(kBlockBytes * kBlockCount) { blocks.fill(kNoBlock); }

bool FileSource::OpenFile(const std::filesystem::path& path, std::string& err) {
  file = OpenHostFile(path.c_str(), O_RDONLY | O_NOCTTY);
  struct ::stat status;
  if (!file || ::fstat(file.Get(), &status) != 0) return FailToOpen(err, SystemText());
  if (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode)) return FailToOpen(err, kNoImage);
  const ::off_t end = ::lseek(file.Get(), 0, SEEK_END);  // the status of a device says 0
  if (end < 0) return FailToOpen(err, SystemText());
  size = static_cast<std::uint64_t>(end);
  return true;
}

const std::uint8_t* FileSource::Read(std::uint64_t offset, std::size_t count,
                                     std::vector<std::uint8_t>& buffer, std::string& err) {
  buffer.resize(count);
  if (count > kBlockBytes) {
    return ReadFromFile(offset, buffer.data(), count, err) ? buffer.data() : nullptr;
  }
  for (std::size_t done = 0; done < count;) {
    const std::uint64_t place = offset + done;
    const std::uint8_t* block = BlockAt(place / kBlockBytes, err);
    if (block == nullptr) return nullptr;
    const std::size_t begin = place % kBlockBytes;
    const std::size_t part = std::min(count - done, kBlockBytes - begin);
    std::copy_n(block + begin, part, buffer.data() + done);
    done += part;
  }
  return buffer.data();
}

const std::uint8_t* FileSource::BlockAt(std::uint64_t block, std::string& err) {
  const std::size_t place = block % kBlockCount;
  std::uint8_t* data = &cache[place * kBlockBytes];
  if (blocks[place] == block) return data;
  blocks[place] = kNoBlock;  // until all of the new one is there
  const std::uint64_t offset = block * kBlockBytes;
  const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(kBlockBytes, size - offset));
  if (!ReadFromFile(offset, data, count, err)) return nullptr;
  blocks[place] = block;
  return data;
}

bool FileSource::FailToRead(std::string& err, std::string_view reason) {
  failure = kCannotRead;
  failure += reason;
  err = failure;
  return false;
}

bool FileSource::ReadFromFile(std::uint64_t offset, std::uint8_t* data, std::size_t count,
                              std::string& err) {
  while (count > 0) {
    const ::ssize_t got = ::pread(file.Get(), data, count, static_cast<::off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return FailToRead(err, SystemText());
    if (got == 0) return FailToRead(err, kShorterThanBefore);
    const auto part = static_cast<std::size_t>(got);
    bytesRead += part;
    offset += part;
    data += part;
    count -= part;
  }
  return true;
}

}  // namespace quorbix::virtdisk::internal
