#include "guard/rights.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>

#include "guard/model.h"

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

// Whoever may not read a folder cannot have its entries written out to the disk.
constexpr int kToChange = R_OK | W_OK | X_OK;

// Whether nobody may rename or delete it, whatever his rights.
bool IsFixed(int folder, const std::string& name, int flags = AT_SYMLINK_NOFOLLOW) {
  struct ::statx status;
  constexpr std::uint64_t kFixed = STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND;
  return ::statx(folder, name.c_str(), flags, 0, &status) == 0 &&
         (status.stx_attributes & kFixed) != 0;
}

}  // namespace

bool MayChange(const fs::path& folder) {
  struct ::stat status;
  return ::stat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         ::faccessat(AT_FDCWD, folder.c_str(), kToChange, AT_EACCESS) == 0 &&
         !IsFixed(AT_FDCWD, folder.native(), 0);
}

bool MayWrite(const fs::path& file) {
  return ::faccessat(AT_FDCWD, file.c_str(), W_OK, AT_EACCESS) == 0;
}

// In a folder with the sticky bit an entry is its owner's to take away, and the folder's owner's.
bool MayTakeAway(int folder, const std::string& name) {
  const std::string parent = ParentOf(name);
  const std::string in = parent.empty() ? "." : parent;
  if (::faccessat(folder, in.c_str(), kToChange, AT_EACCESS) != 0) return false;
  if (IsFixed(folder, name) || IsFixed(folder, in)) return false;
  struct ::stat above;
  struct ::stat entry;
  if (::fstatat(folder, in.c_str(), &above, 0) != 0 ||
      ::fstatat(folder, name.c_str(), &entry, AT_SYMLINK_NOFOLLOW) != 0) {
    return false;
  }
  const ::uid_t self = ::geteuid();
  return (above.st_mode & S_ISVTX) == 0 || self == 0 || self == above.st_uid ||
         self == entry.st_uid;
}

}  // namespace quorbix::virtdisk::internal::guard
