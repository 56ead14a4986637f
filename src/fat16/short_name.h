#ifndef QUORBIX_VIRTDISK_FAT16_SHORT_NAME_H_
#define QUORBIX_VIRTDISK_FAT16_SHORT_NAME_H_

#include <string>
#include <string_view>
#include <unordered_set>

namespace quorbix::virtdisk::internal {

// A short name is eleven characters: a base of 8 and an extension of 3, each padded with blanks,
// without a dot. The empty string means that there is none.

// Maps a host file name to its short name. Letters become upper-case, and whatever is no ASCII
// letter, digit or one of "!#$%&'()-@^_`{}~" becomes "_". Empty for "" and ".".
std::string ToFat83Name(std::string_view hostName);

// The short name with a tail "~<number>" that ends in the eighth column of its base.
std::string WithTail(std::string_view shortName, int number);

// Maps a host file name to a short name that is not in `used`: the plain one, else one whose base
// ends, in its eighth column, in a tail "~1" to "~99". Empty when there is none.
std::string UniqueFat83Name(std::string_view hostName, const std::unordered_set<std::string>& used);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_FAT16_SHORT_NAME_H_
