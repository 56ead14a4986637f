#include "disk/map_svg.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <utility>
#include <vector>

#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

// All lengths are in pixels.
constexpr double kWidth = 1000;
constexpr double kPadding = 36;
constexpr double kGridTop = 104;
constexpr double kGap = 2;
constexpr double kLegendRow = 24;
constexpr std::size_t kListColumns = 3;
constexpr std::size_t kMostListed = 24;
constexpr std::size_t kMostCells = 4608;
constexpr std::size_t kMostRunsTold = 8;
constexpr std::size_t kListedPathLength = 21;  // in bytes, as far as the column is wide
constexpr std::size_t kListedPathLengthInParts = 14;

// In the order of Area; files have colours of their own.
constexpr std::array<const char*, kAreaCount> kAreaColours{
    "#3f4654", "#8c94a3", "#1f3f66", "#3aa68f", "#7c6a9c", "#e6e2d8", "#d1332e", "#7a1d12"};

const char* ColourOf(Area area) { return kAreaColours[static_cast<std::size_t>(area)]; }

// Short decimal: at most two places, no trailing zeros.
std::string Number(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.2f", value);
  std::string number = text.data();
  number.erase(number.find_last_not_of('0') + 1);
  if (number.back() == '.') number.pop_back();
  return number;
}

std::string Rect(double x, double y, double width, double height, const std::string& rest) {
  return "<rect x=\"" + Number(x) + "\" y=\"" + Number(y) + "\" width=\"" + Number(width) +
         "\" height=\"" + Number(height) + "\"" + rest + "/>";
}

std::string Text(double x, double y, const char* style, const std::string& content) {
  return "<text x=\"" + Number(x) + "\" y=\"" + Number(y) + "\" class=\"" + style + "\">" +
         EscapeXml(content) + "</text>\n";
}

