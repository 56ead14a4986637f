#ifndef QUORBIX_VIRTDISK_TOOL_SHOWN_PREVIEW_H_
#define QUORBIX_VIRTDISK_TOOL_SHOWN_PREVIEW_H_

#include <filesystem>
#include <string>

#include <quorbix/virtdisk/build_preview.h>

#include "terminal/console.h"

namespace quorbix::virtdisk::tool {

// As PreviewBuild, showing how many entries it has looked at.
[[nodiscard]] bool PreviewWithProgress(Console& console, const std::filesystem::path& folder,
                                       BuildPreview& preview, std::string& err);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_SHOWN_PREVIEW_H_
