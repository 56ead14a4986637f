#include "common/host_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>

namespace quorbix::virtdisk::internal {

namespace {

constexpr int kMostLinks = 40;  // as many as the system follows

Descriptor Open(int folder, const char* path, int flags, ::mode_t newFileMode) {
  int file;
  do {
    file = ::openat(folder, path, flags | O_CLOEXEC, newFileMode);
  } while (file < 0 && errno == EINTR);
  return Descriptor(file);
}

Descriptor OpenFile(int folder, const char* path, int flags, ::mode_t newFileMode) {
  Descriptor file = Open(folder, path, flags | O_NONBLOCK, newFileMode);
  // Only a lease is answered so; a pipe that is opened without waiting succeeds or gives ENXIO.
  if (file || errno != EWOULDBLOCK) return file;
  return Open(folder, path, flags, newFileMode);
}

// `file`, if it is a regular file.
Descriptor IfRegular(Descriptor file, struct ::stat& status) {
  if (!file || ::fstat(file.Get(), &status) != 0) return Descriptor();
  if (S_ISREG(status.st_mode)) return file;
  file.Close();
  errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  return Descriptor();
}

}  // namespace

std::filesystem::path FollowLinks(std::filesystem::path path) {
  std::error_code failed;
  for (int i = 0;
       i < kMostLinks && std::filesystem::is_symlink(std::filesystem::symlink_status(path, failed));
       ++i) {
    const std::filesystem::path target = std::filesystem::read_symlink(path, failed);
    if (failed) break;
    path = path.parent_path() / target;  // an absolute target stands alone
  }
  return path;
}

Descriptor OpenHostPath(const char* path, int flags, ::mode_t newFileMode) {
  return Open(AT_FDCWD, path, flags, newFileMode);
}

Descriptor OpenHostFile(const char* path, int flags, ::mode_t newFileMode) {
  return OpenFile(AT_FDCWD, path, flags, newFileMode);
}

Descriptor OpenHostFileNow(const char* path, int flags) {
  return Open(AT_FDCWD, path, flags | O_NONBLOCK, 0);
}

Descriptor OpenRegularFile(const char* path, struct ::stat& status) {
  return OpenRegularFileIn(AT_FDCWD, path, status);
}

Descriptor OpenRegularFileIn(int folder, const char* name, struct ::stat& status) {
  return IfRegular(OpenFile(folder, name, O_RDONLY, 0), status);
}

Descriptor OpenRegularFileNow(int folder, const char* name, struct ::stat& status) {
  return IfRegular(Open(folder, name, O_RDONLY | O_NONBLOCK, 0), status);
}

Descriptor OpenFolderBelow(const char* root, std::string_view path) {
  Descriptor folder = OpenHostPath(root, O_RDONLY | O_DIRECTORY);
  while (folder && !path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string name(path.substr(0, end));
    path.remove_prefix(std::min(end + 1, path.size()));
    folder = Open(folder.Get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW, 0);
  }
  return folder;
}

std::ptrdiff_t ReadFully(int file, std::span<std::uint8_t> buffer) {
  std::size_t done = 0;
  while (done < buffer.size()) {
    const ::ssize_t got = ::read(file, buffer.data() + done, buffer.size() - done);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return -1;
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  return static_cast<std::ptrdiff_t>(done);
}

bool WriteFully(int file, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ::ssize_t taken = ::write(file, bytes.data(), bytes.size());
    if (taken < 0 && errno == EINTR) continue;
    if (taken <= 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(taken));
  }
  return true;
}

bool IsOpenAt(int file, const std::filesystem::path& path) {
  struct ::stat opened;
  struct ::stat there;
  return ::fstat(file, &opened) == 0 && ::stat(path.c_str(), &there) == 0 &&
         opened.st_dev == there.st_dev && opened.st_ino == there.st_ino;
}

bool FlushFolder(const std::filesystem::path& folder) {
  const Descriptor file = OpenHostPath(folder.c_str(), O_RDONLY | O_DIRECTORY);
  // Some file systems have nothing to write out, and say so.
  return file && (::fsync(file.Get()) == 0 || errno == EINVAL);
}

}  // namespace quorbix::virtdisk::internal
