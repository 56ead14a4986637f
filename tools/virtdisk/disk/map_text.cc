#include "disk/map_text.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "common/ascii.h"
#include "disk/map_looks.h"
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
    {{'=', 238}, {'%', 244}, {'D', 25}, {'A', 0}, {'h', 60}, {'.', 235}, {'!', 160}, {'x', 130}}};

// Every two are 20 apart in CIELAB, where 2 can just be seen, in the eyes of everybody, also of
// those who lack a sort of receptors. None is the red of what is lost.
constexpr std::array<unsigned, 8> kTerminalColours{33, 214, 151, 35, 219, 104, 139, 84};
// Those in use for something else left out.
constexpr std::string_view kFileLetters = "ABCEFGIJKLMNOPQRSTUVWYZ";
constexpr unsigned kBlack = 16;
constexpr unsigned kWhite = 255;

const Look& LookOf(Area area) { return kLooks[static_cast<std::size_t>(area)]; }

bool IsPartlyFilled(const Cell& cell) { return cell.area == Area::kFile && cell.filled < 0.5; }

std::string StartColour(unsigned letter, unsigned background) {
  return "\x1b[38;5;" + std::to_string(letter) + ";48;5;" + std::to_string(background) + "m";
}

std::string StartColour(Area area) {
  return area == Area::kFile ? StartColour(kBlack, kTerminalColours[0])
                             : StartColour(kWhite, LookOf(area).colour);
}

// The cells, row by row. Files that touch have other letters and, where the terminal knows any,
// other colours.
class Rows {
 public:
  Rows(const std::vector<Cell>& theCells, std::size_t owners, std::size_t theColumns)
      : cells(theCells),
        columns(theColumns),
        letters(LooksOf(owners, cells, columns, kFileLetters.size())),
        colours(LooksOf(owners, cells, columns, kTerminalColours.size())) {}

  std::string Draw(bool colour) const {
    std::string text;
    for (std::size_t begin = 0; begin < cells.size(); begin += columns) {
      text += DrawRow(begin, std::min(begin + columns, cells.size()), colour);
    }
    return text;
  }

 private:
  std::string DrawRow(std::size_t begin, std::size_t end, bool colour) const {
    std::string row(kMargin, ' ');
    std::string current;
    for (std::size_t i = begin; i < end; ++i) {
      const std::string start = StartColourOf(cells[i]);
      if (colour && start != current) row += start;
      current = start;
      row += Symbol(cells[i]);
    }
    if (colour) row += kColourEnd;
    return row + "\n";
  }

  char Symbol(const Cell& cell) const {
    if (cell.area != Area::kFile) return LookOf(cell.area).symbol;
    const char letter = kFileLetters[letters[cell.owner]];
    return IsPartlyFilled(cell) ? internal::ToAsciiLower(letter) : letter;
  }

  std::string StartColourOf(const Cell& cell) const {
    if (cell.area != Area::kFile) return StartColour(cell.area);
    return StartColour(kBlack, kTerminalColours[colours[cell.owner]]);
  }

  const std::vector<Cell>& cells;
  const std::size_t columns;
  const std::vector<std::uint32_t> letters;  // by owner
  const std::vector<std::uint32_t> colours;
};

std::string LegendItem(Area area, std::uint32_t clusters, bool colour) {
  std::string item(kMargin, ' ');
  if (colour) item += StartColour(area);
  item += LookOf(area).symbol;
  if (colour) item += kColourEnd;
  item += "  ";
  item += AreaName(area);
  const bool inClusters = area != Area::kSystem && area != Area::kRoot;
  if (inClusters) item += ": " + Count(clusters, "cluster", "clusters");
  if (area == Area::kFile && clusters != 0) item += ", other letters where they touch";
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
  const bool partly = std::any_of(drawing.cells.begin(), drawing.cells.end(), IsPartlyFilled);
  if (partly) legend += "  a  files, less than half of the cell\n";
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
  text += Rows(drawing.cells, map.owners.size(), columns).Draw(style.colour);
  return text + "\n" + Legend(map, drawing, style.colour) + Fragmented(map);
}

std::string DescribeVolume(const DiskMap& map, std::uint64_t imageBytes) {
  return FormatBytes(imageBytes) + ", " + Count(map.clusters.size(), "cluster", "clusters") +
         " of " + FormatBytes(map.clusterBytes);
}

}  // namespace quorbix::virtdisk::tool
