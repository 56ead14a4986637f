#ifndef QUORBIX_VIRTDISK_TOOL_SHOWN_BUILD_H_
#define QUORBIX_VIRTDISK_TOOL_SHOWN_BUILD_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "commands/build_output.h"
#include "fat16/fat16_image.h"
#include "terminal/console.h"

namespace quorbix::virtdisk::tool {

// internal::FillImage, with a progress line. `fileBytes` is how much there is to copy. False, too,
// when the folder itself could not be listed to its end: a disk without its files helps nobody.
[[nodiscard]] bool FillShown(Console& console, internal::Fat16Image& image, std::uint64_t sizeBytes,
                             std::string_view label, const std::filesystem::path& folder,
                             std::uint64_t fileBytes, std::string& err,
                             std::vector<std::string>& skipped);

// Writes the image to `output`, with a progress line. False: `err` says why.
[[nodiscard]] bool WriteShown(Console& console, const internal::Fat16Image& image,
                              ImageOutput& output, std::string& err);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_SHOWN_BUILD_H_
