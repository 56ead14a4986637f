#ifndef QUORBIX_VIRTDISK_TESTS_TOOLS_IMAGE_COMMANDS_FIXTURE_H_
#define QUORBIX_VIRTDISK_TESTS_TOOLS_IMAGE_COMMANDS_FIXTURE_H_

#include <gtest/gtest.h>

#include <string>

#include "support/image_crafter.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::test {

// A file with a date, one without, and a directory with a file.
inline ImageCrafter DatedDisk() {
  ImageCrafter crafter({.label = "CRAFTED"});
  crafter.File(
      "DATED.TXT",
      {.attributes = 0x21, .firstCluster = 2, .size = 5, .writeTime = 0x6C47, .writeDate = 0x5A71});
  crafter.Chain({2}).Data(2, "dated").File("EMPTY");
  crafter.Directory("SUB", 3).Chain({3}).InCluster(3).DotEntries(3, 0);
  crafter.File("B.TXT", {.firstCluster = 4, .size = 600}).Chain({4, 6});
  crafter.Fill(4, 'b').Fill(6, 'c');
  return crafter;
}

inline ImageCrafter DiskWithADotFolder() {
  ImageCrafter crafter;
  crafter.File("CONFIG.SYS", {.firstCluster = 2, .size = 1}).Chain({2});
  crafter.RawSlot("        GIT", {.attributes = 0x10, .firstCluster = 3}).Chain({3});
  crafter.InCluster(3).DotEntries(3, 0).File("CONFIG", {.firstCluster = 4, .size = 1}).Chain({4});
  return crafter;
}

// With a dated disk at first.
class ImageCommands : public ::testing::Test {
 protected:
  ImageCommands() { Write(DatedDisk()); }

  void Write(const ImageCrafter& crafter) { WriteBytes(folder / "disk.img", crafter.Bytes()); }
  std::string Image() const { return (folder / "disk.img").string(); }

  TempFolder folder;
};

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_TOOLS_IMAGE_COMMANDS_FIXTURE_H_
