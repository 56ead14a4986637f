#include "disk/map_svg.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "disk/map_grid.h"
#include "disk/map_palette.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

// All lengths are in pixels.
constexpr double kWidth = 1000;
constexpr double kPadding = 36;
constexpr double kGridTop = 104;
constexpr double kLegendRow = 24;
constexpr std::size_t kListColumns = 2;
constexpr std::size_t kMostListed = 24;
constexpr std::size_t kMostDirectories = 12;
constexpr std::size_t kLegendColumns = 4;
constexpr std::size_t kListedPathLength = 38;  // in bytes, as far as the column is wide

std::string Text(double x, double y, const char* style, const std::string& content) {
  return "<text x=\"" + SvgNumber(x) + "\" y=\"" + SvgNumber(y) + "\" class=\"" + style + "\">" +
         EscapeXml(content) + "</text>\n";
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

// Names for a list, each once: what would come twice gets a number.
class UniqueNames {
 public:
  std::string Take(const std::string& path) {
    std::string name = Shortened(Printable(path), kListedPathLength);
    for (int n = 2; !taken.insert(name).second; ++n) {
      name = Shortened(Printable(path), kListedPathLength - 4) + " (" + std::to_string(n) + ")";
    }
    return name;
  }

 private:
  std::set<std::string> taken;
};

struct Group {
  std::string directory;
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
};

std::string DirectoryOf(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

class Picture {
 public:
  explicit Picture(const DiskMap& theMap)
      : map(theMap), grid(theMap, kWidth - 2 * kPadding, kPadding, kGridTop) {}

  std::string Draw(const std::string& title, const std::string& subtitle) {
    // One after the other: each begins below the last.
    bottom = grid.Bottom();
    std::string body = grid.Elements();
    body += Legend();
    const std::vector<std::uint32_t> files = FilesBySize();
    body += FileList(files);
    body += DirectoryList(files);
    const double height = bottom + kPadding - 8;
    return Opening(height, title) + SvgRect(0, 0, kWidth, height, " rx=\"14\" fill=\"#fbfaf7\"") +
           "\n" + Text(kPadding, 52, "h", title) + Text(kPadding, 78, "s", subtitle) +
           Text(kWidth - kPadding, 78, "s r", grid.Scale()) + body + "</svg>\n";
  }

 private:
  std::string Opening(double height, const std::string& title) const {
    return std::string(kSvgBeginning) + "viewBox=\"0 0 " + SvgNumber(kWidth) + " " +
           SvgNumber(height) + "\" width=\"" + SvgNumber(kWidth) + "\" height=\"" +
           SvgNumber(height) + "\" role=\"img\" aria-label=\"Map of the disk " + EscapeXml(title) +
           "\">\n<style>text{font-family:system-ui,'DejaVu Sans',sans-serif;fill:#2b2f38}"
           ".h{font-size:26px;font-weight:700}.s{font-size:14px;fill:#5c6370}"
           ".l{font-size:13px}.n{font-size:13px;fill:#5c6370}"
           ".r{text-anchor:end}.g:hover rect{stroke:#14171c;stroke-width:1.5}</style>\n<defs>" +
           grid.Definitions() + "</defs>\n";
  }

  static std::vector<Area> ShownAreas(const std::vector<std::uint32_t>& counts) {
    std::vector<Area> areas;
    for (std::size_t i = 0; i < kAreaCount; ++i) {
      const auto area = static_cast<Area>(i);
      const bool isRare = area == Area::kHidden || area == Area::kBad;
      if (!isRare || counts[i] != 0) areas.push_back(area);
    }
    return areas;
  }

  std::string Legend() {
    const std::vector<std::uint32_t> counts = CountAreas(map);
    const std::vector<Area> areas = ShownAreas(counts);
    constexpr double kItemWidth = (kWidth - 2 * kPadding) / kLegendColumns;
    bottom += 26;
    std::string legend;
    const std::size_t items = areas.size() + 1;  // and the slack
    for (std::size_t i = 0; i < items; ++i) {
      const std::size_t row = i / kLegendColumns;
      const double x = kPadding + kItemWidth * static_cast<double>(i % kLegendColumns);
      const double y = bottom + 44 * static_cast<double>(row);
      if (i == areas.size()) {
        legend += SlackItem(x, y);
        continue;
      }
      const bool inClusters = areas[i] != Area::kSystem && areas[i] != Area::kRoot;
      const std::string amount =
          inClusters ? Count(counts[static_cast<std::size_t>(areas[i])], "cluster", "clusters")
                     : FormatBytes(512 * SectorsOf(areas[i]));
      legend += Swatch(x, y - 11, areas[i]) + Text(x + 20, y, "l", AreaName(areas[i])) +
                Text(x + 20, y + 18, "n", amount);
    }
    const std::size_t lastRow = (items - 1) / kLegendColumns;
    bottom += 44 * static_cast<double>(lastRow) + 18;
    return legend;
  }

  std::string SlackItem(double x, double y) const {
    return SvgRect(x, y - 11, 13, 13, " rx=\"3\" fill=\"" + FileColour(0) + "\"") +
           SvgRect(x + 5, y - 2, 8, 4, " fill=\"#fff\"") + "\n" +
           Text(x + 20, y, "l", "behind the ends of files") +
           Text(x + 20, y + 18, "n", FormatBytes(SlackBytes(map)));
  }

  // The files' shows a few of their colours.
  static std::string Swatch(double x, double y, Area area) {
    if (area != Area::kFile) {
      return SvgRect(x, y, 13, 13, " rx=\"3\" fill=\"" + FillOf(area, kNobody) + "\"") + "\n";
    }
    std::string stripes;
    for (std::size_t i = 0; i < 3; ++i) {
      stripes += SvgRect(x + 4.5 * static_cast<double>(i), y, 4, 13,
                         " rx=\"1.5\" fill=\"" + FileColour(i) + "\"");
    }
    return stripes + "\n";
  }

  std::uint64_t SectorsOf(Area area) const {
    return area == Area::kSystem ? map.systemSectors : map.rootSectors;
  }

  std::vector<std::uint32_t> FilesBySize() const {
    std::vector<std::uint32_t> files;
    for (std::uint32_t i = 0; i < map.owners.size(); ++i) {
      if (!map.owners[i].isDirectory) files.push_back(i);
    }
    std::stable_sort(files.begin(), files.end(), [this](std::uint32_t a, std::uint32_t b) {
      return map.owners[a].size > map.owners[b].size;
    });
    return files;
  }

  std::string Rule() {
    bottom += 22;
    std::string rule =
        SvgRect(kPadding, bottom, kWidth - 2 * kPadding, 1, " fill=\"#e1ddd3\"") + "\n";
    bottom += 30;
    return rule;
  }

  // Lays `count` items out in columns, the first ones on the left.
  template <class DrawItem>
  std::string Columns(std::size_t count, const DrawItem& draw) {
    constexpr double kColumnWidth = (kWidth - 2 * kPadding) / kListColumns;
    const std::size_t rows = (count + kListColumns - 1) / kListColumns;
    std::string items;
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t column = i / rows;
      const double x = kPadding + kColumnWidth * static_cast<double>(column);
      items += draw(i, x, bottom + kLegendRow * static_cast<double>(i % rows),
                    kColumnWidth - (column + 1 == kListColumns ? 0 : 28));
    }
    bottom += kLegendRow * static_cast<double>(rows - 1);
    return items;
  }

  std::string FileList(const std::vector<std::uint32_t>& files) {
    if (files.empty()) return {};
    std::string list = Rule();
    list += Columns(std::min(files.size(), kMostListed),
                    [&](std::size_t i, double x, double y, double width) {
                      return FileItem(x, y, width, files[i]);
                    });
    return list;
  }

  std::string FileItem(double x, double y, double width, std::uint32_t file) {
    const Owner& owner = map.owners[file];
    std::string amount = FormatBytes(owner.size);
    if (owner.runs.size() > 1) amount += " in " + GroupDigits(owner.runs.size()) + " parts";
    const Area area = owner.isHidden ? Area::kHidden : Area::kFile;
    return SvgRect(x, y - 11, 13, 13,
                   " rx=\"3\" fill=\"" + FillOf(area, grid.ColourOf(file)) + "\"") +
           "\n" + Text(x + 20, y, "l", names.Take(owner.path)) + Text(x + width, y, "n r", amount);
  }

  std::vector<Group> Groups(const std::vector<std::uint32_t>& files) const {
    std::map<std::string, Group> groups;
    for (std::size_t i = kMostListed; i < files.size(); ++i) {
      const Owner& owner = map.owners[files[i]];
      const std::string directory = DirectoryOf(owner.path);
      Group& group = groups[directory];
      group.directory = directory;
      ++group.files;
      group.bytes += owner.size;
    }
    std::vector<Group> sorted;
    sorted.reserve(groups.size());
    for (auto& [directory, group] : groups) sorted.push_back(std::move(group));
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Group& a, const Group& b) { return a.bytes > b.bytes; });
    return sorted;
  }

  // The files that are too many to be named.
  std::string DirectoryList(const std::vector<std::uint32_t>& files) {
    const std::vector<Group> groups = Groups(files);
    if (groups.empty()) return {};
    bottom += kLegendRow + 6;
    std::string list =
        Text(kPadding, bottom, "n",
             "and " + Count(files.size() - kMostListed, "smaller file", "smaller files") + ":");
    bottom += kLegendRow;
    list += Columns(std::min(groups.size(), kMostDirectories), [&](std::size_t i, double x,
                                                                   double y, double width) {
      const Group& group = groups[i];
      return Text(x + 20, y, "l", names.Take(group.directory)) +
             Text(x + width, y, "n r",
                  Count(group.files, "file", "files") + ", " + FormatBytes(group.bytes));
    });
    if (groups.size() <= kMostDirectories) return list;
    bottom += kLegendRow;
    return list + Text(kPadding, bottom, "n",
                       "and " + Count(groups.size() - kMostDirectories, "more directory",
                                      "more directories"));
  }

  const DiskMap& map;
  const MapGrid grid;
  UniqueNames names;
  double bottom = 0;  // of what is drawn so far
};

}  // namespace

std::string DrawSvg(const DiskMap& map, const std::string& title, const std::string& subtitle) {
  return Picture(map).Draw(title, subtitle);
}

}  // namespace quorbix::virtdisk::tool
