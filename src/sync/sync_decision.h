#ifndef QUORBIX_VIRTDISK_SYNC_SYNC_DECISION_H_
#define QUORBIX_VIRTDISK_SYNC_SYNC_DECISION_H_

#include <optional>

#include "sync/file_version.h"

namespace quorbix::virtdisk::internal {

enum class SyncAction {
  kNothing,
  kCopyToHost,    // the image's version is the newer one
  kDeleteOnHost,  // the image no longer has what the host left unchanged
  kRebuildImage,  // the host is ahead: the image is made anew from it
};

// Whether both sides have the file, with different contents, and neither's is the one on which both
// last agreed: then the contents do not tell which is the newer one.
bool IsConflict(const std::optional<FileVersion>& host, const std::optional<FileVersion>& image,
                const std::optional<FileVersion>& baseline);

// Decides about one file from its version on the host, its version in the image and the version on
// which both last agreed, each absent where there is none.
SyncAction Decide(const std::optional<FileVersion>& host, const std::optional<FileVersion>& image,
                  const std::optional<FileVersion>& baseline);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_SYNC_SYNC_DECISION_H_
