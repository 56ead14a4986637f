#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_ACCESS_LIST_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_ACCESS_LIST_H_

#include <sys/types.h>
#include <sys/xattr.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

namespace quorbix::virtdisk::test {

// Access control lists, as the kernel keeps them.
inline constexpr char kAccessList[] = "system.posix_acl_access";
inline constexpr char kListForNewFiles[] = "system.posix_acl_default";

// user::rw-, user:1000:rw-, group::---, mask::rw-, other::---
inline constexpr std::string_view kForUser1000{
    "\x02\0\0\0"
    "\x01\0\x06\0\xFF\xFF\xFF\xFF"
    "\x02\0\x06\0\xE8\x03\0\0"
    "\x04\0\0\0\xFF\xFF\xFF\xFF"
    "\x10\0\x06\0\xFF\xFF\xFF\xFF"
    "\x20\0\0\0\xFF\xFF\xFF\xFF",
    44};

// False: the file system has no such attributes.
inline bool SetAttribute(const std::filesystem::path& path, const char* name,
                         std::string_view value) {
  return ::setxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
}

// "-": there is none.
inline std::string AttributeOf(const std::filesystem::path& path, const char* name) {
  std::array<char, 256> value{};
  const ::ssize_t got = ::getxattr(path.c_str(), name, value.data(), value.size());
  return got < 0 ? "-" : std::string(value.data(), static_cast<std::size_t>(got));
}

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_ACCESS_LIST_H_
