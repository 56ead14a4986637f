#include "host/host_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <string>
#include <system_error>
#include <utility>

#include "common/descriptor.h"
#include "common/host_file.h"
#include "host/new_file.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

constexpr char kCannotRead[] = "cannot read ";
constexpr char kCannotWrite[] = "cannot write ";
constexpr std::size_t kLargestStep = std::size_t{1} << 30U;  // bytes moved by one system call

bool FailOn(std::string& err, const char* what, const fs::path& path, std::string reason) {
  err = what + path.string() + ": " + std::move(reason);
  return false;
}

bool OpenToRead(const fs::path& path, internal::Descriptor& file, std::uint64_t& bytes,
                std::string& err) {
  // Not to wait for a writer, should it be a pipe.
  file = internal::OpenHostFile(path.c_str(), O_RDONLY);
  struct ::stat status {};
  if (!file || ::fstat(file.Get(), &status) != 0) {
    return FailOn(err, kCannotRead, path, SystemText(errno));
  }
  if (!S_ISREG(status.st_mode)) return FailOn(err, kCannotRead, path, kNotRegular);
  bytes = static_cast<std::uint64_t>(status.st_size);
  return true;
}

bool ReadAll(int file, std::vector<std::uint8_t>& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ::ssize_t got =
        ::read(file, bytes.data() + done, std::min(bytes.size() - done, kLargestStep));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  bytes.resize(done);
  return true;
}

}  // namespace

std::string SystemText(int error) { return std::generic_category().message(error); }

bool HostFileBytes(const fs::path& path, std::uint64_t& bytes, std::string& err) {
  internal::Descriptor ignored;
  return OpenToRead(path, ignored, bytes, err);
}

bool ReadHostFile(const fs::path& path, std::vector<std::uint8_t>& bytes, std::string& err) {
  bytes.clear();
  internal::Descriptor file;
  std::uint64_t size = 0;
  if (!OpenToRead(path, file, size, err)) return false;
  bytes.resize(static_cast<std::size_t>(size));
  if (ReadAll(file.Get(), bytes)) return true;
  const int error = errno;
  bytes.clear();
  return FailOn(err, kCannotRead, path, SystemText(error));
}

bool WriteHostFile(const fs::path& path, std::span<const std::uint8_t> bytes, std::string& err) {
  NewFile file;
  if (!file.Create(path, err)) return false;
  if (internal::WriteFully(file.Descriptor(), bytes)) return file.Commit(err);
  return FailOn(err, kCannotWrite, path, SystemText(errno));
}

}  // namespace quorbix::virtdisk::tool
