#ifndef QUORBIX_VIRTDISK_TOOL_COLUMNS_H_
#define QUORBIX_VIRTDISK_TOOL_COLUMNS_H_

#include <cstddef>
#include <string>

namespace quorbix::virtdisk::tool {

// Ends whatever colour is on.
inline constexpr char kColourEnd[] = "\x1b[0m";

// A directory's name as lists show it: `SUB/`.
std::string ShownDirectory(const std::string& name, bool colour);

// Texts of ASCII with blanks in front or behind, to be `width` columns wide; longer ones stay
// whole.
std::string AlignRight(std::string text, std::size_t width);
std::string AlignLeft(std::string text, std::size_t width);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_COLUMNS_H_
