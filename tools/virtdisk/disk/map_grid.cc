#include "disk/map_grid.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "disk/map_looks.h"
#include "disk/map_palette.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::size_t kMostCells = 4608;
constexpr std::size_t kMostRunsTold = 8;
constexpr double kGap = 2;           // between two cells
constexpr double kSeenSlack = 0.04;  // share of a cell below which it is not drawn
// Of a cell. What is above has the file's own colour, however little of the cell the file fills.
constexpr double kSlackHeight = 0.3;

std::string OwnerTitle(const Owner& owner) {
  std::string title = Printable(owner.path) + "\n";
  title += owner.isDirectory ? "directory" : Count(owner.size, "byte", "bytes");
  title += ", " + Count(owner.Clusters(), "cluster", "clusters") + "\n";
  title += Count(owner.runs.size(), "fragment", "fragments") + ": " + RunsText(owner);
  if (owner.isHidden) title += "\nin no listing";
  return title;
}

std::string EscapeLines(const std::string& text) {
  std::string escaped;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    if (begin != 0) escaped += "\n";
    escaped += EscapeXml(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return escaped;
}

std::string Pattern(const std::string& id, const std::string& colour, const char* strokes) {
  return "<pattern id=\"" + id + "\" patternUnits=\"userSpaceOnUse\" width=\"6\" height=\"6\">" +
         SvgRect(0, 0, 6, 6, " fill=\"" + colour + "\"") + "<path d=\"" + strokes +
         "\" stroke=\"#fff\" stroke-opacity=\"0.75\" fill=\"none\"/></pattern>";
}

}  // namespace

std::string SvgNumber(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.2f", value);
  std::string number = text.data();
  number.erase(number.find_last_not_of('0') + 1);
  if (number.back() == '.') number.pop_back();
  return number;
}

std::string SvgRect(double x, double y, double width, double height, const std::string& rest) {
  return "<rect x=\"" + SvgNumber(x) + "\" y=\"" + SvgNumber(y) + "\" width=\"" + SvgNumber(width) +
         "\" height=\"" + SvgNumber(height) + "\"" + rest + "/>";
}

std::string FillOf(Area area, std::uint32_t colour) {
  switch (area) {
    case Area::kFile:
      if (IsLined(colour)) return "url(#lined" + std::to_string(colour % kClearColours) + ")";
      return FileColour(colour);
    case Area::kHidden:
      return "url(#hidden)";
    case Area::kLost:
      return "url(#lost)";
    case Area::kBad:
      return "url(#bad)";
    default:
      return AreaColour(area);
  }
}

std::string RunsText(const Owner& owner) {
  std::string text;
  const std::vector<ClusterRun>& runs = owner.runs;
  for (std::size_t i = 0; i < std::min(runs.size(), kMostRunsTold); ++i) {
    if (i != 0) text += ", ";
    text += std::to_string(runs[i].first);
    if (runs[i].count > 1) text += "-" + std::to_string(runs[i].first + runs[i].count - 1);
  }
  if (runs.size() > kMostRunsTold) {
    text += " and " + GroupDigits(runs.size() - kMostRunsTold) + " more";
  }
  return text;
}

MapGrid::MapGrid(const DiskMap& theMap, double gridWidth, double left, double top)
    : map(theMap), drawing(DrawCells(theMap, kMostCells)), x(left), y(top) {
  // About three times as wide as high, within cells of a size that can be told apart.
  const auto cells = static_cast<double>(drawing.cells.size());
  columns = static_cast<std::size_t>(std::clamp(std::ceil(std::sqrt(cells * 3.5)), 28.0, 120.0));
  pitch = (gridWidth + kGap) / static_cast<double>(columns);
  colours = ColourNumbers(map.owners.size(), drawing.cells, columns);
}

std::vector<std::uint32_t> ColourNumbers(std::size_t owners, const std::vector<Cell>& cells,
                                         std::size_t columns) {
  constexpr std::uint32_t kLooks = 2 * kClearColours;  // without lines and with
  std::vector<std::uint32_t> colours =
      LooksOf(owners, cells, columns, kClearColours, kClearColours);
  std::array<std::uint32_t, kLooks> next{};
  for (std::uint32_t& colour : colours) colour += kLooks * next[colour]++;
  return colours;
}

double MapGrid::CellLeft(std::size_t cell) const {
  return x + pitch * static_cast<double>(cell % columns);
}

double MapGrid::CellTop(std::size_t cell) const {
  const std::size_t row = cell / columns;
  return y + pitch * static_cast<double>(row);
}

double MapGrid::CellSide() const { return pitch - kGap; }

double MapGrid::Bottom() const {
  const std::size_t rows = (drawing.cells.size() + columns - 1) / columns;
  return y + pitch * static_cast<double>(rows);
}

std::string MapGrid::Scale() const {
  return "One cell = " + Count(drawing.clustersPerCell, "cluster", "clusters") + " (" +
         FormatBytes(std::uint64_t{drawing.clustersPerCell} * map.clusterBytes) + ")";
}

