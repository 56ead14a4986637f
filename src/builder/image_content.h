#ifndef QUORBIX_VIRTDISK_BUILDER_IMAGE_CONTENT_H_
#define QUORBIX_VIRTDISK_BUILDER_IMAGE_CONTENT_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "builder/build_observer.h"
#include "fat16/fat16_image.h"

namespace quorbix::virtdisk::internal {

// The label that a build gives a volume: the last component of the folder's path, which is empty
// when the path ends in a separator, cut to 11 bytes.
std::string LabelFor(const std::filesystem::path& sourceFolder);

// Lays out an image of `sizeBytes` bytes and fills it from a folder: all of a build but the checks
// of the folder and the writing of a file. Fails with the messages of Fat16Image::Init and of
// PopulateDir, which also tells what `err` and `skipped` hold.
[[nodiscard]] bool FillImage(Fat16Image& image, std::uint64_t sizeBytes, std::string_view label,
                             const std::filesystem::path& sourceFolder, std::string& err,
                             std::vector<std::string>& skipped, BuildObserver* observer = nullptr);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BUILDER_IMAGE_CONTENT_H_
