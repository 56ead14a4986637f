#ifndef QUORBIX_VIRTDISK_GUARD_MODEL_H_
#define QUORBIX_VIRTDISK_GUARD_MODEL_H_

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

// The words that the rooms of guarded synchronising share: plain values, which know no file system.
//
// A host path is relative to the folder, a disk path to the volume's root; both have "/" between
// their elements and none at their ends, and the empty one is the folder or the root itself. Disk
// paths are compared by their keys, without regard to the case of ASCII letters.

namespace quorbix::virtdisk::internal::guard {

enum class EntryType { kFile, kFolder };

// What a file says, as far as it matters here.
struct Content {
  std::uint64_t hash = 0;  // of HashBytes
  std::uint64_t size = 0;  // bytes
  bool operator==(const Content&) const = default;
};

// An entry of the folder that takes part: a regular file, a link to one inside the folder, a
// folder.
struct HostItem {
  EntryType type = EntryType::kFile;
  Content content{};
  bool isReadable = true;  // false: `content` is not known, or not what a folder holds
};

// An entry of the disk.
struct DiskItem {
  std::string path{};       // in stored case
  std::string shortName{};  // the slot's eleven bytes
  EntryType type = EntryType::kFile;
  Content content{};
  bool isReadable = true;  // false: its chain is broken or too short, and `content` not known
  // A chain of another entry leads into its own, or the other way round: some of it may be another
  // file's.
  bool sharesClusters = false;
  bool isDated = false;  // a machine has written it: builds leave the date out
};

// Both sides as they are.
struct Observation {
  std::map<std::string, HostItem> host{};  // by path
  std::map<std::string, DiskItem> disk{};  // by key
  // Entries of the folder that take no part, by path: names that begin with ".", links to folders,
  // devices. Their names are taken, and folders that hold them are not empty.
  std::set<std::string> hostLeftOut{};
  // Links whose files a pass is about to delete, as the disk asks, and which the disk has as files
  // of their own that nobody has deleted.
  std::set<std::string> hostCutLinks{};
};

// A host path and the disk path that stand for each other, and what both sides last agreed on.
struct Pair {
  std::string host{};
  std::string disk{};  // in stored case
  EntryType type = EntryType::kFile;
  std::optional<Content> agreed{};  // a folder's is empty; nothing: the names alone are known
  bool operator==(const Pair&) const = default;
};

// An entry of the disk that a build put there from what takes no part on the host, a link to a
// folder for instance.
struct Ignored {
  EntryType type = EntryType::kFile;
  Content content{};
  bool operator==(const Ignored&) const = default;
};

// What is known from earlier passes.
struct Memory {
  std::vector<Pair> pairs{};
  std::map<std::string, Ignored> ignored{};  // by key; no news as long as they stay as they are
  bool operator==(const Memory&) const = default;
};

// The key of a disk path.
std::string DiskKey(std::string_view diskPath);

// The part of a path before its last "/", empty when there is none; and the part behind it.
std::string ParentOf(const std::string& path);
std::string NameOf(const std::string& path);
std::string Join(const std::string& folder, const std::string& name);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_MODEL_H_
