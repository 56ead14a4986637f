#ifndef QUORBIX_VIRTDISK_TOOL_ENTRY_LINE_H_
#define QUORBIX_VIRTDISK_TOOL_ENTRY_LINE_H_

#include <quorbix/virtdisk/fat16_fs_image.h>

#include "terminal/console.h"

namespace quorbix::virtdisk::tool {

struct EntryStyle {
  bool fullPath = false;
  bool details = false;  // attributes, size and date
  bool json = false;
};

// Prints the line of one entry. `isHidden` is told in JSON only.
void PrintEntry(Console& console, const Fat16FsEntry& entry, const EntryStyle& style,
                bool isHidden = false);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_ENTRY_LINE_H_
