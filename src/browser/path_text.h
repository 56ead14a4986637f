#ifndef QUORBIX_VIRTDISK_BROWSER_PATH_TEXT_H_
#define QUORBIX_VIRTDISK_BROWSER_PATH_TEXT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace quorbix::virtdisk::internal {

// The key under which a path is looked up: "/" in front of every component, backslashes taken as
// "/", runs of separators reduced to one, none at the end, ASCII lower case. The root, and a path
// with no component at all, is "/". "." and ".." are components like any other.
std::string NormalizePath(std::string_view path);

// The text of a field of `width` bytes, padded with blanks or ended by a NUL.
std::string TrimPaddedAscii(const std::uint8_t* field, std::size_t width);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BROWSER_PATH_TEXT_H_
