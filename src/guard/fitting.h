#ifndef QUORBIX_VIRTDISK_GUARD_FITTING_H_
#define QUORBIX_VIRTDISK_GUARD_FITTING_H_

#include <cstdint>
#include <string>
#include <vector>

#include "guard/planning.h"

namespace quorbix::virtdisk::internal::guard {

struct Fitting {
  bool fits = false;
  std::string message;  // why not, in the writer's words
  bool isSize = true;   // false: no volume has the image's size, whatever it holds
  // Of an image that holds the tree: the smallest larger one, and where no larger one does, the
  // smallest. 0 when none does.
  std::uint64_t bytesThatDo = 0;
};

// Whether an image of `imageBytes` bytes takes the entries of a tree.
Fitting FitTree(const std::vector<TreeEntry>& tree, std::uint64_t imageBytes);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_FITTING_H_
