#ifndef QUORBIX_VIRTDISK_TOOL_WRAPPING_H_
#define QUORBIX_VIRTDISK_TOOL_WRAPPING_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace quorbix::virtdisk::tool {

// How many columns a printable UTF-8 text takes, one for each character; what sets a colour takes
// none.
std::size_t ColumnsOf(std::string_view text);

// Breaks lines that are wider than `columns` at blanks. What follows a break stands below the
// beginning of the line's last column of a table ("--size TEXT   Size of the image"), where there
// is one that leaves enough room, else two columns further in than the line. Words are never
// broken, so that a path can still be copied.
std::string Wrap(std::string_view text, std::size_t columns);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_WRAPPING_H_
