#ifndef QUORBIX_VIRTDISK_TOOL_DEMO_SAMPLE_H_
#define QUORBIX_VIRTDISK_TOOL_DEMO_SAMPLE_H_

#include <filesystem>

#include <quorbix/virtdisk/build_preview.h>

#include "host/piecewise.h"

namespace quorbix::virtdisk::tool {

// Writes a small folder of the demonstration's own to `target`. Throws
// std::filesystem::filesystem_error when the host refuses.
void WriteSample(const std::filesystem::path& target);

// Copies `source`, of which `preview` tells, to `target`. What a build leaves out, or no listing
// shows, is left out; the copies may be written, whatever the modes of their models. Throws
// std::filesystem::filesystem_error when the host refuses.
void CopyFolder(const std::filesystem::path& source, const BuildPreview& preview,
                const std::filesystem::path& target, const MovedBytes& moved = {});

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_DEMO_SAMPLE_H_
