#include "disk/map.h"

#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "disk/image_file.h"
#include "disk/image_tree.h"
#include "disk/map_html.h"
#include "disk/map_svg.h"
#include "disk/map_text.h"
#include "disk/opened_image.h"
#include "disk/volume_view.h"
#include "host/host_file.h"
#include "terminal/exit_status.h"
#include "terminal/json.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {

namespace {

bool WantsPage(const std::filesystem::path& picture) {
  const std::string extension = picture.extension().string();
  return PathKey(extension) == "/.html" || PathKey(extension) == "/.htm";
}

Json OwnerRecord(const Owner& owner) {
  Json runs = Json::array();
  for (const ClusterRun& run : owner.runs) runs.push_back({run.first, run.count});
  return {{"path", owner.path},           {"type", owner.isDirectory ? "directory" : "file"},
          {"hidden", owner.isHidden},     {"size", owner.size},
          {"clusters", owner.Clusters()}, {"runs", runs}};
}

Json Record(const MapOptions& options, const DiskMap& map) {
  const std::vector<std::uint32_t> counts = CountAreas(map);
  Json owners = Json::array();
  for (const Owner& owner : map.owners) owners.push_back(OwnerRecord(owner));
  const auto clusters = [&](Area area) { return counts[static_cast<std::size_t>(area)]; };
  return {{"image", options.image.string()},
          {"clusters", map.clusters.size()},
          {"clusterBytes", map.clusterBytes},
          {"inFiles", clusters(Area::kFile)},
          {"inDirectories", clusters(Area::kDirectory)},
          {"hidden", clusters(Area::kHidden)},
          {"free", clusters(Area::kFree)},
          {"lostOrBroken", clusters(Area::kLost)},
          {"bad", clusters(Area::kBad)},
          {"slackBytes", SlackBytes(map)},
          {"owners", owners}};
}

}  // namespace

int RunMap(Console& console, const MapOptions& options) {
  int status = kDone;
  const auto image = OpenedImage::Open(console, options.image, {true, true}, status);
  if (!image) return status;
  std::string err;
  const auto view = VolumeView::Read(image->Info(), image->Source(), err);
  if (!view) return Fail(console, err, "Nothing was drawn.");
  const ImageTree tree(image->Index());
  const DiskMap map = MapVolume(*view, tree);
  const std::string volume = DescribeVolume(map, image->Bytes());
  const std::string name = options.image.filename().string();
  const std::string& label = image->Info().volumeLabel;
  if (options.json) {
    console.out << OneLine(Record(options, map)) << "\n";
    return kDone;
  }
  if (options.picture.empty()) {
    const std::string heading = (label.empty() ? name : label) + ": " + volume;
    console.out << DrawText(map, heading, {console.width, console.colour});
    return kDone;
  }
  const auto draw = WantsPage(options.picture) ? DrawHtml : DrawSvg;
  const std::string drawn = draw(map, label.empty() ? name : label, name + ", " + volume);
  if (options.picture == "-") {
    console.out << drawn;
    return kDone;
  }
  if (IsSameFile(options.picture, options.image)) {
    Fail(console, "the picture would take the image's place: " + options.image.string(),
         "Give another path with -o.");
    return kRefused;
  }
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(drawn.data());
  if (WriteHostFile(options.picture, std::span(bytes, drawn.size()), err)) return kDone;
  return Fail(console, err, "Does the folder exist, and may you write there?");
}

}  // namespace quorbix::virtdisk::tool
