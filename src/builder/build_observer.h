#ifndef QUORBIX_VIRTDISK_BUILDER_BUILD_OBSERVER_H_
#define QUORBIX_VIRTDISK_BUILDER_BUILD_OBSERVER_H_

#include <cstdint>

namespace quorbix::virtdisk::internal {

// Told by a build, on its own thread, how far it has come.
class BuildObserver {
 public:
  virtual ~BuildObserver() = default;

  // So many bytes of a file's content were read into the image, after each file and, in large ones,
  // after each few MiB. A file that changes while it is read may be counted twice in part.
  virtual void OnBytes(std::uint64_t bytes) = 0;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BUILDER_BUILD_OBSERVER_H_
