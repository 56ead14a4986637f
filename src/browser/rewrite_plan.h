#ifndef QUORBIX_VIRTDISK_BROWSER_REWRITE_PLAN_H_
#define QUORBIX_VIRTDISK_BROWSER_REWRITE_PLAN_H_

#include <cstdint>
#include <string>
#include <vector>

#include "browser/volume_index.h"

namespace quorbix::virtdisk::internal {

// Where the content of a file goes when it is replaced.
struct RewritePlan {
  // The file's clusters, all of which are overwritten: with the new content, then with zeros.
  std::vector<std::uint16_t> chain;
  // Of the four bytes that hold the file's size, in bytes from the start of the image; they lie
  // inside it, since the slot was read from there.
  std::uint64_t sizeOffset = 0;
};

// Plans to give the file at `path` a new content of `newBytes` bytes. On failure returns false with
// a message of Fat16FsImage::WriteExistingFile in `err`.
[[nodiscard]] bool PlanRewrite(const VolumeIndex& volume, const std::string& path,
                               std::uint64_t newBytes, RewritePlan& plan, std::string& err);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BROWSER_REWRITE_PLAN_H_
