#ifndef QUORBIX_VIRTDISK_TOOL_NAMES_H_
#define QUORBIX_VIRTDISK_TOOL_NAMES_H_

#include <string>
#include <string_view>
#include <unordered_set>

namespace quorbix::virtdisk::tool {

// A build does not tell the names that it gave. These functions find them again: a short name is
// eight characters of base and three of extension, blank-padded, without a dot.

// The short name of a host name, or nothing when it has none.
std::string ShortName(std::string_view hostName);

// The short names of one directory, handed out in the order in which the host lists the entries.
class DirectoryNames {
 public:
  // Returns a name that no earlier call returned, with a numeric tail where it needs one; nothing
  // when the host name has none or its tails "~1" to "~99" are all taken.
  std::string Take(std::string_view hostName);

 private:
  std::unordered_set<std::string> taken;
};

// How a short name is listed: "README  TXT" -> "README.TXT". A blank base gives nothing, because
// such an entry is not listed at all.
std::string ShownName(std::string_view shortName);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_NAMES_H_
