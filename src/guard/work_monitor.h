#ifndef QUORBIX_VIRTDISK_GUARD_WORK_MONITOR_H_
#define QUORBIX_VIRTDISK_GUARD_WORK_MONITOR_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <utility>

#include "quorbix/virtdisk/guarded_folder_sync.h"

namespace quorbix::virtdisk::internal::guard {

// Whoever waits for a pass: he may have it end, and is told how far it has come.
class WorkMonitor {
 public:
  WorkMonitor() = default;  // nobody waits
  // Either may be null; the flag must outlive this.
  WorkMonitor(const std::atomic<bool>* stopFlag, std::function<void(const GuardedProgress&)> toTell)
      : stop(stopFlag), tell(std::move(toTell)) {}

  bool IsStopped() const { return stop != nullptr && *stop; }

  // `total` is 0 where nobody knows.
  void Begin(GuardedWork work, std::uint64_t total = 0) { progress = {work, 0, total}; }

  void Add(std::uint64_t bytes) {
    progress.bytes += bytes;
    if (tell) tell(progress);
  }

 private:
  const std::atomic<bool>* stop = nullptr;
  std::function<void(const GuardedProgress&)> tell;
  GuardedProgress progress;
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_WORK_MONITOR_H_
