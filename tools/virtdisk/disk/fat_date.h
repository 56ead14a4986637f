#ifndef QUORBIX_VIRTDISK_TOOL_FAT_DATE_H_
#define QUORBIX_VIRTDISK_TOOL_FAT_DATE_H_

#include <cstdint>
#include <string>

namespace quorbix::virtdisk::tool {

inline constexpr char kInvalidDate[] = "invalid date";

// Decodes a directory entry's date and time words to "YYYY-MM-DD hh:mm:ss". A zero date, which
// means that nobody set one, is the empty string; a date or time that no calendar or clock has is
// kInvalidDate.
std::string FormatFatDate(std::uint16_t date, std::uint16_t time);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_FAT_DATE_H_
