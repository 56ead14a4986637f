#ifndef QUORBIX_VIRTDISK_TESTS_SYNC_IMAGE_CONTEXT_H_
#define QUORBIX_VIRTDISK_TESTS_SYNC_IMAGE_CONTEXT_H_

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/image_crafter.h"
#include "sync/directory_walk.h"
#include "sync/fat_context.h"

namespace quorbix::virtdisk::internal {

// The crafted image, parsed; a parse that fails is a failure of the test.
inline FatContext ContextOf(const test::ImageCrafter& crafter) {
  FatContext context;
  context.image.Assign(crafter.Bytes());
  std::string error;
  EXPECT_TRUE(ParseLoadedImage(context, error)) << error;
  return context;
}

// The paths of all files, in the order of the walk, as far as it went.
inline std::vector<std::string> WalkedPaths(const test::ImageCrafter& crafter) {
  std::vector<DiskFile> files;
  static_cast<void>(WalkDirectory(ContextOf(crafter), files));
  std::vector<std::string> paths;
  for (const DiskFile& file : files) paths.push_back(file.relPath);
  return paths;
}

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_TESTS_SYNC_IMAGE_CONTEXT_H_
