#ifndef QUORBIX_VIRTDISK_PREVIEW_FOLDER_PREVIEW_H_
#define QUORBIX_VIRTDISK_PREVIEW_FOLDER_PREVIEW_H_

#include <filesystem>
#include <string>

#include "builder/host_entry.h"
#include "quorbix/virtdisk/build_preview.h"

namespace quorbix::virtdisk::internal {

// As PreviewBuild, with what is asked of the host in the caller's hands.
[[nodiscard]] bool PreviewFolder(const std::filesystem::path& folder, const HostQueries& host,
                                 BuildPreview& preview, std::string& err);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_PREVIEW_FOLDER_PREVIEW_H_
