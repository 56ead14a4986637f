#ifndef QUORBIX_VIRTDISK_TESTS_TOOLS_MAP_FIXTURE_H_
#define QUORBIX_VIRTDISK_TESTS_TOOLS_MAP_FIXTURE_H_

#include <string>

#include <quorbix/virtdisk/fat16_fs_image.h>

#include "image_tree.h"
#include "map.h"
#include "support/image_crafter.h"
#include "volume_view.h"

namespace quorbix::virtdisk::tool {

inline DiskMap Map(const test::ImageCrafter& crafter) {
  Fat16FsImage image;
  std::string err;
  image.LoadFromBytes(crafter.Bytes(), err);
  const ImageTree tree(image);
  return MapVolume(VolumeView(image.Info(), image.ImageBytes()), tree.Entries());
}

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TESTS_TOOLS_MAP_FIXTURE_H_
