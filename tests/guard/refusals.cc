#include "guard/refusals.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>

#include "support/next_function.h"
#include "support/opening.h"
#include "support/path_of.h"

namespace quorbix::virtdisk::test {

Answer answer;
std::string locksOfTheSystem;
std::set<std::size_t> flippedBytes;
bool sharesFiles = false;
int shared = 0;

namespace {

bool IsRefused(std::string_view call, const std::string& path) {
  if (!answer) return false;
  Answer asked;
  asked.swap(answer);
  const int error = asked(call, path);
  asked.swap(answer);
  if (error != 0) errno = error;
  return error != 0;
}

std::string PathIn(int folder, const char* path) {
  return *path == '/' || folder == AT_FDCWD ? path : PathOf(folder) + '/' + path;
}

bool IsRefused(std::string_view call, int file) { return answer && IsRefused(call, PathOf(file)); }

bool IsNewImage(const std::string& path) { return path.find("/.quorbix-") != std::string::npos; }

}  // namespace

int InPlaceOf(const Opening& opening) {
  const bool isMade = (opening.flags & O_CREAT) != 0;
  const std::string path = answer ? PathIn(opening.folder, opening.path) : "";
  if (IsRefused(isMade ? "openat" : "open", path)) return -1;
  if (locksOfTheSystem.empty() || opening.path != std::string_view("/proc/locks")) {
    return opening.Next();
  }
  Opening other = opening;
  other.path = locksOfTheSystem.c_str();
  return other.Next();
}

extern "C" ssize_t write(int file, const void* bytes, size_t size) {
  if (IsRefused("write", file)) return -1;
  return NextOf<ssize_t(int, const void*, size_t)>("write")(file, bytes, size);
}

extern "C" ssize_t pread(int file, void* buffer, size_t size, off_t offset) {
  const ssize_t got =
      NextOf<ssize_t(int, void*, size_t, off_t)>("pread")(file, buffer, size, offset);
  if (flippedBytes.empty() || !IsNewImage(PathOf(file))) return got;
  for (const std::size_t flipped : flippedBytes) {
    const auto begin = static_cast<std::size_t>(offset);
    const bool isRead = flipped >= begin && flipped < begin + static_cast<std::size_t>(got);
    if (isRead) static_cast<std::uint8_t*>(buffer)[flipped - begin] ^= 1;
  }
  return got;
}

extern "C" int fsync(int file) {
  return IsRefused("fsync", file) ? -1 : NextOf<int(int)>("fsync")(file);
}

extern "C" int fdatasync(int file) {
  return IsRefused("fdatasync", file) ? -1 : NextOf<int(int)>("fdatasync")(file);
}

extern "C" int sync_file_range(int file, off64_t offset, off64_t size, unsigned flags) {
  static_cast<void>(IsRefused("sync_file_range", file));
  return NextOf<int(int, off64_t, off64_t, unsigned)>("sync_file_range")(file, offset, size, flags);
}

extern "C" int flock(int file, int operation) noexcept {
  return IsRefused("flock", file) ? -1 : NextOf<int(int, int)>("flock")(file, operation);
}

extern "C" int fallocate(int file, int mode, off_t offset, off_t size) {
  if (IsRefused("fallocate", file)) return -1;
  return NextOf<int(int, int, off_t, off_t)>("fallocate")(file, mode, offset, size);
}

extern "C" int mkdir(const char* path, mode_t mode) noexcept {
  return IsRefused("mkdir", path) ? -1 : NextOf<int(const char*, mode_t)>("mkdir")(path, mode);
}

extern "C" int rename(const char* from, const char* to) noexcept {
  return IsRefused("rename", to) ? -1 : NextOf<int(const char*, const char*)>("rename")(from, to);
}

extern "C" int renameat(int fromFolder, const char* from, int toFolder, const char* to) noexcept {
  if (answer && IsRefused("renameat", PathIn(toFolder, to))) return -1;
  return NextOf<int(int, const char*, int, const char*)>("renameat")(fromFolder, from, toFolder,
                                                                     to);
}

extern "C" int renameat2(int fromFolder, const char* from, int toFolder, const char* to,
                         unsigned flags) noexcept {
  if (answer && IsRefused("renameat2", PathIn(toFolder, to))) return -1;
  return NextOf<int(int, const char*, int, const char*, unsigned)>("renameat2")(
      fromFolder, from, toFolder, to, flags);
}

extern "C" int ioctl(int file, unsigned long request, ...) noexcept {
  std::va_list rest;
  va_start(rest, request);
  void* argument = va_arg(rest, void*);
  va_end(rest);
  if (!sharesFiles || request != FICLONE) {
    return NextOf<int(int, unsigned long, ...)>("ioctl")(file, request, argument);
  }
  ++shared;
  off64_t from = 0;
  off64_t to = 0;
  const int source = static_cast<int>(reinterpret_cast<std::intptr_t>(argument));
  while (::copy_file_range(source, &from, file, &to, std::size_t{1} << 20, 0) > 0) continue;
  return 0;
}

}  // namespace quorbix::virtdisk::test
