#include <string>
#include <vector>

#include "browser/text_matcher.h"
#include "commands/commands.h"
#include "disk/entry_line.h"
#include "disk/image_tree.h"
#include "disk/opened_image.h"
#include "terminal/exit_status.h"

namespace quorbix::virtdisk::tool {
namespace {

using internal::TextMatcher;

// As the library searches, in the hidden entries too.
void PrintAll(Console& console, const OpenedImage& image, const FindOptions& options,
              const EntryStyle& style) {
  const TextMatcher matcher(options.text);
  const ImageTree tree = image.Tree(console);
  for (const Fat16FsEntry& entry : tree.Entries()) {
    if (!matcher.IsMatch(matcher.Advance(TextMatcher::kStart, entry.path))) continue;
    PrintEntry(console, entry, style, tree.IsHidden(entry));
  }
}

}  // namespace

int RunFind(Console& console, const FindOptions& options) {
  int status = kDone;
  const auto image =
      OpenedImage::Open(console, options.image, {options.force, options.all}, status);
  if (!image) return status;
  if (options.all) image->TellHiddenLeftOut(console);
  std::vector<Fat16FsEntry> entries;
  std::string err;
  if (!image->Index().Search(options.text, entries, err)) {
    return Fail(console, err, "Give a part of a name or a path to look for.");
  }
  const EntryStyle style{.fullPath = true, .json = options.json};
  if (options.all) {
    PrintAll(console, *image, options, style);
  } else {
    for (const Fat16FsEntry& entry : entries) PrintEntry(console, entry, style);
  }
  return kDone;
}

}  // namespace quorbix::virtdisk::tool
