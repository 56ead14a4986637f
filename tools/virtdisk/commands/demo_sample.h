#ifndef QUORBIX_VIRTDISK_TOOL_DEMO_SAMPLE_H_
#define QUORBIX_VIRTDISK_TOOL_DEMO_SAMPLE_H_

#include <filesystem>

namespace quorbix::virtdisk::tool {

// Writes a small folder of the demonstration's own to `target`. Throws
// std::filesystem::filesystem_error when the host refuses.
void WriteSample(const std::filesystem::path& target);

// Copies `source` to `target` under the names that a disk can hold, so that both sides of a disk
// made from the copy agree about every name. Entries without such a name are left out. Throws
// std::filesystem::filesystem_error when the host refuses.
void CopyUnderShortNames(const std::filesystem::path& source, const std::filesystem::path& target);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_DEMO_SAMPLE_H_
