#ifndef QUORBIX_VIRTDISK_GUARD_HOST_CONTENT_H_
#define QUORBIX_VIRTDISK_GUARD_HOST_CONTENT_H_

#include <atomic>
#include <cstdint>
#include <vector>

#include "guard/model.h"

namespace quorbix::virtdisk::internal::guard {

// Reads files of the host for what they say. `stopFlag`, which may be null, ends the reading.
class HostContentReader {
 public:
  explicit HostContentReader(const std::atomic<bool>* stopFlag);

  // Reads an open file from where it stands to its end. False: it was stopped, or the file could
  // not be read, with the cause in errno.
  [[nodiscard]] bool Read(int file, Content& content);

  bool IsStopped() const { return stop != nullptr && *stop; }

 private:
  const std::atomic<bool>* stop;
  std::vector<std::uint8_t> buffer;
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_HOST_CONTENT_H_
