#ifndef QUORBIX_VIRTDISK_GUARD_NEW_IMAGE_H_
#define QUORBIX_VIRTDISK_GUARD_NEW_IMAGE_H_

#include <cstdint>
#include <filesystem>
#include <vector>

#include "fat16/fat16_image.h"
#include "guard/disk_view.h"
#include "guard/ending.h"
#include "guard/host_changes.h"
#include "guard/kept_contents.h"
#include "guard/planning.h"
#include "guard/work_monitor.h"

namespace quorbix::virtdisk::internal::guard {

// What a new image is made of.
struct ImageParts {
  const std::vector<TreeEntry>& tree;
  std::filesystem::path folder{};  // of the host
  const DiskView& old;
  ImageContents& oldContents;
  const KeptContents& kept;  // of the folder
  std::uint32_t volumeId = 0;
};

// Makes an image of the old one's size that holds the tree, in memory. Every file that is not kept
// is read once, and has to be what was planned.
//
// From the old image it takes the label, the boot code, and for every entry that stays as it was
// its attributes and times and its place among the others: machines start from files that come
// first.
//
// `suspect` is the file of the host that was read and is not what was planned, if that is why it
// ends; else empty.
[[nodiscard]] Ending MakeImage(const ImageParts& parts, Fat16Image& image, std::string& suspect,
                               WorkMonitor& monitor);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_NEW_IMAGE_H_
