#include "disk/image_tree.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "browser/path_text.h"

namespace quorbix::virtdisk::tool {

namespace {

using internal::VolumeIndex;

// Of all entries together; a disk that is full of files has some tens of MiB.
constexpr std::uint64_t kMostPathBytes = std::uint64_t{64} << 20;

constexpr std::string_view kNoBase = "        ";

// The most bytes that a hidden entry's name and the separator before it have: "/.EXT" or
// "/BASENAME.EXT".
std::uint64_t MostNameBytes(const internal::HiddenEntry& entry) {
  return std::string_view(entry.rawName.data(), entry.rawName.size()).starts_with(kNoBase) ? 5 : 13;
}

std::string HiddenName(const internal::HiddenEntry& entry) {
  const auto* field = reinterpret_cast<const std::uint8_t*>(entry.rawName.data());
  std::string name = internal::SlotName(field);
  if (!name.empty()) return name;
  const std::string_view extension(&entry.rawName[8], 3);
  return "." + std::string(extension.substr(0, extension.find_last_not_of(' ') + 1));
}

}  // namespace

std::string ParentPath(const Fat16FsEntry& entry) {
  // The name may hold separators of its own, so the path is cut by its length.
  const std::size_t length = entry.path.size() - std::min(entry.path.size(), entry.name.size() + 1);
  return length == 0 ? "/" : entry.path.substr(0, length);
}

bool HasEndlessPaths(const VolumeIndex& index) {
  std::uint64_t bytes = 0;
  for (const internal::EntryRecord& record : index.Records()) bytes += record.pathLength;
  std::vector<std::uint64_t> lengths;  // by hidden entry
  for (const internal::HiddenEntry& entry : index.HiddenEntries()) {
    if (bytes > kMostPathBytes) break;
    std::uint64_t length = MostNameBytes(entry);
    if (entry.hiddenParent != VolumeIndex::kNoRecord) {
      length += lengths[entry.hiddenParent];
    } else if (entry.parent != VolumeIndex::kNoRecord) {
      length += index.Records()[entry.parent].pathLength;
    }
    lengths.push_back(length);
    bytes += length;
  }
  return bytes > kMostPathBytes;
}

ImageTree::ImageTree(const Fat16FsImage& image) {
  // One search instead of a listing per directory: each listing passes over the whole index, and
  // every path has a separator in it.
  std::string err;
  image.Search("/", entries, err);
  hidden.resize(entries.size());
  ListChildren({});
}

ImageTree::ImageTree(const internal::VolumeIndex& index, const LookedAt& lookedAt) {
  std::string err;
  index.Search("/", entries, err);
  const std::size_t visible = entries.size();
  AddHidden(index);
  if (entries.size() > visible) SortHiddenIn(visible);
  hidden.resize(entries.size());
  if (lookedAt) lookedAt(entries.size());
  ListChildren(lookedAt);
}

void ImageTree::AddHidden(const internal::VolumeIndex& index) {
  const std::size_t visible = entries.size();
  for (const internal::HiddenEntry& found : index.HiddenEntries()) {
    Fat16FsEntry entry;
    entry.name = HiddenName(found);
    if (found.hiddenParent != VolumeIndex::kNoRecord) {
      entry.path = entries[visible + found.hiddenParent].path;
    } else if (found.parent != VolumeIndex::kNoRecord) {
      entry.path = index.PathOf(index.Records()[found.parent]);
    }
    entry.path.append("/").append(entry.name);
    entry.isDirectory = found.IsDirectory();
    entry.attributes = found.attributes;
    entry.size = found.size;
    entry.firstCluster = found.firstCluster;
    entry.writeTime = found.writeTime;
    entry.writeDate = found.writeDate;
    entries.push_back(std::move(entry));
  }
}

void ImageTree::SortHiddenIn(std::size_t visible) {
  std::vector<std::size_t> order(entries.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(), [this](std::size_t a, std::size_t b) {
    return entries[a].path < entries[b].path;
  });
  std::vector<Fat16FsEntry> sorted;
  sorted.reserve(entries.size());
  for (const std::size_t i : order) {
    sorted.push_back(std::move(entries[i]));
    hidden.push_back(i >= visible);
  }
  entries = std::move(sorted);
}

void ImageTree::ListChildren(const LookedAt& lookedAt) {
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (lookedAt) lookedAt(1);
    children[internal::NormalizePath(ParentPath(entries[i]))].push_back(i);
  }
  for (auto& [key, list] : children) {
    std::stable_partition(list.begin(), list.end(),
                          [this](std::size_t i) { return entries[i].isDirectory; });
  }
}

bool ImageTree::IsDirectory(const std::string& path) const {
  const std::string key = internal::NormalizePath(path);
  return key == "/" || std::any_of(entries.begin(), entries.end(), [&](const Fat16FsEntry& entry) {
           return entry.isDirectory && internal::NormalizePath(entry.path) == key;
         });
}

const Fat16FsEntry* ImageTree::Find(const std::string& path) const& {
  const std::string key = internal::NormalizePath(path);
  const auto found = std::find_if(entries.begin(), entries.end(), [&](const Fat16FsEntry& entry) {
    return internal::NormalizePath(entry.path) == key;
  });
  return found == entries.end() ? nullptr : &*found;
}

std::vector<const Fat16FsEntry*> ImageTree::In(const std::string& path) const& {
  std::vector<const Fat16FsEntry*> found;
  const auto list = children.find(internal::NormalizePath(path));
  if (list == children.end()) return found;
  for (const std::size_t i : list->second) found.push_back(&entries[i]);
  return found;
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
  open(internal::NormalizePath(path));
  while (!pending.empty()) {
    const Fat16FsEntry& entry = entries[pending.back()];
    pending.pop_back();
    found.push_back(&entry);
    if (entry.isDirectory) open(internal::NormalizePath(entry.path));
  }
  return found;
}

}  // namespace quorbix::virtdisk::tool
