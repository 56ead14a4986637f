#ifndef QUORBIX_VIRTDISK_GUARD_COPYING_H_
#define QUORBIX_VIRTDISK_GUARD_COPYING_H_

#include <cstdint>
#include <span>

#include "guard/work_monitor.h"

namespace quorbix::virtdisk::internal::guard {

enum class Copying { kDone, kStopped, kCannotRead, kCannotWrite };

// Copies an open file from where it stands to its end, and tells of it; ends as soon as the monitor
// is stopped. The cause of a failure is in errno.
Copying CopyToEnd(int from, int to, WorkMonitor& monitor);

// False: the system did not take all of `bytes` at that offset.
[[nodiscard]] bool WriteAt(int file, std::uint64_t offset, std::span<const std::uint8_t> bytes);

// Makes a file from `offset` on what another one is there, to the end of that, and tells of it.
// What is the same already is not written: little has changed in most images, and so it is over
// sooner. Goes on when the monitor is stopped. `to` can be read as well.
Copying CopyDifferences(int from, int to, std::uint64_t offset, WorkMonitor& monitor);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_COPYING_H_
