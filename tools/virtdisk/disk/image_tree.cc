#include "disk/image_tree.h"

#include <algorithm>
#include <unordered_set>

#include "terminal/text.h"

namespace quorbix::virtdisk::tool {

std::string ParentPath(const Fat16FsEntry& entry) {
  // The name may hold separators of its own, so the path is cut by its length.
  const std::size_t length = entry.path.size() - std::min(entry.path.size(), entry.name.size() + 1);
  return length == 0 ? "/" : entry.path.substr(0, length);
}

ImageTree::ImageTree(const Fat16FsImage& image) {
  // One search instead of a listing per directory: each listing passes over the whole index, and
  // every path has a separator in it.
  std::string err;
  image.Search("/", entries, err);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    children[PathKey(ParentPath(entries[i]))].push_back(i);
  }
  for (auto& [key, list] : children) {
    std::stable_partition(list.begin(), list.end(),
                          [this](std::size_t i) { return entries[i].isDirectory; });
  }
}

bool ImageTree::IsDirectory(const std::string& path) const {
  const std::string key = PathKey(path);
  return key == "/" || std::any_of(entries.begin(), entries.end(), [&](const Fat16FsEntry& entry) {
           return entry.isDirectory && PathKey(entry.path) == key;
         });
}

const Fat16FsEntry* ImageTree::Find(const std::string& path) const& {
  const std::string key = PathKey(path);
  const auto found = std::find_if(entries.begin(), entries.end(), [&](const Fat16FsEntry& entry) {
    return PathKey(entry.path) == key;
  });
  return found == entries.end() ? nullptr : &*found;
}

std::vector<const Fat16FsEntry*> ImageTree::Below(const std::string& path) const& {
  std::vector<const Fat16FsEntry*> found;
  std::unordered_set<std::string> opened;
  std::vector<std::size_t> pending;  // the next one last
  const auto open = [&](const std::string& key) {
    if (!opened.insert(key).second) return;
    const auto list = children.find(key);
    if (list == children.end()) return;
    pending.insert(pending.end(), list->second.rbegin(), list->second.rend());
  };
  open(PathKey(path));
  while (!pending.empty()) {
    const Fat16FsEntry& entry = entries[pending.back()];
    pending.pop_back();
    found.push_back(&entry);
    if (entry.isDirectory) open(PathKey(entry.path));
  }
  return found;
}

}  // namespace quorbix::virtdisk::tool
