#include "preview/dry_image.h"

#include "common/divide_up.h"
#include "common/fail.h"
#include "fat16/full_disk.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::internal {

DryImage::DryImage(const Geometry& imageGeometry)
    : clusterBytes(std::uint64_t{imageGeometry.sectorsPerCluster} * kSectorBytes),
      usable(LastUsableCluster(imageGeometry) - 1) {
  directories.push_back({.slots = kRootEntryCount, .used = 1});
}

bool DryImage::AddDirectory(std::size_t parent, std::string& err) {
  if (!Take(1)) return Fail(err, kDiskFull);
  if (!TakeSlot(parent, err)) return false;
  // "." and ".." come first.
  directories.push_back({.slots = clusterBytes / dir_entry::kSize, .used = 2});
  return true;
}

bool DryImage::AddFile(std::size_t parent, std::uint64_t bytes, std::string& err) {
  const std::uint64_t clusters = DivideUp(bytes, clusterBytes);
  if (clusters > 0 && taken == usable) return Fail(err, kDiskFull);
  if (!Take(clusters)) return Fail(err, kDiskFullInFile);
  return TakeSlot(parent, err);
}

bool DryImage::Take(std::uint64_t clusters) {
  if (clusters > usable - taken) return false;
  taken += clusters;
  return true;
}

bool DryImage::TakeSlot(std::size_t directory, std::string& err) {
  Directory& into = directories[directory];
  if (into.used == into.slots) {
    if (directory == kRootDirectory) return Fail(err, kRootFull);
    if (!Take(1)) return Fail(err, kCannotExtend);
    into.slots += clusterBytes / dir_entry::kSize;
  }
  ++into.used;
  return true;
}

}  // namespace quorbix::virtdisk::internal
