#include "host/host_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <string>
#include <system_error>

#include "common/descriptor.h"
#include "common/host_file.h"
#include "host/new_file.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

constexpr char kHasChanged[] = "it changed while it was read";

bool FailToRead(std::string& err, const fs::path& path, const std::string& reason) {
  err = "cannot read " + path.string() + ": " + reason;
  return false;
}

bool OpenToRead(const fs::path& path, internal::Descriptor& file, struct ::stat& status,
                std::string& err) {
  // Not to wait for a writer, should it be a pipe.
  file = internal::OpenHostFile(path.c_str(), O_RDONLY);
  if (!file || ::fstat(file.Get(), &status) != 0) {
    return FailToRead(err, path, SystemText(errno));
  }
  return S_ISREG(status.st_mode) || FailToRead(err, path, kNotRegular);
}

// What a file has beyond its size, as those that the system makes up do.
bool ReadOn(int file, std::vector<std::uint8_t>& bytes, std::uint64_t most) {
  std::array<std::uint8_t, 4096> piece;
  while (bytes.size() < most) {
    const std::uint64_t wanted = std::min<std::uint64_t>(piece.size(), most - bytes.size());
    const std::ptrdiff_t got =
        internal::ReadFully(file, std::span(piece).first(static_cast<std::size_t>(wanted)));
    if (got <= 0) return got == 0;
    bytes.insert(bytes.end(), piece.begin(), piece.begin() + got);
  }
  return true;
}

bool IsAsItWas(int file, const struct ::stat& before) {
  struct ::stat now {};
  return ::fstat(file, &now) == 0 && now.st_size == before.st_size &&
         now.st_mtim.tv_sec == before.st_mtim.tv_sec &&
         now.st_mtim.tv_nsec == before.st_mtim.tv_nsec;
}

}  // namespace

std::string SystemText(int error) { return std::generic_category().message(error); }

bool FailToWriteFile(std::string& err, const fs::path& path, const std::string& reason) {
  err = "cannot write " + path.string() + ": " + reason;
  return false;
}

bool HostFileBytes(const fs::path& path, std::uint64_t& bytes, std::string& err) {
  internal::Descriptor ignored;
  struct ::stat status {};
  if (!OpenToRead(path, ignored, status, err)) return false;
  bytes = static_cast<std::uint64_t>(status.st_size);
  return true;
}

bool ReadHostFile(const fs::path& path, std::vector<std::uint8_t>& bytes, std::string& err,
                  const MovedBytes& moved, std::uint64_t most) {
  bytes.clear();
  internal::Descriptor file;
  struct ::stat status {};
  if (!OpenToRead(path, file, status, err)) return false;
  bytes.resize(
      static_cast<std::size_t>(std::min(static_cast<std::uint64_t>(status.st_size), most)));
  const std::ptrdiff_t got = ReadInPieces(file.Get(), bytes, moved);
  bytes.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
  if (got < 0 || !ReadOn(file.Get(), bytes, most)) {
    const std::string reason = SystemText(errno);
    bytes.clear();
    return FailToRead(err, path, reason);
  }
  if (IsAsItWas(file.Get(), status)) return true;
  bytes.clear();
  return FailToRead(err, path, kHasChanged);
}

bool WriteHostFile(const fs::path& path, std::span<const std::uint8_t> bytes, std::string& err) {
  NewFile file;
  if (!file.Create(path, err)) return false;
  if (internal::WriteFully(file.Descriptor(), bytes)) return file.Commit(err);
  return FailToWriteFile(err, path, SystemText(errno));
}

}  // namespace quorbix::virtdisk::tool
