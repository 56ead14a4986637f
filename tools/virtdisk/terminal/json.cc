#include "terminal/json.h"

#include <algorithm>

#include "disk/fat_date.h"

namespace quorbix::virtdisk::tool {

std::string OneLine(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string Base64(std::span<const std::uint8_t> bytes) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (; !bytes.empty(); bytes = bytes.subspan(std::min<std::size_t>(bytes.size(), 3))) {
    std::uint32_t three = 0;
    for (std::size_t i = 0; i < 3; ++i) three = three << 8 | (i < bytes.size() ? bytes[i] : 0U);
    for (std::size_t i = 0; i < 4; ++i) {
      text += i <= bytes.size() ? kDigits[three >> (18 - 6 * i) & 63] : '=';
    }
  }
  return text;
}

void AddError(Console& console, Json& object) {
  object["error"] = console.error.empty() ? Json() : Json(console.error);
  object["hint"] = console.errorHint.empty() ? Json() : Json(console.errorHint);
  console.isErrorInJson = true;
}

Json EntryRecord(const Fat16FsEntry& entry, bool isHidden) {
  const std::string date = FormatFatDate(entry.writeDate, entry.writeTime);
  const bool known = !date.empty() && date != kInvalidDate;
  return {{"path", entry.path},
          {"name", entry.name},
          {"type", entry.isDirectory ? "directory" : "file"},
          {"size", entry.size},
          {"modified", known ? Json(date) : Json(nullptr)},
          {"attributes", entry.attributes},
          {"firstCluster", entry.firstCluster},
          {"hidden", isHidden}};
}

}  // namespace quorbix::virtdisk::tool
