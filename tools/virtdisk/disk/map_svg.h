#ifndef QUORBIX_VIRTDISK_TOOL_MAP_SVG_H_
#define QUORBIX_VIRTDISK_TOOL_MAP_SVG_H_

#include <cstddef>
#include <string>

#include "disk/map.h"

namespace quorbix::virtdisk::tool {

// The disk as an SVG picture: cells row by row, every file in a colour of its own that all its
// fragments share, a legend, and texts on hover that name path, size and fragments.
std::string DrawSvg(const DiskMap& map, const std::string& title, const std::string& subtitle);

// The colour of the file number `index`, as "#RRGGBB". Neighbours are far apart in hue, and none is
// red or grey, which mean something else.
std::string FileColour(std::size_t index);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_MAP_SVG_H_
