#ifndef QUORBIX_VIRTDISK_TOOL_SHOWN_PREVIEW_H_
#define QUORBIX_VIRTDISK_TOOL_SHOWN_PREVIEW_H_

#include <filesystem>
#include <string>
#include <vector>

#include <quorbix/virtdisk/build_preview.h>

#include "terminal/console.h"

namespace quorbix::virtdisk::tool {

// As PreviewBuild, showing how many entries it has looked at.
[[nodiscard]] bool PreviewWithProgress(Console& console, const std::filesystem::path& folder,
                                       BuildPreview& preview, std::string& err);

// Why a build could not list the folder itself to its end, from what it tells that it left out;
// empty when it could.
std::string WhyTopIsUnlisted(const std::filesystem::path& folder,
                             const std::vector<std::string>& skipped);

std::string CannotList(const std::filesystem::path& folder, const std::string& why);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_SHOWN_PREVIEW_H_
