#include "host/host_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <string>
#include <system_error>
#include <utility>

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

constexpr char kCannotRead[] = "cannot read ";
constexpr char kCannotWrite[] = "cannot write ";
constexpr char kNotRegular[] = "it is not a regular file";
constexpr std::size_t kLargestStep = std::size_t{1} << 30U;  // bytes moved by one system call

bool FailOn(std::string& err, const char* what, const fs::path& path, std::string reason) {
  err = what + path.string() + ": " + std::move(reason);
  return false;
}

std::string SystemText(int error) { return std::generic_category().message(error); }

class Descriptor {
 public:
  explicit Descriptor(int opened) : number(opened) {}
  ~Descriptor() {
    if (number >= 0) ::close(number);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int Number() const { return number; }
  bool Close() { return ::close(std::exchange(number, -1)) == 0; }

 private:
  int number;
};

// Removes the temporary file unless it was renamed.
class Temporary {
 public:
  explicit Temporary(std::string made) : path(std::move(made)) {}
  ~Temporary() {
    if (!path.empty()) ::unlink(path.c_str());
  }
  Temporary(const Temporary&) = delete;
  Temporary& operator=(const Temporary&) = delete;

  bool RenameTo(const fs::path& target) {
    if (::rename(path.c_str(), target.c_str()) != 0) return false;
    path.clear();
    return true;
  }

 private:
  std::string path;
};

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

bool WriteAll(int file, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ::ssize_t put = ::write(file, bytes.data(), std::min(bytes.size(), kLargestStep));
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(put));
  }
  return true;
}

// A new file beside the target, under a short name of its own: the target's may already be as long
// as the file system allows.
int MakeTemporary(const fs::path& target, ::mode_t mode, std::string& name) {
  constexpr int kMostTries = 1000;
  const std::string prefix =
      (target.parent_path() / (".virtdisk-" + std::to_string(::getpid()) + "-")).string();
  int file = -1;
  for (int i = 0; i < kMostTries && file < 0; ++i) {
    name = prefix + std::to_string(i);
    file = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (file < 0 && errno != EEXIST) break;
  }
  return file;
}

bool KeepModeAndOwner(int file, const struct ::stat& old) {
  // Only the superuser may give files away; anybody else keeps their own.
  [[maybe_unused]] const int ignored = ::fchown(file, old.st_uid, old.st_gid);
  return ::fchmod(file, old.st_mode & 07777) == 0;
}

}  // namespace

bool ReadHostFile(const fs::path& path, std::vector<std::uint8_t>& bytes, std::string& err) {
  bytes.clear();
  // Not to wait for a writer, should it be a pipe.
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (file.Number() < 0) return FailOn(err, kCannotRead, path, SystemText(errno));
  struct ::stat status {};
  if (::fstat(file.Number(), &status) != 0) {
    return FailOn(err, kCannotRead, path, SystemText(errno));
  }
  if (!S_ISREG(status.st_mode)) return FailOn(err, kCannotRead, path, kNotRegular);
  bytes.resize(static_cast<std::size_t>(status.st_size));
  if (ReadAll(file.Number(), bytes)) return true;
  const int error = errno;
  bytes.clear();
  return FailOn(err, kCannotRead, path, SystemText(error));
}

bool WriteHostFile(const fs::path& path, std::span<const std::uint8_t> bytes, std::string& err) {
  struct ::stat old {};
  const bool exists = ::lstat(path.c_str(), &old) == 0;
  const bool replaces = exists && S_ISREG(old.st_mode);
  if (exists && !replaces && !S_ISLNK(old.st_mode)) {
    return FailOn(err, kCannotWrite, path, kNotRegular);
  }
  std::string name;
  Descriptor file(MakeTemporary(path, replaces ? 0600 : 0666, name));
  if (file.Number() < 0) return FailOn(err, kCannotWrite, path, SystemText(errno));
  Temporary temporary(name);
  const bool written = WriteAll(file.Number(), bytes) &&
                       (!replaces || KeepModeAndOwner(file.Number(), old)) &&
                       ::fsync(file.Number()) == 0 && file.Close() && temporary.RenameTo(path);
  return written || FailOn(err, kCannotWrite, path, SystemText(errno));
}

}  // namespace quorbix::virtdisk::tool
