#ifndef QUORBIX_VIRTDISK_TOOL_MAP_PAGE_H_
#define QUORBIX_VIRTDISK_TOOL_MAP_PAGE_H_

#include <string_view>

namespace quorbix::virtdisk::tool {

// The parts of a map's page that are the same for every disk.
extern const std::string_view kPageStyle;
extern const std::string_view kPageMapOpening;  // up to the picture
extern const std::string_view kPageFiles;       // the list and its search
extern const std::string_view kPageScript;

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_MAP_PAGE_H_