// Those that are drawn.
std::string MapGrid::LinedColours() const {
  std::set<std::uint32_t> lined;
  for (const std::uint32_t colour : colours) {
    if (IsLined(colour)) lined.insert(colour % kClearColours);
  }
  std::string patterns;
  for (const std::uint32_t colour : lined) {
    patterns += Pattern("lined" + std::to_string(colour), FileColour(colour), "M0 1.5H6M0 4.5H6");
  }
  return patterns;
}

std::string MapGrid::Definitions() const {
  const std::string side = SvgNumber(pitch);
  return "<pattern id=\"free\" patternUnits=\"userSpaceOnUse\" x=\"" + SvgNumber(x) + "\" y=\"" +
         SvgNumber(y) + "\" width=\"" + side + "\" height=\"" + side + "\">" +
         SvgRect(0, 0, CellSide(), CellSide(),
                 " rx=\"" + SvgNumber(std::min(4.0, CellSide() / 4)) + "\" fill=\"" +
                     AreaColour(Area::kFree) + "\"") +
         "</pattern>" + Pattern("hidden", AreaColour(Area::kHidden), "M1.5 0V6M4.5 0V6") +
         Pattern("lost", AreaColour(Area::kLost), "M-1 1L1 -1M0 6L6 0M5 7L7 5") +
         Pattern("bad", AreaColour(Area::kBad), "M0 0L6 6M0 6L6 0") + LinedColours();
}

std::string MapGrid::Elements() const {
  using Kind = std::pair<Area, std::uint32_t>;
  std::map<Kind, std::string> groups;
  const std::vector<Cell>& cells = drawing.cells;
  for (std::size_t begin = 0; begin < cells.size();) {
    const Kind kind{cells[begin].area, cells[begin].owner};
    const std::size_t rowEnd = std::min(cells.size(), (begin / columns + 1) * columns);
    std::size_t end = begin + 1;
    while (end < rowEnd && Kind{cells[end].area, cells[end].owner} == kind) ++end;
    if (kind.first != Area::kFree) groups[kind] += Bar(begin, end);
    begin = end;
  }
  std::string elements = Background();
  for (const auto& [kind, bars] : groups) {
    const bool isOwned = kind.second != kNobody;
    elements += "<g class=\"g\"";
    if (isOwned) elements += " data-owner=\"" + std::to_string(kind.second) + "\"";
    elements += " fill=\"" + FillOf(kind.first, ColourOf(kind.second)) + "\"><title>" +
                EscapeLines(Title(kind.first, kind.second)) + "</title>" + bars + "</g>\n";
  }
  return elements + Slack();
}

// Cells from `begin` to `end`, which lie in one row, as one bar.
std::string MapGrid::Bar(std::size_t begin, std::size_t end) const {
  return SvgRect(CellLeft(begin), CellTop(begin), pitch * static_cast<double>(end - begin) - kGap,
                 CellSide(), " rx=\"" + SvgNumber(std::min(4.0, CellSide() / 4)) + "\"");
}

// Free cells are one pattern below everything else; the last row may be a part of one.
std::string MapGrid::Background() const {
  const std::size_t fullRows = drawing.cells.size() / columns;
  const std::size_t rest = drawing.cells.size() % columns;
  std::string text = "<g fill=\"url(#free)\"><title>free</title>";
  if (fullRows != 0) {
    text += SvgRect(x, y, pitch * static_cast<double>(columns),
                    pitch * static_cast<double>(fullRows), "");
  }
  if (rest != 0) {
    text += SvgRect(x, CellTop(fullRows * columns), pitch * static_cast<double>(rest), pitch, "");
  }
  return text + "</g>\n";
}

// The end of a cell is pale where its files' last clusters hold nothing.
std::string MapGrid::Slack() const {
  std::string shapes;
  for (std::size_t i = 0; i < drawing.cells.size(); ++i) {
    const double slack = drawing.cells[i].slack;
    if (slack < kSeenSlack) continue;
    const double width = CellSide() * slack;
    const double height = CellSide() * kSlackHeight;
    shapes += "M" + SvgNumber(CellLeft(i) + CellSide() - width) + " " +
              SvgNumber(CellTop(i) + CellSide() - height) + "h" + SvgNumber(width) + "v" +
              SvgNumber(height) + "h" + SvgNumber(-width) + "z";
  }
  if (shapes.empty()) return {};
  return "<path class=\"k\" fill=\"#fff\" pointer-events=\"none\" d=\"" + shapes + "\"/>\n";
}

std::string MapGrid::Title(Area area, std::uint32_t owner) const {
  if (owner == kNobody) return AreaName(area);
  const std::string title = OwnerTitle(map.owners[owner]);
  const bool isHarmed = area == Area::kLost || area == Area::kBad;
  return isHarmed ? std::string(AreaName(area)) + "\n" + title : title;
}

}  // namespace quorbix::virtdisk::tool
