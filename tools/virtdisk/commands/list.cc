#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "disk/fat_date.h"
#include "disk/image_file.h"
#include "disk/image_tree.h"
#include "disk/opened_image.h"
#include "terminal/exit_status.h"
#include "terminal/json.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr char kDirectoryColour[] = "\x1b[1;34m";
constexpr char kReset[] = "\x1b[0m";
constexpr std::size_t kSizeWidth = 10;  // holds every 32-bit number
constexpr std::size_t kDateWidth = 19;

// "drhsa", with a dash for each that does not hold.
std::string AttributeLetters(const Fat16FsEntry& entry) {
  constexpr struct {
    unsigned bit;
    char letter;
  } kLetters[] = {{0x10, 'd'}, {0x01, 'r'}, {0x02, 'h'}, {0x04, 's'}, {0x20, 'a'}};
  std::string letters;
  for (const auto& [bit, letter] : kLetters) letters += (entry.attributes & bit) ? letter : '-';
  return letters;
}

std::string Right(const std::string& text, std::size_t width) {
  return std::string(width - std::min(width, text.size()), ' ') + text;
}

std::string Details(const Fat16FsEntry& entry) {
  std::string date = FormatFatDate(entry.writeDate, entry.writeTime);
  date.resize(kDateWidth, ' ');
  return AttributeLetters(entry) + "  " + Right(std::to_string(entry.size), kSizeWidth) + "  " +
         date + "  ";
}

struct Style {
  bool fullPath = false;
  bool details = false;
  bool json = false;
};

void Print(Console& console, const Fat16FsEntry& entry, const Style& style, bool isHidden = false) {
  if (style.json) {
    Json record = EntryRecord(entry);
    record["hidden"] = isHidden;
    console.out << OneLine(record) << "\n";
    return;
  }
  if (style.details) console.out << Details(entry);
  const bool coloured = console.colour && entry.isDirectory;
  if (coloured) console.out << kDirectoryColour;
  console.out << Printable(style.fullPath ? entry.path : entry.name);
  if (coloured) console.out << kReset;
  console.out << (entry.isDirectory ? "/\n" : "\n");
}

// What stands at the path itself, which is no directory.
int PrintFile(Console& console, const ListOptions& options, const ImageTree& tree,
              const Style& style) {
  const Fat16FsEntry* file = tree.Find(options.path);
  if (file == nullptr) {
    return Fail(console, "directory not found",
                Within(options.path, options.image) +
                    " is no directory and no file; `virtdisk ls -R IMAGE` shows all there are.");
  }
  Print(console, *file, style, tree.IsHidden(*file));
  return kDone;
}

}  // namespace

int RunList(Console& console, const ListOptions& options) {
  int status = kDone;
  const auto image =
      OpenedImage::Open(console, options.image, {options.force, options.all}, status);
  if (!image) return status;
  const Style style{options.recursive, options.details, options.json};
  const ImageTree tree(image->Index());
  if (!tree.IsDirectory(options.path)) return PrintFile(console, options, tree, style);
  for (const Fat16FsEntry* entry :
       options.recursive ? tree.Below(options.path) : tree.In(options.path)) {
    Print(console, *entry, style, tree.IsHidden(*entry));
  }
  return kDone;
}

int RunFind(Console& console, const FindOptions& options) {
  int status = kDone;
  const auto image = OpenedImage::Open(console, options.image, {.force = options.force}, status);
  if (!image) return status;
  std::vector<Fat16FsEntry> entries;
  std::string err;
  if (!image->Index().Search(options.text, entries, err)) {
    return Fail(console, err, "Give a part of a name or a path to look for.");
  }
  for (const Fat16FsEntry& entry : entries) Print(console, entry, {true, false, options.json});
  return kDone;
}

}  // namespace quorbix::virtdisk::tool
