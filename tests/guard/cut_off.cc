#include "guard/cut_off.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "support/next_function.h"
#include "support/opening.h"

namespace quorbix::virtdisk::test {

int callsBeforeTheEnd = -1;
std::function<int()> atThatCall;
bool refusesFromThenOn = false;
bool canExchange = true;
bool canLink = true;
bool countsOpenings = false;

int Die() {
  ::raise(SIGKILL);
  return 0;
}

namespace {

int lastRefusal = 0;  // an error

// Whether this call is one that fails.
bool IsRefused() {
  const bool isRefusedAgain = refusesFromThenOn && lastRefusal != 0;
  if (!isRefusedAgain) {
    if (callsBeforeTheEnd < 0 || callsBeforeTheEnd-- != 0) return false;
    lastRefusal = atThatCall();
  }
  if (lastRefusal != 0) errno = lastRefusal;
  return lastRefusal != 0;
}

}  // namespace

int InPlaceOf(const Opening& opening) {
  const bool isCounted = (opening.flags & O_CREAT) != 0 || countsOpenings;
  return isCounted && IsRefused() ? -1 : opening.Next();
}

extern "C" ssize_t write(int file, const void* bytes, size_t size) {
  static const auto next = NextOf<ssize_t(int, const void*, size_t)>("write");
  if (IsRefused()) return -1;
  if (callsBeforeTheEnd != 0) return next(file, bytes, size);
  const ssize_t half = next(file, bytes, size / 2);
  if (half < 0 || IsRefused()) return -1;
  const ssize_t rest =
      next(file, static_cast<const char*>(bytes) + half, size - static_cast<size_t>(half));
  return rest < 0 ? rest : half + rest;
}

extern "C" int fsync(int file) { return IsRefused() ? -1 : NextOf<int(int)>("fsync")(file); }
extern "C" int fdatasync(int file) {
  return IsRefused() ? -1 : NextOf<int(int)>("fdatasync")(file);
}

extern "C" int fchmod(int file, mode_t mode) noexcept {
  return IsRefused() ? -1 : NextOf<int(int, mode_t)>("fchmod")(file, mode);
}

extern "C" int mkdirat(int folder, const char* path, mode_t mode) noexcept {
  return IsRefused() ? -1 : NextOf<int(int, const char*, mode_t)>("mkdirat")(folder, path, mode);
}

extern "C" int mkdir(const char* path, mode_t mode) noexcept {
  return IsRefused() ? -1 : NextOf<int(const char*, mode_t)>("mkdir")(path, mode);
}

extern "C" int rename(const char* from, const char* to) noexcept {
  return IsRefused() ? -1 : NextOf<int(const char*, const char*)>("rename")(from, to);
}

extern "C" int renameat(int fromFolder, const char* from, int toFolder, const char* to) noexcept {
  if (IsRefused()) return -1;
  return NextOf<int(int, const char*, int, const char*)>("renameat")(fromFolder, from, toFolder,
                                                                     to);
}

extern "C" int renameat2(int fromFolder, const char* from, int toFolder, const char* to,
                         unsigned flags) noexcept {
  if (IsRefused()) return -1;
  if (!canExchange && flags == RENAME_EXCHANGE) {
    errno = EINVAL;
    return -1;
  }
  return NextOf<int(int, const char*, int, const char*, unsigned)>("renameat2")(
      fromFolder, from, toFolder, to, flags);
}

extern "C" int link(const char* from, const char* to) noexcept {
  if (!canLink) {
    errno = EPERM;
    return -1;
  }
  return IsRefused() ? -1 : NextOf<int(const char*, const char*)>("link")(from, to);
}

extern "C" int unlink(const char* path) noexcept {
  return IsRefused() ? -1 : NextOf<int(const char*)>("unlink")(path);
}

extern "C" int unlinkat(int folder, const char* path, int flags) noexcept {
  return IsRefused() ? -1 : NextOf<int(int, const char*, int)>("unlinkat")(folder, path, flags);
}

}  // namespace quorbix::virtdisk::test
