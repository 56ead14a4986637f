#include "disk/map_html.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "disk/map_grid.h"
#include "disk/map_page.h"
#include "disk/map_palette.h"
#include "terminal/json.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr double kPageGridWidth = 1000;  // of the picture, in its own units

// Cells that look alike, in order: [area, owner or -1, first cluster, how many].
Json CellRuns(const Drawing& drawing) {
  Json runs = Json::array();
  const std::vector<Cell>& cells = drawing.cells;
  for (std::size_t begin = 0; begin < cells.size();) {
    const Cell& cell = cells[begin];
    std::size_t end = begin + 1;
    while (end < cells.size() && cells[end].area == cell.area && cells[end].owner == cell.owner) {
      ++end;
    }
    const std::int64_t owner = cell.owner == kNobody ? -1 : std::int64_t{cell.owner};
    runs.push_back({static_cast<int>(cell.area), owner, cell.first, end - begin});
    begin = end;
  }
  return runs;
}

std::string PlainColour(const Owner& owner, std::size_t colour) {
  if (owner.isHidden) return AreaColour(Area::kHidden);
  if (owner.isDirectory) return AreaColour(Area::kDirectory);
  if (!IsLined(colour)) return FileColour(colour);
  return "repeating-linear-gradient(#fff 0 1px, " + FileColour(colour) + " 1px 3px)";
}

Json Runs(const Owner& owner) {
  Json runs = Json::array();
  for (const ClusterRun& run : owner.runs) runs.push_back({run.first, run.count});
  return runs;
}

Json OwnerRecords(const DiskMap& map, const MapGrid& grid) {
  Json records = Json::array();
  for (std::uint32_t i = 0; i < map.owners.size(); ++i) {
    const Owner& owner = map.owners[i];
    records.push_back({{"path", Printable(owner.path)},
                       {"directory", owner.isDirectory},
                       {"hidden", owner.isHidden},
                       {"bytes", owner.size},
                       {"size", owner.isDirectory ? "directory" : FormatBytes(owner.size)},
                       {"clusters", owner.Clusters()},
                       {"parts", owner.runs.size()},
                       {"where", RunsText(owner)},
                       {"runs", Runs(owner)},
                       {"colour", PlainColour(owner, grid.ColourOf(i))}});
  }
  return records;
}

Json PageData(const DiskMap& map, const MapGrid& grid) {
  Json areas = Json::array();
  for (std::size_t i = 0; i < kAreaCount; ++i) areas.push_back(AreaName(static_cast<Area>(i)));
  return {{"areas", areas},
          {"firstWithClusters", static_cast<int>(Area::kDirectory)},
          {"firstHarmed", static_cast<int>(Area::kLost)},
          {"columns", grid.Columns()},
          {"pitch", grid.Pitch()},
          {"perCell", grid.Cells().clustersPerCell},
          {"clusters", map.clusters.size()},
          {"cells", CellRuns(grid.Cells())},
          {"owners", OwnerRecords(map, grid)}};
}

// JSON within a <script>: no name on a disk may end it.
std::string Embedded(const Json& data) {
  std::string text;
  for (const char c : OneLine(data)) {
    if (c == '<') {
      text += "\\u003c";
    } else {
      text += c;
    }
  }
  return text;
}

std::string PageLegendItem(Area area, const std::string& amount) {
  const std::string fill = area == Area::kFile ? FileColour(0) : FillOf(area, kNobody);
  return "<li><svg width=\"13\" height=\"13\" aria-hidden=\"true\">" +
         SvgRect(0, 0, 13, 13, " rx=\"3\" fill=\"" + fill + "\"") + "</svg> " + AreaName(area) +
         " <small>" + amount + "</small></li>";
}

std::string PageLegend(const DiskMap& map) {
  const std::vector<std::uint32_t> counts = CountAreas(map);
  std::string legend = "<ul class=\"legend\">";
  for (std::size_t i = 0; i < kAreaCount; ++i) {
    const auto area = static_cast<Area>(i);
    const bool inClusters = area != Area::kSystem && area != Area::kRoot;
    if (inClusters && counts[i] == 0) continue;
    const std::uint64_t sectors = area == Area::kSystem ? map.systemSectors : map.rootSectors;
    legend += PageLegendItem(
        area, inClusters ? Count(counts[i], "cluster", "clusters") : FormatBytes(512 * sectors));
  }
  return legend + "<li><small>white at the foot: behind the ends of files, " +
         FormatBytes(SlackBytes(map)) + " in all</small></li></ul>\n";
}

std::string GridPicture(const MapGrid& grid) {
  const std::string height = SvgNumber(grid.Bottom());
  return "<svg id=\"cells\" viewBox=\"0 0 " + SvgNumber(kPageGridWidth) + " " + height +
         "\" aria-hidden=\"true\"><defs>" + grid.Definitions() + "</defs>\n" + grid.Elements() +
         "<path id=\"lit\"/><rect id=\"cursor\" rx=\"2\" width=\"0\" height=\"0\" "
         "fill=\"none\"/></svg>";
}

}  // namespace

std::string DrawHtml(const DiskMap& map, const std::string& title, const std::string& subtitle) {
  const MapGrid grid(map, kPageGridWidth, 0, 0);
  std::string page(kHtmlBeginning);
  page += "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>";
  page += EscapeXml(title) + ": map of the disk</title>\n<style>" + std::string(kPageStyle);
  page += "</style>\n</head>\n<body>\n<header><h1>" + EscapeXml(title) + "</h1><p>";
  page += EscapeXml(subtitle) + ". " + EscapeXml(grid.Scale()) + ".</p></header>\n<main>\n";
  page += std::string(kPageMapOpening) + GridPicture(grid) + "</div>\n" + PageLegend(map);
  page += std::string(kPageFiles) + "</main>\n<script type=\"application/json\" id=\"data\">";
  page += Embedded(PageData(map, grid)) + "</script>\n<script>" + std::string(kPageScript);
  return page + "</script>\n</body>\n</html>\n";
}

}  // namespace quorbix::virtdisk::tool
