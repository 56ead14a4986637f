#ifndef QUORBIX_VIRTDISK_GUARD_FILE_LOCK_H_
#define QUORBIX_VIRTDISK_GUARD_FILE_LOCK_H_

namespace quorbix::virtdisk::internal::guard {

// Locks of flock(2), which the system takes back when the process ends.

enum class Locking {
  kTaken,
  kHeld,    // by somebody else
  kFailed,  // as errno says
};

// Locks an open file or folder. Nobody is waited for but who only looks whether it is locked.
Locking TryLock(int file);

// What TryLock would come to.
Locking LookAtLock(int file);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_FILE_LOCK_H_
