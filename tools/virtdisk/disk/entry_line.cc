#include "disk/entry_line.h"

#include <cstddef>
#include <string>

#include "disk/fat_date.h"
#include "terminal/columns.h"
#include "terminal/json.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

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

std::string Details(const Fat16FsEntry& entry) {
  constexpr std::size_t kSizeWidth = 10;  // holds every 32-bit number
  constexpr std::size_t kDateWidth = 19;
  const std::string date = FormatFatDate(entry.writeDate, entry.writeTime);
  return AttributeLetters(entry) + "  " + AlignRight(std::to_string(entry.size), kSizeWidth) +
         "  " + AlignLeft(date, kDateWidth) + "  ";
}

}  // namespace

void PrintEntry(Console& console, const Fat16FsEntry& entry, const EntryStyle& style,
                bool isHidden) {
  if (style.json) {
    Json record = EntryRecord(entry);
    record["hidden"] = isHidden;
    console.out << OneLine(record) << "\n";
    return;
  }
  if (style.details) console.out << Details(entry);
  const std::string name = Printable(style.fullPath ? entry.path : entry.name);
  console.out << (entry.isDirectory ? ShownDirectory(name, console.colour) : name) << "\n";
}

}  // namespace quorbix::virtdisk::tool
