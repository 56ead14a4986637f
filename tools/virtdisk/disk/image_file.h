#ifndef QUORBIX_VIRTDISK_TOOL_IMAGE_FILE_H_
#define QUORBIX_VIRTDISK_TOOL_IMAGE_FILE_H_

#include <filesystem>
#include <string>

#include <quorbix/virtdisk/fat16_fs_image.h>

#include "terminal/console.h"

namespace quorbix::virtdisk::tool {

// Reads the image file `path` into `image`. On failure tells the console and returns false.
bool LoadImage(Console& console, const std::filesystem::path& path, Fat16FsImage& image);

// Whether both paths lead to one existing file.
bool IsSameFile(const std::filesystem::path& a, const std::filesystem::path& b);

// `NAME in IMAGE`, for messages.
std::string Within(const std::string& name, const std::filesystem::path& image);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_IMAGE_FILE_H_
