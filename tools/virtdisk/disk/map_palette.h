#ifndef QUORBIX_VIRTDISK_TOOL_MAP_PALETTE_H_
#define QUORBIX_VIRTDISK_TOOL_MAP_PALETTE_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "disk/map.h"

namespace quorbix::virtdisk::tool {

// Plain colours for a picture, as "#RRGGBB".
const char* AreaColour(Area area);

// As many brightnesses as the colours of files take in turn.
inline constexpr std::size_t kBrightnesses = 3;

// The colour number `index` of files. Each differs from the next one, and from all whose numbers
// leave another rest when divided by kBrightnesses, in brightness as well as in hue, so that
// whoever sees few colours, or a print in grey, can tell them apart. None is red or grey, which
// mean something else.
std::string FileColour(std::size_t index);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_MAP_PALETTE_H_
