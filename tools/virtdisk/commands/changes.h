#ifndef QUORBIX_VIRTDISK_TOOL_CHANGES_H_
#define QUORBIX_VIRTDISK_TOOL_CHANGES_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace quorbix::virtdisk::tool {

// The files of one side by path, each with marks that differ when the file differs.
struct FileMarks {
  std::uint64_t size = 0;
  std::uint64_t content = 0;  // a hash of the content, or a mix of what the host's metadata tell
  bool operator==(const FileMarks&) const = default;
};
using Listing = std::map<std::string, FileMarks>;

enum class ChangeKind { kNew, kChanged, kDeleted };

struct Change {
  ChangeKind kind;
  std::string path;
};

// What led from one listing to the other, in byte-wise order of the paths.
std::vector<Change> Compare(const Listing& before, const Listing& after);

const char* Describe(ChangeKind kind);  // "new", "changed" or "deleted"

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_CHANGES_H_