std::string RunsText(const std::vector<ClusterRun>& runs) {
  std::string text;
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

std::string OwnerTitle(const Owner& owner) {
  std::uint64_t clusters = 0;
  for (const ClusterRun& run : owner.runs) clusters += run.count;
  std::string title = Printable(owner.path) + "\n";
  title += owner.isDirectory ? "directory" : Count(owner.size, "byte", "bytes");
  title += ", " + Count(clusters, "cluster", "clusters") + "\n";
  title += Count(owner.runs.size(), "fragment", "fragments") + ": " + RunsText(owner.runs);
  return title;
}

// The end of a long path, which tells more than its beginning; whole names where they fit.
std::string Shortened(const std::string& path, std::size_t length) {
  if (path.size() <= length) return path;
  std::size_t begin = path.size() - length;
  const std::size_t name = path.find('/', begin);
  if (name != std::string::npos) begin = name;
  // Not in the middle of a character.
  while (begin < path.size() && (static_cast<unsigned char>(path[begin]) & 0xC0U) == 0x80U) ++begin;
  return "\xE2\x80\xA6" + path.substr(begin);
}

class Picture {
 public:
  explicit Picture(const DiskMap& theMap) : map(theMap), drawing(DrawCells(theMap, kMostCells)) {
    // About three times as wide as high, within cells of a size that can be told apart.
    const auto cells = static_cast<double>(drawing.cells.size());
    columns = static_cast<std::size_t>(std::clamp(std::ceil(std::sqrt(cells * 3.5)), 28.0, 120.0));
    pitch = (kWidth - 2 * kPadding + kGap) / static_cast<double>(columns);
  }

  std::string Draw(const std::string& title, const std::string& subtitle) {
    // One after the other: each begins below the last.
    std::string body = Grid();
    body += Legend();
    body += FileList();
    const double height = bottom + kPadding - 8;
    return Opening(height, title) + Rect(0, 0, kWidth, height, " rx=\"14\" fill=\"#fbfaf7\"") +
           "\n" + Text(kPadding, 52, "h", title) + Text(kPadding, 78, "s", subtitle) + body +
           "</svg>\n";
  }

 private:
  std::string Opening(double height, const std::string& title) const {
    const std::string pitchText = Number(pitch);
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + Number(kWidth) + " " +
           Number(height) + "\" width=\"" + Number(kWidth) + "\" height=\"" + Number(height) +
           "\" role=\"img\" aria-label=\"Map of the disk " + EscapeXml(title) +
           "\">\n<style>text{font-family:system-ui,'DejaVu Sans',sans-serif;fill:#2b2f38}"
           ".h{font-size:26px;font-weight:700}.s{font-size:14px;fill:#6b7280}"
           ".l{font-size:13px}.n{font-size:13px;fill:#6b7280}"
           ".r{text-anchor:end}.g:hover rect{stroke:#14171c;stroke-width:1.5}</style>\n"
           "<defs><pattern id=\"free\" patternUnits=\"userSpaceOnUse\" x=\"" +
           Number(kPadding) + "\" y=\"" + Number(kGridTop) + "\" width=\"" + pitchText +
           "\" height=\"" + pitchText + "\">" +
           Rect(0, 0, pitch - kGap, pitch - kGap,
                " rx=\"" + Number(Radius()) + "\" fill=\"" + ColourOf(Area::kFree) + "\"") +
           "</pattern></defs>\n";
  }

  double Radius() const { return std::min(4.0, (pitch - kGap) / 4); }

  // Cells from `begin` to `end`, which lie in one row, as one bar.
  std::string Bar(std::size_t begin, std::size_t end) const {
    const double x = kPadding + pitch * static_cast<double>(begin % columns);
    const std::size_t row = begin / columns;
    const double y = kGridTop + pitch * static_cast<double>(row);
    return Rect(x, y, pitch * static_cast<double>(end - begin) - kGap, pitch - kGap,
                " rx=\"" + Number(Radius()) + "\"");
  }

  static bool LookAlike(const Cell& a, const Cell& b) {
    return a.area == b.area && a.owner == b.owner;
  }

  // Bars of the same kind belong to one group, so that hovering over one shows them all.
  std::string Grid() {
    std::map<std::pair<Area, std::uint32_t>, std::string> groups;
    const std::vector<Cell>& cells = drawing.cells;
    for (std::size_t begin = 0; begin < cells.size();) {
      const std::size_t rowEnd = std::min(cells.size(), (begin / columns + 1) * columns);
      std::size_t end = begin + 1;
      while (end < rowEnd && LookAlike(cells[begin], cells[end])) ++end;
      if (cells[begin].area != Area::kFree) {
        groups[{cells[begin].area, cells[begin].owner}] += Bar(begin, end);
      }
      begin = end;
    }
    const std::size_t rows = (cells.size() + columns - 1) / columns;
    bottom = kGridTop + pitch * static_cast<double>(rows);
    std::string grid = Background(rows);
    for (const auto& [kind, bars] : groups) {
      grid += "<g class=\"g\" fill=\"" + GroupColour(kind.first, kind.second) + "\"><title>" +
              EscapeLines(GroupTitle(kind.first, kind.second)) + "</title>" + bars + "</g>\n";
    }
    return grid;
  }

  // Free cells are one pattern below everything else; the last row may be a part of one.
  std::string Background(std::size_t rows) const {
    const std::size_t fullRows = drawing.cells.size() / columns;
    const std::size_t rest = drawing.cells.size() % columns;
    std::string text = "<g fill=\"url(#free)\"><title>free</title>";
    if (fullRows != 0) {
      text += Rect(kPadding, kGridTop, pitch * static_cast<double>(columns),
                   pitch * static_cast<double>(fullRows), "");
    }
    if (rest != 0) {
      text += Rect(kPadding, kGridTop + pitch * static_cast<double>(rows - 1),
                   pitch * static_cast<double>(rest), pitch, "");
    }
    return text + "</g>\n";
  }

  static std::string GroupColour(Area area, std::uint32_t owner) {
    return area == Area::kFile ? FileColour(owner) : ColourOf(area);
  }

  std::string GroupTitle(Area area, std::uint32_t owner) const {
    if (owner == kNobody) return AreaName(area);
    const std::string title = OwnerTitle(map.owners[owner]);
    return area == Area::kLost ? std::string(AreaName(area)) + "\n" + title : title;
  }

  static std::string EscapeLines(const std::string& text) {
    std::string escaped;
    for (std::size_t begin = 0; begin <= text.size();) {
      const std::size_t end = std::min(text.find('\n', begin), text.size());
      if (begin != 0) escaped += "\n";
      escaped += EscapeXml(text.substr(begin, end - begin));
      begin = end + 1;
    }
    return escaped;
  }

  std::string Legend() {
    const std::vector<std::uint32_t> counts = CountAreas(map);
    constexpr double kItemWidth = (kWidth - 2 * kPadding) / kAreaCount;
    bottom += 26;
    std::string legend;
    for (std::size_t i = 0; i < kAreaCount; ++i) {
      const auto area = static_cast<Area>(i);
      const double x = kPadding + kItemWidth * static_cast<double>(i);
      legend += Swatch(x, bottom - 11, area) + Text(x + 20, bottom, "l", AreaName(area));
      const bool inClusters = area != Area::kSystem && area != Area::kRoot;
      const std::string amount =
          inClusters ? Count(counts[i], "cluster", "clusters") : FormatBytes(512 * SectorsOf(area));
      legend += Text(x + 20, bottom + 18, "n", amount);
    }
    bottom += 18;
    return legend;
  }

  // The files' shows a few of their colours.
  static std::string Swatch(double x, double y, Area area) {
    if (area != Area::kFile) {
      return Rect(x, y, 13, 13, std::string(" rx=\"3\" fill=\"") + ColourOf(area) + "\"") + "\n";
    }
    std::string stripes;
    for (std::size_t i = 0; i < 3; ++i) {
      stripes += Rect(x + 4.5 * static_cast<double>(i), y, 4, 13,
                      " rx=\"1.5\" fill=\"" + FileColour(i) + "\"");
    }
    return stripes + "\n";
  }

  std::uint64_t SectorsOf(Area area) const {
    return area == Area::kSystem ? map.systemSectors : map.rootSectors;
  }

  // The largest files, in the order in which they lie on the disk.
  std::vector<std::uint32_t> ListedFiles() const {
    std::vector<std::uint32_t> files;
    for (std::uint32_t i = 0; i < map.owners.size(); ++i) {
      if (!map.owners[i].isDirectory) files.push_back(i);
    }
    std::stable_sort(files.begin(), files.end(), [this](std::uint32_t a, std::uint32_t b) {
      return map.owners[a].size > map.owners[b].size;
    });
    if (files.size() > kMostListed) files.resize(kMostListed);
    std::sort(files.begin(), files.end());
    return files;
  }

  std::string FileList() {
    const std::vector<std::uint32_t> files = ListedFiles();
    if (files.empty()) return {};
    const auto all = static_cast<std::size_t>(
        std::count_if(map.owners.begin(), map.owners.end(),
                      [](const Owner& owner) { return !owner.isDirectory; }));
    bottom += 22;
    std::string list = Rect(kPadding, bottom, kWidth - 2 * kPadding, 1, " fill=\"#e1ddd3\"") + "\n";
    bottom += 30;
    constexpr double kColumnWidth = (kWidth - 2 * kPadding) / kListColumns;
    const std::size_t rows = (files.size() + kListColumns - 1) / kListColumns;
    for (std::size_t i = 0; i < files.size(); ++i) {
      const std::size_t column = i / rows;
      const double x = kPadding + kColumnWidth * static_cast<double>(column);
      const double y = bottom + kLegendRow * static_cast<double>(i % rows);
      list += ListItem(x, y, kColumnWidth - 28, files[i]);
    }
    bottom += kLegendRow * static_cast<double>(rows - 1);
    if (all > files.size()) {
      bottom += kLegendRow;
      list += Text(kPadding, bottom, "n",
                   "and " + Count(all - files.size(), "smaller file", "smaller files"));
    }
    return list;
  }

  std::string ListItem(double x, double y, double width, std::uint32_t file) const {
    const Owner& owner = map.owners[file];
    std::string amount = FormatBytes(owner.size);
    const bool inParts = owner.runs.size() > 1;
    const std::size_t length = inParts ? kListedPathLengthInParts : kListedPathLength;
    if (inParts) amount += " in " + GroupDigits(owner.runs.size()) + " parts";
    return Rect(x, y - 11, 13, 13, " rx=\"3\" fill=\"" + FileColour(file) + "\"") + "\n" +
           Text(x + 20, y, "l", Shortened(Printable(owner.path), length)) +
           Text(x + width, y, "n r", amount);
  }

  const DiskMap& map;
  const Drawing drawing;
  std::size_t columns = 1;
  double pitch = 1;   // from one cell to the next
  double bottom = 0;  // of what is drawn so far
};

}  // namespace

