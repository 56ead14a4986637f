#include "disk/map.h"

#include <span>
#include <string>

#include "commands/commands.h"
#include "disk/image_file.h"
#include "disk/image_tree.h"
#include "disk/map_svg.h"
#include "disk/map_text.h"
#include "disk/opened_image.h"
#include "disk/volume_view.h"
#include "host/host_file.h"
#include "terminal/exit_status.h"

namespace quorbix::virtdisk::tool {

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
  if (options.picture.empty()) {
    const std::string heading = (label.empty() ? name : label) + ": " + volume;
    console.out << DrawText(map, heading, {console.width, console.colour});
    return kDone;
  }
  const std::string svg = DrawSvg(map, label.empty() ? name : label, name + ", " + volume);
  if (options.picture == "-") {
    console.out << svg;
    return kDone;
  }
  if (IsSameFile(options.picture, options.image)) {
    Fail(console, "the picture would take the image's place: " + options.image.string(),
         "Give another path with -o.");
    return kRefused;
  }
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(svg.data());
  if (WriteHostFile(options.picture, std::span(bytes, svg.size()), err)) return kDone;
  return Fail(console, err, "Does the folder exist, and may you write there?");
}

}  // namespace quorbix::virtdisk::tool
