#include "disk/map_text.h"

#include <algorithm>
#include <array>

#include "terminal/columns.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr unsigned kMargin = 2;
constexpr unsigned kFewestColumns = 16;
constexpr unsigned kMostColumns = 128;
constexpr std::size_t kMostRows = 24;
constexpr std::size_t kMostFragmented = 10;

struct Look {
  char symbol;
  unsigned colour;  // background, of the 256 that terminals know
};

// In the order of Area.
constexpr std::array<Look, kAreaCount> kLooks{
    {{'=', 238}, {'%', 244}, {'D', 25}, {'#', 0}, {'h', 60}, {'.', 235}, {'!', 160}, {'x', 130}}};
constexpr char kPartlyFilled = '+';
// Neighbours in this order stand apart; none is the red of what is lost.
constexpr std::array<unsigned, 12> kFileColours{37,  172, 71, 133, 179, 67,
                                                107, 168, 30, 143, 97,  73};

const Look& LookOf(Area area) { return kLooks[static_cast<std::size_t>(area)]; }

char Symbol(const Cell& cell) {
  return cell.area == Area::kFile && cell.filled < 0.5 ? kPartlyFilled : LookOf(cell.area).symbol;
}

unsigned Colour(const Cell& cell) {
  if (cell.area != Area::kFile) return LookOf(cell.area).colour;
  return kFileColours[cell.owner % kFileColours.size()];
}

std::string StartColour(unsigned colour) {
  return "\x1b[38;5;255;48;5;" + std::to_string(colour) + "m";
}

std::string DrawRow(const Cell* cells, std::size_t count, bool colour) {
  std::string row(kMargin, ' ');
  unsigned current = 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (colour && (i == 0 || Colour(cells[i]) != current)) {
      current = Colour(cells[i]);
      row += StartColour(current);
    }
    row += Symbol(cells[i]);
  }
  if (colour) row += kColourEnd;
  return row + "\n";
}

std::string LegendItem(Area area, std::uint32_t clusters, bool colour) {
  const Look& look = LookOf(area);
  std::string item(kMargin, ' ');
  const unsigned shown = area == Area::kFile ? kFileColours[0] : look.colour;
  if (colour) item += StartColour(shown);
  item += look.symbol;
  if (colour) item += kColourEnd;
  item += "  ";
  item += AreaName(area);
  const bool inClusters = area != Area::kSystem && area != Area::kRoot;
  if (inClusters) item += ": " + Count(clusters, "cluster", "clusters");
  return item + "\n";
}

std::string Legend(const DiskMap& map, const Drawing& drawing, bool colour) {
  const std::vector<std::uint32_t> counts = CountAreas(map);
  std::string legend;
  for (std::size_t i = 0; i < kAreaCount; ++i) {
    const auto area = static_cast<Area>(i);
    const bool isRare = area == Area::kHidden || area == Area::kBad;
    if (!isRare || counts[i] != 0) legend += LegendItem(area, counts[i], colour);
  }
  const bool partly = std::any_of(drawing.cells.begin(), drawing.cells.end(),
                                  [](const Cell& cell) { return Symbol(cell) == kPartlyFilled; });
  if (partly) legend += "  +  files, less than half of the cell\n";
  return legend;
}

std::string Fragmented(const DiskMap& map) {
  std::string lines;
  std::size_t count = 0;
  for (const Owner& owner : map.owners) {
    if (owner.runs.size() < 2) continue;
    if (++count > kMostFragmented) continue;
    lines += "  " + Printable(owner.path) + ": " + GroupDigits(owner.runs.size()) + "\n";
  }
  if (count == 0) return {};
  if (count > kMostFragmented) {
    lines += "  and " + GroupDigits(count - kMostFragmented) + " more\n";
  }
  return "\nIn several fragments:\n" + lines;
}

}  // namespace

std::string DrawText(const DiskMap& map, const std::string& heading, const TextStyle& style) {
  const std::size_t columns =
      std::clamp(style.width, kFewestColumns + kMargin, kMostColumns + kMargin) - kMargin;
  const Drawing drawing = DrawCells(map, columns * kMostRows);
  std::string text = Printable(heading) + "\n";
  text += "One cell: " + Count(drawing.clustersPerCell, "cluster", "clusters") + " (" +
          FormatBytes(std::uint64_t{drawing.clustersPerCell} * map.clusterBytes) + ")\n\n";
  for (std::size_t begin = 0; begin < drawing.cells.size(); begin += columns) {
    const std::size_t count = std::min(columns, drawing.cells.size() - begin);
    text += DrawRow(drawing.cells.data() + begin, count, style.colour);
  }
  return text + "\n" + Legend(map, drawing, style.colour) + Fragmented(map);
}

std::string DescribeVolume(const DiskMap& map, std::uint64_t imageBytes) {
  return FormatBytes(imageBytes) + ", " + Count(map.clusters.size(), "cluster", "clusters") +
         " of " + FormatBytes(map.clusterBytes);
}

}  // namespace quorbix::virtdisk::tool
