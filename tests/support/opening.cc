#include "support/opening.h"

#include <fcntl.h>

#include <cstdarg>

#include "support/next_function.h"

namespace quorbix::virtdisk::test {

int Opening::Next() const {
  if (isOpenat) {
    return NextOf<int(int, const char*, int, ...)>("openat")(folder, path, flags, mode);
  }
  return NextOf<int(const char*, int, ...)>("open")(path, flags, mode);
}

}  // namespace quorbix::virtdisk::test

// These stand in front of the C library's functions for the whole program. Without a new file the
// mode is whatever lies there, and is not used.

extern "C" int open(const char* path, int flags, ...) {
  std::va_list rest;
  va_start(rest, flags);
  const int mode = va_arg(rest, int);
  va_end(rest);
  return quorbix::virtdisk::test::InPlaceOf({false, AT_FDCWD, path, flags, mode});
}

extern "C" int openat(int folder, const char* path, int flags, ...) {
  std::va_list rest;
  va_start(rest, flags);
  const int mode = va_arg(rest, int);
  va_end(rest);
  return quorbix::virtdisk::test::InPlaceOf({true, folder, path, flags, mode});
}
