#ifndef QUORBIX_VIRTDISK_BROWSER_PATH_TABLE_H_
#define QUORBIX_VIRTDISK_BROWSER_PATH_TABLE_H_

#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

#include "browser/path_keys.h"

namespace quorbix::virtdisk::internal {

// What a volume's paths lead to: which of them are directories, and the first record of each.
//
// The root has a place of its own here, so that it can be known when there is no memory at all.
class PathTable {
 public:
  using Key = PathKeys::Key;
  static constexpr std::uint32_t kNoRecord = std::numeric_limits<std::uint32_t>::max();

  // Forgets every path, the root too, as a new object.
  void Clear() noexcept;

  // Makes the root a directory; before that nothing is found. Only after Clear.
  void KnowRoot() noexcept { keys.KnowRoot(); }

  // Enters the record with the number `record`, called `name` in the directory `parent`, and
  // returns its path's key. `name` has at most PathKeys::kMaxComponent bytes.
  Key Add(Key parent, std::string_view name, bool isDirectory, std::uint32_t record);

  // The key of the normalised `path` when it is a directory's.
  std::optional<Key> FindDirectory(std::string_view path) const;

  // The number of the first record entered with the normalised `path`, or kNoRecord.
  std::uint32_t FindRecord(std::string_view path) const;

  // Gives memory back that a larger volume left.
  void ReleaseSlack();

 private:
  PathKeys keys;
  std::uint32_t rootRecord = kNoRecord;  // names of nothing but separators have the root's path
  std::vector<bool> directories;         // both by key - 1: the root, key 0, is not in them
  std::vector<std::uint32_t> firstRecords;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BROWSER_PATH_TABLE_H_
