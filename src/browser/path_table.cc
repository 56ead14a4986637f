#include "browser/path_table.h"

#include "browser/path_text.h"
#include "browser/release_slack.h"

namespace quorbix::virtdisk::internal {

void PathTable::Clear() noexcept {
  keys.Clear();
  rootRecord = kNoRecord;
  directories.clear();
  firstRecords.clear();
}

PathTable::Key PathTable::Add(Key parent, std::string_view name, bool isDirectory,
                              std::uint32_t record) {
  // A name from the disk may hold separators, so it can be more than one component, or none.
  const Key key = keys.Intern(parent, NormalizePath(name));
  while (firstRecords.size() < keys.Size() - 1) {
    directories.push_back(false);
    firstRecords.push_back(kNoRecord);
  }
  std::uint32_t& first = key == PathKeys::kRoot ? rootRecord : firstRecords[key - 1];
  if (first == kNoRecord) first = record;
  if (key != PathKeys::kRoot && isDirectory) directories[key - 1] = true;
  return key;
}

std::optional<PathTable::Key> PathTable::FindDirectory(std::string_view path) const {
  const std::optional<Key> key = keys.Find(path);
  const bool isDirectory = key && (*key == PathKeys::kRoot || directories[*key - 1]);
  return isDirectory ? key : std::nullopt;
}

std::uint32_t PathTable::FindRecord(std::string_view path) const {
  const std::optional<Key> key = keys.Find(path);
  if (!key) return kNoRecord;
  return *key == PathKeys::kRoot ? rootRecord : firstRecords[*key - 1];
}

void PathTable::ReleaseSlack() {
  internal::ReleaseSlack(directories);
  internal::ReleaseSlack(firstRecords);
}

}  // namespace quorbix::virtdisk::internal
