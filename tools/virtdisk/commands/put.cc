#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <quorbix/virtdisk/fat16_fs_image.h>

#include "commands/commands.h"
#include "disk/image_file.h"
#include "disk/image_tree.h"
#include "disk/map.h"
#include "disk/volume_view.h"
#include "host/host_file.h"
#include "terminal/exit_status.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

// The bytes that the file's own clusters hold.
std::uint64_t RoomOf(const Fat16FsImage& image, const std::string& path) {
  const ImageTree tree(image);
  const Fat16FsEntry* entry = tree.Find(path);
  if (entry == nullptr) return 0;
  const DiskMap map = MapVolume(VolumeView(image.Info(), image.ImageBytes()), {*entry});
  std::uint64_t clusters = 0;
  for (const Owner& owner : map.owners) {
    for (const ClusterRun& run : owner.runs) clusters += run.count;
  }
  return clusters * map.clusterBytes;
}

std::string HintFor(const std::string& message, const PutOptions& options,
                    const Fat16FsImage& image, std::uint64_t newBytes) {
  const std::string what = Within(options.path, options.image);
  if (message == "new file content exceeds allocated cluster chain") {
    return options.file.string() + " has " + Count(newBytes, "byte", "bytes") + ", and " + what +
           " has room for " + GroupDigits(RoomOf(image, options.path)) +
           ". Build the image again to let it grow.";
  }
  if (message == "file not found") {
    return what + ": put replaces the content of a file that exists; `virtdisk ls` shows them.";
  }
  return what + " was not changed.";
}

}  // namespace

int RunPut(Console& console, const PutOptions& options) {
  std::string err;
  std::vector<std::uint8_t> content;
  if (!ReadHostFile(options.file, content, err)) {
    return Fail(console, err, "Give the path of the file with the new content.");
  }
  Fat16FsImage image;
  if (!LoadImage(console, options.image, image)) return kFailed;
  if (!image.WriteExistingFile(options.path, content, err)) {
    return Fail(console, err, HintFor(err, options, image, content.size()));
  }
  // A link to an image stays, and the image behind it is replaced.
  std::error_code failed;
  const fs::path target = fs::canonical(options.image, failed);
  if (!failed && WriteHostFile(target, image.ImageBytes(), err)) return kDone;
  return Fail(console, failed ? options.image.string() + ": " + failed.message() : err,
              options.image.string() + " is as it was before.");
}

}  // namespace quorbix::virtdisk::tool
