#ifndef QUORBIX_VIRTDISK_PREVIEW_DRY_IMAGE_H_
#define QUORBIX_VIRTDISK_PREVIEW_DRY_IMAGE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fat16/geometry.h"

namespace quorbix::virtdisk::internal {

// An image under construction without its bytes: it knows how many clusters are free and how many
// slots each directory has left, and so which entry would meet a full disk, and with what message.
// Its operations are those of Fat16Image, without names and content.
class DryImage {
 public:
  static constexpr std::size_t kRootDirectory = 0;

  // The label takes the root's first slot.
  explicit DryImage(const Geometry& imageGeometry);

  // Adds a directory to one that was added before, and numbers it: 1, 2, ... False: `err` says why.
  [[nodiscard]] bool AddDirectory(std::size_t parent, std::string& err);
  [[nodiscard]] bool AddFile(std::size_t parent, std::uint64_t bytes, std::string& err);

  std::uint64_t ClustersTaken() const { return taken; }

 private:
  bool Take(std::uint64_t clusters);
  bool TakeSlot(std::size_t directory, std::string& err);

  struct Directory {
    std::uint64_t slots = 0;  // in the clusters it has
    std::uint64_t used = 0;
  };

  const std::uint64_t clusterBytes;
  const std::uint64_t usable;  // clusters
  std::uint64_t taken = 0;     // clusters
  std::vector<Directory> directories;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_PREVIEW_DRY_IMAGE_H_
