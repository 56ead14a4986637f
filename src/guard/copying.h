#ifndef QUORBIX_VIRTDISK_GUARD_COPYING_H_
#define QUORBIX_VIRTDISK_GUARD_COPYING_H_

#include "guard/work_monitor.h"

namespace quorbix::virtdisk::internal::guard {

enum class Copying { kDone, kStopped, kCannotRead, kCannotWrite };

// Copies an open file from where it stands to its end, and tells of it. `whenStopped` says whether
// it ends as soon as the monitor is stopped. The cause of a failure is in errno.
enum class WhenStopped { kEnd, kGoOn };
Copying CopyToEnd(int from, int to, WhenStopped whenStopped, WorkMonitor& monitor);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_COPYING_H_
