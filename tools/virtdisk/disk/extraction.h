#ifndef QUORBIX_VIRTDISK_TOOL_EXTRACTION_H_
#define QUORBIX_VIRTDISK_TOOL_EXTRACTION_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <quorbix/virtdisk/fat16_fs_image.h>

namespace quorbix::virtdisk::tool {

// Whether a name from an image is one name inside one folder of the host, and so cannot lead
// anywhere else.
bool StaysInFolder(std::string_view name);

// What to do with one entry of a tree that is copied to the host.
struct ExtractionStep {
  const Fat16FsEntry* entry = nullptr;
  std::string target;  // relative to the destination; empty when the entry is refused
  const char* refusal = nullptr;
};

// One step for each entry: directories, a parent before its children, then files in the given
// order. `top` is the path of the directory that is copied. Refused are entries whose names would
// leave the destination, everything below such a directory, and files that a look-up does not reach
// because another entry has the same name.
std::vector<ExtractionStep> PlanExtraction(const std::vector<const Fat16FsEntry*>& entries,
                                           const std::string& top);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_EXTRACTION_H_
