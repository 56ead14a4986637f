#ifndef QUORBIX_VIRTDISK_TESTS_TOOLS_MAP_FIXTURE_H_
#define QUORBIX_VIRTDISK_TESTS_TOOLS_MAP_FIXTURE_H_

#include <string>

#include <quorbix/virtdisk/fat16_fs_image.h>

#include "disk/image_tree.h"
#include "disk/map.h"
#include "disk/volume_view.h"
#include "support/image_crafter.h"

namespace quorbix::virtdisk::tool {

inline DiskMap Map(const test::ImageCrafter& crafter) {
  Fat16FsImage image;
  std::string err;
  image.LoadFromBytes(crafter.Bytes(), err);
  const ImageTree tree(image);
  return MapVolume(VolumeView(image.Info(), image.ImageBytes()), tree.Entries());
}

inline test::ImageCrafter DrawnDisk() {
  test::ImageCrafter crafter({.clusters = 20});
  crafter.File("A.TXT", {.firstCluster = 2, .size = 1200}).Chain({2, 3, 9});
  crafter.Directory("SUB", 5).Chain({5}).InCluster(5).Chain({11});
  return crafter;
}

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TESTS_TOOLS_MAP_FIXTURE_H_
