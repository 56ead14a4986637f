#ifndef QUORBIX_VIRTDISK_TOOL_IMAGE_TREE_H_
#define QUORBIX_VIRTDISK_TOOL_IMAGE_TREE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include <quorbix/virtdisk/fat16_fs_image.h>

#include "browser/volume_index.h"

namespace quorbix::virtdisk::tool {

// The path of the directory that holds an entry, in stored case.
std::string ParentPath(const Fat16FsEntry& entry);

// Whether the paths of all the entries that an index has, hidden ones too, take more memory than
// they should: a chain of directories has paths that grow with the square of its length, so that
// those of a small image can take more than there is. Of such an index no tree is to be made.
[[nodiscard]] bool HasEndlessPaths(const internal::VolumeIndex& index);

// Every entry of an image under its directory.
class ImageTree {
 public:
  explicit ImageTree(const Fat16FsImage& image);

  // Told how many entries more were looked at; each is looked at twice.
  using LookedAt = std::function<void(std::uint64_t entries)>;

  // With the hidden entries that the index has: one whose base is blank is shown as "." and its
  // extension.
  explicit ImageTree(const internal::VolumeIndex& index, const LookedAt& lookedAt = {});

  // What is handed out lives as long as the tree: not for a temporary one.
  //
  // In byte-wise order of their paths.
  const std::vector<Fat16FsEntry>& Entries() const& { return entries; }
  const std::vector<Fat16FsEntry>& Entries() && = delete;

  // Whether no listing of the library has `entry`, which is one of Entries().
  bool IsHidden(const Fat16FsEntry& entry) const {
    return hidden[static_cast<std::size_t>(&entry - entries.data())];
  }

  // Whether `path` is the root or a directory.
  bool IsDirectory(const std::string& path) const;

  // The entry at `path`, the first in path order where several share it; nullptr for none.
  const Fat16FsEntry* Find(const std::string& path) const&;
  const Fat16FsEntry* Find(const std::string& path) && = delete;

  // What the directory `path` holds, in listing order: its directories, then its files.
  std::vector<const Fat16FsEntry*> In(const std::string& path) const&;
  std::vector<const Fat16FsEntry*> In(const std::string& path) && = delete;

  // Everything below the directory `path`, depth first, in a directory's listing order: its
  // directories, then its files. Directories that share a path are one, whose content comes once,
  // after the first of them.
  std::vector<const Fat16FsEntry*> Below(const std::string& path) const&;
  std::vector<const Fat16FsEntry*> Below(const std::string& path) && = delete;

 private:
  void AddHidden(const internal::VolumeIndex& index);
  void SortHiddenIn(std::size_t visible);
  void ListChildren(const LookedAt& lookedAt);

  std::vector<Fat16FsEntry> entries;
  std::vector<bool> hidden;                                            // by entry
  std::unordered_map<std::string, std::vector<std::size_t>> children;  // by key of the parent
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_IMAGE_TREE_H_
