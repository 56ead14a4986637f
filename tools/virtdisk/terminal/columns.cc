#include "terminal/columns.h"

namespace quorbix::virtdisk::tool {

std::string ShownDirectory(const std::string& name, bool colour) {
  constexpr char kBoldBlue[] = "\x1b[1;34m";
  return colour ? kBoldBlue + name + kColourEnd + "/" : name + "/";
}

std::string AlignRight(std::string text, std::size_t width) {
  if (text.size() < width) text.insert(0, width - text.size(), ' ');
  return text;
}

std::string AlignLeft(std::string text, std::size_t width) {
  if (text.size() < width) text.resize(width, ' ');
  return text;
}

}  // namespace quorbix::virtdisk::tool
