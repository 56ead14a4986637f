#include "terminal/wrapping.h"

#include <algorithm>

namespace quorbix::virtdisk::tool {
namespace {

// A column of a table is followed as long as a line below it keeps this much room.
constexpr std::size_t kLeastRoom = 20;

std::size_t LeadingBlanks(std::string_view line) {
  return std::min(line.find_first_not_of(' '), line.size());
}

// Where a continued line begins.
std::size_t Indentation(std::string_view line, std::size_t columns) {
  const std::size_t begin = LeadingBlanks(line);
  const std::size_t gap = line.find("  ", begin);
  const std::size_t second = gap == std::string_view::npos ? gap : line.find_first_not_of(' ', gap);
  if (second != std::string_view::npos && second + kLeastRoom <= columns) return second;
  return begin + 2;
}

std::string WrapLine(std::string_view line, std::size_t columns) {
  if (ColumnsOf(line) <= columns) return std::string(line);
  const std::string margin(Indentation(line, columns), ' ');
  std::size_t next = line.find(' ', LeadingBlanks(line));
  std::string text(line.substr(0, next));
  while (next < line.size()) {
    const std::size_t word = std::min(line.find_first_not_of(' ', next), line.size());
    const std::size_t end = std::min(line.find(' ', word), line.size());
    if (word == end) break;                              // blanks at the end
    const std::size_t lineBegin = text.rfind('\n') + 1;  // 0 where there is none
    const std::string_view more = line.substr(next, end - next);
    if (ColumnsOf(std::string_view(text).substr(lineBegin)) + ColumnsOf(more) > columns) {
      text += "\n" + margin;
      text += line.substr(word, end - word);
    } else {
      text += more;
    }
    next = end;
  }
  return text;
}

}  // namespace

std::size_t ColumnsOf(std::string_view text) {
  std::size_t columns = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\x1b') {
      i = std::min(text.find('m', i), text.size() - 1);
    } else if ((static_cast<unsigned char>(text[i]) & 0xC0U) != 0x80U) {
      ++columns;
    }
  }
  return columns;
}

std::string Wrap(std::string_view text, std::size_t columns) {
  std::string wrapped;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    wrapped += WrapLine(text.substr(0, end), columns);
    if (end < text.size()) wrapped += '\n';
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return wrapped;
}

}  // namespace quorbix::virtdisk::tool
