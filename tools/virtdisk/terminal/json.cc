#include "terminal/json.h"

#include "disk/fat_date.h"

namespace quorbix::virtdisk::tool {

std::string OneLine(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json EntryRecord(const Fat16FsEntry& entry) {
  const std::string date = FormatFatDate(entry.writeDate, entry.writeTime);
  const bool known = !date.empty() && date != kInvalidDate;
  return {{"path", entry.path},
          {"name", entry.name},
          {"type", entry.isDirectory ? "directory" : "file"},
          {"size", entry.size},
          {"modified", known ? Json(date) : Json(nullptr)},
          {"attributes", entry.attributes},
          {"firstCluster", entry.firstCluster}};
}

}  // namespace quorbix::virtdisk::tool
