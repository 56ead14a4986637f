#ifndef QUORBIX_VIRTDISK_GUARD_DISK_NAMES_H_
#define QUORBIX_VIRTDISK_GUARD_DISK_NAMES_H_

#include <string>
#include <unordered_map>
#include <unordered_set>

namespace quorbix::virtdisk::internal::guard {

// The short names in use in every directory of the disk, and new ones that keep clear of them.
class DiskNames {
 public:
  // Marks a name as used. `shortName` is the slot's eleven bytes, in any case.
  void Use(const std::string& directory, const std::string& shortName);
  // The same for a name as it is listed: "README.TXT".
  void UseListed(const std::string& diskPath);

  // A name for the host's `hostName` in `directory`, by the ordinary rules of short names, as it is
  // listed; it is in use from now on. Where a build gives up after "~99", the tails go on to
  // "~999999". Empty when there is none, or only one that is listed nowhere.
  std::string Take(const std::string& directory, const std::string& hostName);

 private:
  struct Directory {
    std::unordered_set<std::string> names;  // the slots' eleven bytes
    // By the name with the first tail of as many digits.
    std::unordered_map<std::string, int> nextTails;
  };
  static std::string FreeWithTail(const std::string& shortName, Directory& directory);

  std::unordered_map<std::string, Directory> used;  // by key
};

// Whether a host name is its own short name, letter case aside: "readme.txt", but not "a+b.txt".
bool IsOwnShortName(const std::string& hostName);

// The eleven bytes, upper-case and padded, of a name as it is listed.
std::string ShortNameOf(const std::string& listedName);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_DISK_NAMES_H_
