#include "guard/renames.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace quorbix::virtdisk::internal::guard {
namespace {

bool IsUnsupported(int error) { return error == EINVAL || error == ENOSYS || error == ENOTSUP; }

// Which link(2) says of a file system without hard links, and rename(2) of a file that is not ours
// to rename, in a folder that all may write: a second name for it could not be taken away again.
bool HasNoLinks(int error) { return IsUnsupported(error) || error == EPERM; }

}  // namespace

bool RenameIfFree(int fromFolder, const char* from, int toFolder, const char* to) {
  if (::renameat2(fromFolder, from, toFolder, to, RENAME_NOREPLACE) == 0) return true;
  if (!IsUnsupported(errno)) return false;
  // A second name and then one less does the same, where files can have two.
  if (::linkat(fromFolder, from, toFolder, to, 0) == 0) return ::unlinkat(fromFolder, from, 0) == 0;
  if (!HasNoLinks(errno)) return false;
  struct ::stat status;
  if (::fstatat(toFolder, to, &status, AT_SYMLINK_NOFOLLOW) == 0) {
    errno = EEXIST;
    return false;
  }
  return errno == ENOENT && ::renameat(fromFolder, from, toFolder, to) == 0;
}

bool ExchangeNames(int folder, const char* one, const char* other) {
  if (::renameat2(folder, one, folder, other, RENAME_EXCHANGE) == 0) return true;
  if (errno == ENOSYS || errno == ENOTSUP) errno = EINVAL;
  return false;
}

}  // namespace quorbix::virtdisk::internal::guard
