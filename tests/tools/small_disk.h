#ifndef QUORBIX_VIRTDISK_TESTS_TOOLS_SMALL_DISK_H_
#define QUORBIX_VIRTDISK_TESTS_TOOLS_SMALL_DISK_H_

#include "support/image_crafter.h"

namespace quorbix::virtdisk::test {

// A.TXT, SUB with B.TXT, and SUB/IN with EMPTY.
inline ImageCrafter SmallDisk() {
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 2, .size = 3}).Chain({2}).Data(2, "aaa");
  crafter.Directory("SUB", 3).Chain({3}).InCluster(3).DotEntries(3, 0);
  crafter.File("B.TXT", {.firstCluster = 4, .size = 3}).Chain({4}).Data(4, "bbb");
  crafter.Directory("IN", 5).Chain({5}).InCluster(5).DotEntries(5, 3).File("EMPTY");
  return crafter;
}

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_TOOLS_SMALL_DISK_H_
