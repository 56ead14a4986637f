#include <string>

#include "commands/commands.h"
#include "disk/entry_line.h"
#include "disk/image_tree.h"
#include "disk/opened_image.h"
#include "terminal/exit_status.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

// What stands at the path itself, which is no directory.
int PrintFile(Console& console, const ListOptions& options, const ImageTree& tree,
              const EntryStyle& style) {
  const Fat16FsEntry* file = tree.Find(options.path);
  if (file == nullptr) {
    return Fail(console, "directory not found",
                Within(options.path, options.image) +
                    " is no directory and no file; `virtdisk ls -R IMAGE` shows all there are.");
  }
  PrintEntry(console, *file, style, tree.IsHidden(*file));
  return kDone;
}

}  // namespace

int RunList(Console& console, const ListOptions& options) {
  int status = kDone;
  const auto image =
      OpenedImage::Open(console, options.image, {options.force, options.all}, status);
  if (!image) return status;
  if (options.all) image->TellHiddenLeftOut(console);
  const EntryStyle style{options.recursive, options.details, options.json};
  const ImageTree tree = image->Tree(console);
  if (!tree.IsDirectory(options.path)) return PrintFile(console, options, tree, style);
  for (const Fat16FsEntry* entry :
       options.recursive ? tree.Below(options.path) : tree.In(options.path)) {
    PrintEntry(console, *entry, style, tree.IsHidden(*entry));
  }
  return kDone;
}

}  // namespace quorbix::virtdisk::tool
