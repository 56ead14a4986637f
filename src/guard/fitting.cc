#include "guard/fitting.h"

#include <unordered_map>
#include <utility>

#include "quorbix/virtdisk/build_preview.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

// The tree as what a build would make, so that the same room judges both.
BuildPreview AsBuild(const std::vector<TreeEntry>& tree) {
  BuildPreview preview;
  std::unordered_map<std::string, std::size_t> directories;  // entries by key
  for (const TreeEntry& entry : tree) {
    BuildPreviewEntry described;
    described.isDirectory = entry.type == EntryType::kFolder;
    described.bytes = entry.content.size;
    const auto parent = directories.find(ParentOf(DiskKey(entry.disk)));
    if (parent != directories.end()) described.directory = parent->second;
    if (described.isDirectory) directories.emplace(DiskKey(entry.disk), preview.entries.size());
    preview.entries.push_back(std::move(described));
  }
  return preview;
}

}  // namespace

Fitting FitTree(const std::vector<TreeEntry>& tree, std::uint64_t imageBytes) {
  const BuildPreview preview = AsBuild(tree);
  const ImageFit fit = FitIntoImage(preview, imageBytes);
  if (fit.holds) return {.fits = true, .message = {}};
  // Larger clusters can hold less: not every image that does is larger.
  const std::uint64_t larger = SmallestImage(preview, imageBytes);
  return {.fits = false,
          .message = fit.message,
          .isSize = fit.clusters > 0,
          .bytesThatDo = larger > 0 ? larger : SmallestImage(preview)};
}

}  // namespace quorbix::virtdisk::internal::guard
