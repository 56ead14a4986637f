#include "guard/file_lock.h"

#include <sys/file.h>

#include <cerrno>
#include <chrono>
#include <thread>

namespace quorbix::virtdisk::internal::guard {
namespace {

// Far longer than a look has the lock.
constexpr std::chrono::milliseconds kLookIsOver{50};

Locking LockingOf(int result) {
  if (result == 0) return Locking::kTaken;
  return errno == EWOULDBLOCK ? Locking::kHeld : Locking::kFailed;
}

}  // namespace

Locking TryLock(int file) {
  const Locking locking = LockingOf(::flock(file, LOCK_EX | LOCK_NB));
  if (locking != Locking::kHeld) return locking;
  std::this_thread::sleep_for(kLookIsOver);
  return LockingOf(::flock(file, LOCK_EX | LOCK_NB));
}

// Shared, so that two who look do not see each other.
Locking LookAtLock(int file) {
  const Locking locking = LockingOf(::flock(file, LOCK_SH | LOCK_NB));
  if (locking == Locking::kTaken) ::flock(file, LOCK_UN);
  return locking;
}

}  // namespace quorbix::virtdisk::internal::guard
