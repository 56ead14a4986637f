#include "browser/path_text.h"

#include <algorithm>

#include "common/ascii.h"

namespace quorbix::virtdisk::internal {

std::string NormalizePath(std::string_view path) {
  std::string key = "/";
  key.reserve(path.size() + 1);
  for (const char c : path) {
    const bool separates = c == '/' || c == '\\';
    if (!separates) {
      key += ToAsciiLower(c);
    } else if (key.back() != '/') {
      key += '/';
    }
  }
  if (key.size() > 1 && key.back() == '/') key.pop_back();
  return key;
}

std::string TrimPaddedAscii(const std::uint8_t* field, std::size_t width) {
  const std::uint8_t* end = std::find(field, field + width, std::uint8_t{0});
  while (end != field && end[-1] == ' ') --end;
  return std::string(field, end);
}

}  // namespace quorbix::virtdisk::internal
