#ifndef QUORBIX_VIRTDISK_BROWSER_RELEASE_SLACK_H_
#define QUORBIX_VIRTDISK_BROWSER_RELEASE_SLACK_H_

#include <cstddef>

namespace quorbix::virtdisk::internal {

// Whether a vector for `size` elements would leave more than half of `capacity` unused. Less is
// kept: vectors grow by doubling, and an image of nearly the same size often comes next.
constexpr bool WastesMemory(std::size_t capacity, std::size_t size) { return capacity / 2 > size; }

// Gives a vector's memory back where most of it is left over from a larger volume.
template <class Vector>
void ReleaseSlack(Vector& vector) {
  if (WastesMemory(vector.capacity(), vector.size())) vector.shrink_to_fit();
}

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BROWSER_RELEASE_SLACK_H_
