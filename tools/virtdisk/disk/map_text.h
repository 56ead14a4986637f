#ifndef QUORBIX_VIRTDISK_TOOL_MAP_TEXT_H_
#define QUORBIX_VIRTDISK_TOOL_MAP_TEXT_H_

#include <string>

#include "disk/map.h"

namespace quorbix::virtdisk::tool {

struct TextStyle {
  unsigned width = 80;  // columns
  bool colour = false;
};

// The disk as lines of text: a heading, rows of cells, a legend, and the fragmented files.
std::string DrawText(const DiskMap& map, const std::string& heading, const TextStyle& style);

// `3 MiB, 6,062 clusters of 512 bytes`
std::string DescribeVolume(const DiskMap& map, std::uint64_t imageBytes);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_MAP_TEXT_H_