std::string DrawSvg(const DiskMap& map, const std::string& title, const std::string& subtitle) {
  return Picture(map).Draw(title, subtitle);
}

std::string FileColour(std::size_t index) {
  // The golden angle keeps any number of hues apart; here it turns within the hues from orange to
  // pink, which leaves out the red of what is lost.
  constexpr double kFirstHue = 28;
  constexpr double kHues = 300;
  constexpr double kGoldenTurn = 0.61803398875;
  constexpr std::array<double, 3> kLightness{0.60, 0.70, 0.53};
  constexpr double kSaturation = 0.52;
  const auto number = static_cast<double>(index);
  const double hue = kFirstHue + kHues * std::fmod(0.45 + number * kGoldenTurn, 1.0);
  const double lightness = kLightness[index % kLightness.size()];
  const double reach = kSaturation * std::min(lightness, 1 - lightness);
  const auto channel = [&](double shift) {
    const double k = std::fmod(shift + hue / 30, 12.0);
    const double level = lightness - reach * std::max(-1.0, std::min({k - 3, 9 - k, 1.0}));
    return static_cast<unsigned>(std::lround(level * 255));
  };
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "#%02X%02X%02X", channel(0), channel(8), channel(4));
  return text.data();
}

}  // namespace quorbix::virtdisk::tool
