#ifndef QUORBIX_VIRTDISK_TOOL_MAP_SVG_H_
#define QUORBIX_VIRTDISK_TOOL_MAP_SVG_H_

#include <string>
#include <string_view>

#include "disk/map.h"

namespace quorbix::virtdisk::tool {

// How every picture begins, now and later: who replaces one knows it by that.
inline constexpr std::string_view kSvgBeginning =
    R"(<svg xmlns="http://www.w3.org/2000/svg" data-drawn-by="virtdisk map" )";

// The disk as an SVG picture: cells row by row, every file in a colour of its own that all its
// fragments share, a legend, the largest files by size and the others by directory, and texts on
// hover that name path, size and fragments.
std::string DrawSvg(const DiskMap& map, const std::string& title, const std::string& subtitle);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_MAP_SVG_H_
