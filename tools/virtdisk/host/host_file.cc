#include "host/host_file.h"

#include <fcntl.h>
#include <sys/stat.h>

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

bool FailToRead(std::string& err, const fs::path& path, const std::string& reason) {
  err = "cannot read " + path.string() + ": " + reason;
  return false;
}

bool OpenToRead(const fs::path& path, internal::Descriptor& file, std::uint64_t& bytes,
                std::string& err) {
  // Not to wait for a writer, should it be a pipe.
  file = internal::OpenHostFile(path.c_str(), O_RDONLY);
  struct ::stat status {};
  if (!file || ::fstat(file.Get(), &status) != 0) {
    return FailToRead(err, path, SystemText(errno));
  }
  if (!S_ISREG(status.st_mode)) return FailToRead(err, path, kNotRegular);
  bytes = static_cast<std::uint64_t>(status.st_size);
  return true;
}

}  // namespace

std::string SystemText(int error) { return std::generic_category().message(error); }

bool FailToWriteFile(std::string& err, const fs::path& path, const std::string& reason) {
  err = "cannot write " + path.string() + ": " + reason;
  return false;
}

bool HostFileBytes(const fs::path& path, std::uint64_t& bytes, std::string& err) {
  internal::Descriptor ignored;
  return OpenToRead(path, ignored, bytes, err);
}

bool ReadHostFile(const fs::path& path, std::vector<std::uint8_t>& bytes, std::string& err,
                  const MovedBytes& moved) {
  bytes.clear();
  internal::Descriptor file;
  std::uint64_t size = 0;
  if (!OpenToRead(path, file, size, err)) return false;
  bytes.resize(static_cast<std::size_t>(size));
  const std::ptrdiff_t got = ReadInPieces(file.Get(), bytes, moved);
  const int error = errno;
  bytes.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
  return got >= 0 || FailToRead(err, path, SystemText(error));
}

bool WriteHostFile(const fs::path& path, std::span<const std::uint8_t> bytes, std::string& err) {
  NewFile file;
  if (!file.Create(path, err)) return false;
  if (internal::WriteFully(file.Descriptor(), bytes)) return file.Commit(err);
  return FailToWriteFile(err, path, SystemText(errno));
}

}  // namespace quorbix::virtdisk::tool
