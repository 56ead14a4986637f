#ifndef QUORBIX_VIRTDISK_TOOL_SIDE_LISTING_H_
#define QUORBIX_VIRTDISK_TOOL_SIDE_LISTING_H_

#include <filesystem>
#include <optional>
#include <string>

#include <quorbix/virtdisk/fat16_fs_image.h>

#include "commands/changes.h"

namespace quorbix::virtdisk::tool {

// The regular files of a host folder that a synchroniser looks at, marked by what their metadata
// tell: whoever changes a file changes its time, and whoever replaces it, its inode.
Listing ListHostSide(const std::filesystem::path& folder);

// The files of an image, marked by their content.
Listing ListImageSide(const Fat16FsImage& image);

// The listing of an image file, read again only when the file's stamp has changed.
class ImageSide {
 public:
  explicit ImageSide(const std::filesystem::path& image) : path(image) {}

  // Nothing when the image cannot be read, or holds no volume, at the moment; `err` then says why.
  std::optional<Listing> List(std::string& err);

 private:
  const std::filesystem::path path;
  std::optional<FileMarks> stamp;
  Listing listing;
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_SIDE_LISTING_H_
