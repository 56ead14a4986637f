#include "sync/sync_decision.h"

namespace quorbix::virtdisk::internal {
namespace {

bool Same(const FileVersion& a, const std::optional<FileVersion>& b) {
  return b && a.contentHash == b->contentHash;
}

// The stamps are raw numbers in different units, and are compared as such, deliberately. Equal ones
// speak for the host.
SyncAction DecideConflict(const FileVersion& host, const FileVersion& image) {
  return host.modifiedStamp < image.modifiedStamp ? SyncAction::kCopyToHost
                                                  : SyncAction::kRebuildImage;
}

SyncAction DecideOnBothSides(const FileVersion& host, const FileVersion& image,
                             const std::optional<FileVersion>& baseline) {
  if (IsConflict(host, image, baseline)) return DecideConflict(host, image);
  if (Same(host, image)) return SyncAction::kNothing;
  // Only one side changed.
  return Same(image, baseline) ? SyncAction::kRebuildImage : SyncAction::kCopyToHost;
}

SyncAction DecideOnHostOnly(const FileVersion& host, const std::optional<FileVersion>& baseline) {
  // Without a baseline the file is new; with a different one, the host changed what the image
  // deleted, and a change outweighs a deletion.
  return Same(host, baseline) ? SyncAction::kDeleteOnHost : SyncAction::kRebuildImage;
}

SyncAction DecideInImageOnly(const FileVersion& image, const std::optional<FileVersion>& baseline) {
  return Same(image, baseline) ? SyncAction::kRebuildImage : SyncAction::kCopyToHost;
}

}  // namespace

bool IsConflict(const std::optional<FileVersion>& host, const std::optional<FileVersion>& image,
                const std::optional<FileVersion>& baseline) {
  return host && image && !Same(*host, image) && !Same(*host, baseline) && !Same(*image, baseline);
}

SyncAction Decide(const std::optional<FileVersion>& host, const std::optional<FileVersion>& image,
                  const std::optional<FileVersion>& baseline) {
  if (host && image) return DecideOnBothSides(*host, *image, baseline);
  if (host) return DecideOnHostOnly(*host, baseline);
  if (image) return DecideInImageOnly(*image, baseline);
  return SyncAction::kNothing;
}

}  // namespace quorbix::virtdisk::internal
