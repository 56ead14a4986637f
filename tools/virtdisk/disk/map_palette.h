#ifndef QUORBIX_VIRTDISK_TOOL_MAP_PALETTE_H_
#define QUORBIX_VIRTDISK_TOOL_MAP_PALETTE_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "disk/map.h"

namespace quorbix::virtdisk::tool {

// Plain colours for a picture, as "#RRGGBB".
const char* AreaColour(Area area);

// As many colours of files differ so clearly that whoever has no receptors for long, middle or
// short waves can tell them apart, too.
inline constexpr std::uint32_t kClearColours = 8;

// Whether lines are drawn over the colour number `index` of files: as many looks more, for files
// that touch others of all colours.
constexpr bool IsLined(std::size_t index) { return index / kClearColours % 2 == 1; }

// The colour number `index` of files. Those whose numbers leave different rests when divided by
// kClearColours differ clearly, and in brightness too where the rests do when divided by
// kBrightnesses; the others are shades of one colour. None is red or grey, which mean something
// else.
std::string FileColour(std::size_t index);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_MAP_PALETTE_H_
