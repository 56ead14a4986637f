#ifndef QUORBIX_VIRTDISK_TOOL_MAP_LOOKS_H_
#define QUORBIX_VIRTDISK_TOOL_MAP_LOOKS_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "disk/map.h"

namespace quorbix::virtdisk::tool {

// A look's number divided by this leaves its brightness, where a set of looks has several.
inline constexpr std::uint32_t kBrightnesses = 3;

// Gives every owner one of the looks 0 to `looks` - 1 so that files that touch have different ones
// when they are drawn in rows of `columns` cells: side by side, at the end of a row and the
// beginning of the next, and one below the other. Where a look is free to choose it is of another
// brightness than what it touches, then the one that the fewest have.
//
// Six are enough where every file is in one part. Those in many parts touch many others: where
// none is left, one of `spare` looks is taken that come behind, and where none of these is left,
// the one that is met at the fewest cells.
std::vector<std::uint32_t> LooksOf(std::size_t owners, const std::vector<Cell>& cells,
                                   std::size_t columns, std::uint32_t looks,
                                   std::uint32_t spare = 0);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_MAP_LOOKS_H_
