#ifndef QUORBIX_VIRTDISK_GUARD_HOST_CONTENT_H_
#define QUORBIX_VIRTDISK_GUARD_HOST_CONTENT_H_

#include <cstdint>
#include <vector>

#include "guard/model.h"
#include "guard/work_monitor.h"

namespace quorbix::virtdisk::internal::guard {

// Reads files of the host for what they say.
class HostContentReader {
 public:
  explicit HostContentReader(WorkMonitor& workMonitor);

  // Reads an open file from where it stands to its end. False: it was stopped, or the file could
  // not be read, with the cause in errno. `bytes`, unless null, gets what it says, as far as that
  // fits into its capacity.
  [[nodiscard]] bool Read(int file, Content& content, std::vector<std::uint8_t>* bytes = nullptr);

  bool IsStopped() const { return monitor.IsStopped(); }

 private:
  WorkMonitor& monitor;
  std::vector<std::uint8_t> buffer;
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_HOST_CONTENT_H_
