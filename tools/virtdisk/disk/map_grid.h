#ifndef QUORBIX_VIRTDISK_TOOL_MAP_GRID_H_
#define QUORBIX_VIRTDISK_TOOL_MAP_GRID_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "disk/map.h"

namespace quorbix::virtdisk::tool {

// The cells of a disk, row by row, as a part of an SVG picture. All lengths are in its units.
class MapGrid {
 public:
  // As wide as `gridWidth`, with the first cell at `left` and `top`. `theMap` has to outlive this.
  MapGrid(const DiskMap& theMap, double gridWidth, double left, double top);

  // What the elements refer to: to be put into the picture's <defs>.
  std::string Definitions() const;

  // Bars of one kind belong to one group, so that pointing at one shows them all; the group of a
  // file or a directory is marked with its number among the map's owners, as `data-owner`.
  std::string Elements() const;

  // `One cell = 4 clusters (2 KiB)`
  std::string Scale() const;

  const Drawing& Cells() const { return drawing; }
  // The number of a file's colour, for FillOf.
  std::uint32_t ColourOf(std::uint32_t owner) const {
    return owner == kNobody ? kNobody : colours[owner];
  }
  std::size_t Columns() const { return columns; }
  double Pitch() const { return pitch; }  // from one cell to the next
  double Bottom() const;                  // of the last row

 private:
  double CellLeft(std::size_t cell) const;
  double CellTop(std::size_t cell) const;
  double CellSide() const;
  std::string Bar(std::size_t begin, std::size_t end) const;
  std::string Background() const;
  std::string LinedColours() const;
  std::string Slack() const;
  std::string Title(Area area, std::uint32_t owner) const;

  const DiskMap& map;
  Drawing drawing;
  double x;
  double y;
  std::size_t columns = 1;
  double pitch = 1;
  std::vector<std::uint32_t> colours;  // by owner
};

// Numbers of colours, by owner, for files drawn in rows of `columns` cells: all different, and
// clearly so where files touch (see LooksOf), by lines over the colour where that has to be.
std::vector<std::uint32_t> ColourNumbers(std::size_t owners, const std::vector<Cell>& cells,
                                         std::size_t columns);

// Short decimal: at most two places, no trailing zeros.
std::string SvgNumber(double value);

// A rectangle, with `rest` as the remaining attributes.
std::string SvgRect(double x, double y, double width, double height, const std::string& rest);

// How an area, or a file of that colour, is filled; what means harm has a pattern beside its
// colour.
std::string FillOf(Area area, std::uint32_t colour);

// `2-3, 9`, and how many more there are.
std::string RunsText(const Owner& owner);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_MAP_GRID_H_
