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

constexpr unsigned kWideEnough = 52;  // columns, for details and a name of 12 letters

std::string WideDetails(const Fat16FsEntry& entry) {
  constexpr std::size_t kSizeWidth = 10;  // holds every 32-bit number
  constexpr std::size_t kDateWidth = 19;
  const std::string date = FormatFatDate(entry.writeDate, entry.writeTime);
  return AttributeLetters(entry) + "  " + AlignRight(std::to_string(entry.size), kSizeWidth) +
         "  " + AlignLeft(date, kDateWidth) + "  ";
}

// Without the time of day: with a name, no more than 40 columns.
std::string NarrowDetails(const Fat16FsEntry& entry) {
  constexpr std::size_t kSizeWidth = 9;
  constexpr std::size_t kDayWidth = 10;
  const std::string date = FormatFatDate(entry.writeDate, entry.writeTime);
  const std::string day = date == kInvalidDate ? "bad date" : date.substr(0, kDayWidth);
  return AttributeLetters(entry) + " " + AlignRight(std::to_string(entry.size), kSizeWidth) + " " +
         AlignLeft(day, kDayWidth) + " ";
}

}  // namespace

void PrintEntry(Console& console, const Fat16FsEntry& entry, const EntryStyle& style,
                bool isHidden) {
  if (style.json) {
    console.out << OneLine(EntryRecord(entry, isHidden)) << "\n";
    return;
  }
  const bool isNarrow = console.outIsTerminal && console.width < kWideEnough;
  if (style.details) console.out << (isNarrow ? NarrowDetails(entry) : WideDetails(entry));
  const std::string name = Printable(style.fullPath ? entry.path : entry.name);
  console.out << (entry.isDirectory ? ShownDirectory(name, console.colour) : name) << "\n";
}

}  // namespace quorbix::virtdisk::tool
