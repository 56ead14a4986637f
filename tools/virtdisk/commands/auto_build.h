#ifndef QUORBIX_VIRTDISK_TOOL_AUTO_BUILD_H_
#define QUORBIX_VIRTDISK_TOOL_AUTO_BUILD_H_

#include <cstdint>
#include <filesystem>
#include <string>

#include <quorbix/virtdisk/fat_image_builder.h>

#include "host/plan.h"

namespace quorbix::virtdisk::tool {

struct BuildResult {
  bool done = false;
  std::uint64_t size = 0;  // bytes, of the last attempt
};

// Builds an image of the smallest size that `content`, the survey of `folder`, fits into. Files may
// have grown since the survey: a disk that turns out full is built again one size up. Content that
// fits into no image is handed to the builder with a size that it refuses as too large, so that the
// failure carries its message.
BuildResult BuildAtSmallestSize(IFatImageBuilder& builder, const std::filesystem::path& folder,
                                const std::filesystem::path& image, const FolderContent& content);

// Whether a message of the builder says that the image was too small for the folder.
bool IsDiskFull(const std::string& message);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_AUTO_BUILD_H_
