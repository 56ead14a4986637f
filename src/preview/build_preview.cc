#include "quorbix/virtdisk/build_preview.h"

#include <algorithm>
#include <map>
#include <system_error>

#include "builder/source_folder.h"
#include "builder/tree_population.h"
#include "common/divide_up.h"
#include "common/fail.h"
#include "fat16/geometry.h"
#include "fat16/volume_layout.h"
#include "preview/dry_image.h"
#include "preview/dry_target.h"
#include "preview/folder_preview.h"

namespace quorbix::virtdisk {
namespace {

namespace fs = std::filesystem;
using internal::DryImage;
using internal::Geometry;
namespace dir_entry = internal::dir_entry;

constexpr char kCannotBeLookedAt[] = "Source folder cannot be looked at: ";

constexpr std::uint64_t kMiB = 1048576;
constexpr std::uint64_t kMostMiB = 4096;

bool CheckSource(const fs::path& folder, std::string& err) {
  try {
    return internal::CheckSourceFolder(folder, err);
  } catch (const fs::filesystem_error& error) {
    return internal::Fail(
        err, kCannotBeLookedAt + folder.string() + " (" + error.code().message() + ")");
  }
}

// How many entries each directory of the image gets, in the order of the preview; the root first.
std::vector<std::uint64_t> CountEntries(const BuildPreview& preview) {
  std::vector<std::uint64_t> counts{0};
  std::vector<std::size_t> places(preview.entries.size());  // of a directory in `counts`
  for (std::size_t i = 0; i < preview.entries.size(); ++i) {
    const BuildPreviewEntry& entry = preview.entries[i];
    if (entry.fate != BuildFate::kCopied) continue;
    ++counts[entry.directory == BuildPreviewEntry::kRoot ? 0 : places[entry.directory]];
    if (!entry.isDirectory) continue;
    places[i] = counts.size();
    counts.push_back(0);
  }
  return counts;
}

std::uint64_t ClustersNeeded(const BuildPreview& preview, std::uint64_t clusterBytes) {
  std::uint64_t clusters = 0;
  const std::vector<std::uint64_t> counts = CountEntries(preview);
  for (std::size_t i = 1; i < counts.size(); ++i) {
    // "." and ".." come first.
    clusters += internal::DivideUp(counts[i] + 2, clusterBytes / dir_entry::kSize);
  }
  for (const BuildPreviewEntry& entry : preview.entries) {
    if (entry.fate == BuildFate::kCopied) clusters += internal::DivideUp(entry.bytes, clusterBytes);
  }
  return clusters;
}

std::uint32_t ClusterBytes(const Geometry& geometry) {
  return geometry.sectorsPerCluster * internal::kSectorBytes;
}

std::uint32_t UsableClusters(const Geometry& geometry) {
  return internal::LastUsableCluster(geometry) - 1;
}

bool IsCommonlyRead(const Geometry& geometry) {
  return geometry.clusterCount >= internal::kFewestFat16Clusters &&
         UsableClusters(geometry) == geometry.clusterCount;
}

// Adds the entries one after the other, as a build does, until one ends it.
void AddAll(const BuildPreview& preview, const Geometry& geometry, ImageFit& fit) {
  DryImage image(geometry);
  std::vector<std::size_t> numbers(preview.entries.size());  // of directories, in the image
  std::size_t directories = 0;
  for (std::size_t i = 0; i < preview.entries.size(); ++i) {
    const BuildPreviewEntry& entry = preview.entries[i];
    if (entry.fate != BuildFate::kCopied) continue;
    const std::size_t parent = entry.directory == BuildPreviewEntry::kRoot
                                   ? DryImage::kRootDirectory
                                   : numbers[entry.directory];
    if (entry.isDirectory) {
      if (!image.AddDirectory(parent, fit.message)) return;
      numbers[i] = ++directories;
    } else if (!image.AddFile(parent, entry.bytes, fit.message)) {
      if (entry.bytes != 0) return;
      ++fit.dropped;
      fit.droppedEntries.push_back(i);
    }
  }
  fit.builds = true;
  fit.holds = fit.dropped == 0;
}

}  // namespace

bool internal::PreviewFolder(const fs::path& folder, const HostQueries& host, BuildPreview& preview,
                             std::string& err) {
  preview = BuildPreview();
  if (!CheckSource(folder, err)) return false;
  DryTarget target(folder, preview);
  preview.isEndless = !Populate(target, folder, host);
  return true;
}

bool PreviewBuild(const fs::path& folder, BuildPreview& preview, std::string& err) {
  return internal::PreviewFolder(folder, {}, preview, err);
}

ImageFit FitIntoImage(const BuildPreview& preview, std::uint64_t imageBytes) {
  ImageFit fit;
  Geometry geometry;
  if (!internal::ComputeGeometry(imageBytes, geometry, fit.message)) return fit;
  fit.clusterBytes = ClusterBytes(geometry);
  fit.clusters = UsableClusters(geometry);
  fit.clustersNeeded = ClustersNeeded(preview, fit.clusterBytes);
  fit.isCommonlyRead = IsCommonlyRead(geometry);
  AddAll(preview, geometry, fit);
  return fit;
}

std::uint64_t SmallestImage(const BuildPreview& preview, std::uint64_t aboveBytes) {
  if (preview.isEndless || CountEntries(preview)[0] > internal::kMostRootEntries) return 0;
  std::map<std::uint32_t, std::uint64_t> needed;  // by cluster size: eight at most
  for (std::uint64_t mebi = aboveBytes / kMiB + 1; mebi <= kMostMiB; ++mebi) {
    Geometry geometry;
    std::string ignored;
    if (!internal::ComputeGeometry(mebi * kMiB, geometry, ignored)) continue;
    if (!IsCommonlyRead(geometry)) continue;
    const std::uint32_t clusterBytes = ClusterBytes(geometry);
    const auto [known, isNew] = needed.try_emplace(clusterBytes, 0);
    if (isNew) known->second = ClustersNeeded(preview, clusterBytes);
    if (known->second <= UsableClusters(geometry)) return mebi * kMiB;
  }
  return 0;
}

}  // namespace quorbix::virtdisk
