#include "disk/map.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "browser/file_source.h"
#include "check/volume_claim.h"
#include "commands/commands.h"
#include "common/ascii.h"
#include "common/host_file.h"
#include "disk/image_tree.h"
#include "disk/map_html.h"
#include "disk/map_svg.h"
#include "disk/map_text.h"
#include "disk/opened_image.h"
#include "disk/volume_view.h"
#include "host/host_file.h"
#include "host/output_place.h"
#include "terminal/exit_status.h"
#include "terminal/json.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {

namespace {

enum class PictureKind { kSvg, kPage, kUnknown };

PictureKind KindOf(const std::filesystem::path& picture) {
  const std::string extension = internal::ToAsciiLower(picture.extension().string());
  if (picture == "-" || extension == ".svg") return PictureKind::kSvg;
  const bool isPage = extension == ".html" || extension == ".htm";
  return isPage ? PictureKind::kPage : PictureKind::kUnknown;
}

// Whether a picture would take the place of a file that is neither empty nor drawn by this program.
bool IsSomethingElse(const std::filesystem::path& place) {
  std::string err;
  if (LookAtOutput(place) == OutputKind::kNothing) return false;
  const auto source = internal::FileSource::Open(place, err);
  if (!source) return true;
  if (source->Size() == 0) return false;
  std::vector<std::uint8_t> buffer;
  const std::size_t most = std::max(kSvgBeginning.size(), kHtmlBeginning.size());
  const std::size_t size = std::min<std::uint64_t>(source->Size(), most);
  const std::uint8_t* bytes = source->Read(0, size, buffer, err);
  if (bytes == nullptr) return true;
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  return !text.starts_with(kSvgBeginning) && !text.starts_with(kHtmlBeginning);
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

int WritePicture(Console& console, const MapOptions& options, const std::string& drawn) {
  if (options.picture == "-") {
    console.out << drawn;
    return kDone;
  }
  if (IsSameFile(options.picture, options.image)) {
    return Refuse(console, "the picture would take the image's place: " + options.image.string(),
                  "Give another path with -o.");
  }
  const OutputKind kind = LookAtOutput(options.picture);
  if (kind == OutputKind::kFolder || kind == OutputKind::kNoRegularFile) {
    return Refuse(console,
                  options.picture.string() +
                      (kind == OutputKind::kFolder ? " is a folder" : " is no regular file"),
                  "Give the path of a file with -o, or - for the standard output.");
  }
  if (!options.force && IsSomethingElse(options.picture)) {
    return Refuse(console, options.picture.string() + " exists, and `virtdisk map` did not draw it",
                  "Give another path with -o, or --force to have the file replaced.");
  }
  if (!options.force && IsDenied(options.picture, W_OK)) {
    return Refuse(console, options.picture.string() + " is write-protected",
                  "Give another path with -o, or --force to have it replaced.");
  }
  std::string err;
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(drawn.data());
  if (WriteHostFile(internal::FollowLinks(options.picture), std::span(bytes, drawn.size()), err)) {
    return kDone;
  }
  return Fail(console, err, "Nothing was written to " + options.picture.string() + ".");
}

// On the console, or as a picture or page.
int Draw(Console& console, const MapOptions& options, const OpenedImage& image,
         const DiskMap& map) {
  const std::string volume = DescribeVolume(map, image.Bytes());
  const std::string name = options.image.filename().string();
  const std::string& label = image.Info().volumeLabel;
  const std::string& title = label.empty() ? name : label;
  if (options.picture.empty()) {
    PrintToOut(console, DrawText(map, title + ": " + volume, {console.width, console.colour}));
    return kDone;
  }
  const auto draw = KindOf(options.picture) == PictureKind::kPage ? DrawHtml : DrawSvg;
  return WritePicture(console, options, draw(map, title, name + ", " + volume));
}

}  // namespace

int RunMap(Console& console, const MapOptions& options) {
  if (!options.picture.empty() && KindOf(options.picture) == PictureKind::kUnknown) {
    return FailUsage(console,
                     options.picture.string() + " is no name of a picture that can be drawn",
                     "One that ends in .svg is a picture, in .html or .htm a page; - is a picture "
                     "on the standard output.");
  }
  int status = kDone;
  const auto image = OpenedImage::Open(console, options.image, {true, true}, status);
  if (!image) return status;
  image->TellHiddenLeftOut(console);
  std::string err;
  const auto view = VolumeView::Read(image->Info(), image->Source(), err);
  if (!view) return Fail(console, err, "Nothing was drawn.");
  std::string remark;
  if (internal::WouldBeMisread(internal::ClaimOf(image->Info()))) {
    remark = options.image.string() +
             " is no FAT16 volume: what is drawn tells little; `virtdisk info` says more";
    Remark(console, remark);
  }
  const ImageTree tree = image->Tree(console);
  const DiskMap map = MapVolume(*view, tree);
  if (!options.json) return Draw(console, options, *image, map);
  Json record = Record(options, map);
  record["remark"] = remark.empty() ? Json() : Json(remark);
  AddError(console, record);
  console.out << OneLine(record) << "\n";
  return kDone;
}

}  // namespace quorbix::virtdisk::tool
