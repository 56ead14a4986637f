#include "common/file_rights.h"

#include <sys/types.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorbix::virtdisk::internal {
namespace {

constexpr char kAccessList[] = "system.posix_acl_access";
constexpr std::string_view kOfTheUser = "user.";
constexpr ::mode_t kGroupBits = 070;
constexpr ::mode_t kAllBits = 07777;

// Nothing where there is none, or the file system knows none.
std::optional<std::vector<char>> Attribute(const char* path, const char* name) {
  const ::ssize_t size = ::getxattr(path, name, nullptr, 0);
  if (size < 0) return std::nullopt;
  std::vector<char> value(static_cast<std::size_t>(size));
  const ::ssize_t got = ::getxattr(path, name, value.data(), value.size());
  if (got < 0) return std::nullopt;
  value.resize(static_cast<std::size_t>(got));
  return value;
}

void CopyUserAttributes(int file, const char* path) {
  const ::ssize_t size = ::listxattr(path, nullptr, 0);
  if (size <= 0) return;
  std::string names(static_cast<std::size_t>(size), '\0');
  const ::ssize_t got = ::listxattr(path, names.data(), names.size());
  if (got <= 0) return;
  names.resize(static_cast<std::size_t>(got));
  for (std::size_t begin = 0; begin < names.size();) {
    const std::string name = names.c_str() + begin;
    begin += name.size() + 1;
    if (!name.starts_with(kOfTheUser)) continue;
    const auto value = Attribute(path, name.c_str());
    // One that the file system has no place for is no reason to fail.
    if (value) ::fsetxattr(file, name.c_str(), value->data(), value->size(), 0);
  }
}

// Only the superuser may give files away, and to groups of their own whoever owns them.
bool TakeOverGroup(int file, const struct ::stat& status) {
  if (::fchown(file, status.st_uid, status.st_gid) == 0) return true;
  struct ::stat now {};
  return ::fchown(file, static_cast<::uid_t>(-1), status.st_gid) == 0 ||
         (::fstat(file, &now) == 0 && now.st_gid == status.st_gid);
}

// With the group's bits cut to those that others have.
::mode_t ForAnotherGroup(::mode_t mode) {
  const ::mode_t others = (mode & 07U) << 3U;
  return (mode & ~kGroupBits) | (mode & kGroupBits & others);
}

}  // namespace

bool TakeOverRights(int file, const std::filesystem::path& old, const struct ::stat& status) {
  const ::mode_t mode = status.st_mode & kAllBits;
  const bool isOfItsGroup = TakeOverGroup(file, status);
  const auto list = Attribute(old.c_str(), kAccessList);
  // The one that the folder gives to new files, where the old one has none of its own.
  ::fremovexattr(file, kAccessList);
  CopyUserAttributes(file, old.c_str());
  if (!isOfItsGroup) return ::fchmod(file, ForAnotherGroup(mode)) == 0;
  if (!list) return ::fchmod(file, mode) == 0;
  // With a list the group's bits of a mode say what all whom it names have at most.
  if (::fchmod(file, mode & ~kGroupBits) != 0) return false;
  ::fsetxattr(file, kAccessList, list->data(), list->size(), 0);  // which sets those bits, too
  return true;
}

}  // namespace quorbix::virtdisk::internal
