#include <string>
#include <vector>

#include "commands/commands.h"
#include "disk/entry_line.h"
#include "disk/opened_image.h"
#include "terminal/exit_status.h"

namespace quorbix::virtdisk::tool {

int RunFind(Console& console, const FindOptions& options) {
  int status = kDone;
  const auto image = OpenedImage::Open(console, options.image, {.force = options.force}, status);
  if (!image) return status;
  std::vector<Fat16FsEntry> entries;
  std::string err;
  if (!image->Index().Search(options.text, entries, err)) {
    return Fail(console, err, "Give a part of a name or a path to look for.");
  }
  for (const Fat16FsEntry& entry : entries) PrintEntry(console, entry, {true, false, options.json});
  return kDone;
}

}  // namespace quorbix::virtdisk::tool
