#ifndef QUORBIX_VIRTDISK_TOOL_STOP_SIGNALS_H_
#define QUORBIX_VIRTDISK_TOOL_STOP_SIGNALS_H_

#include <signal.h>

#include <chrono>

namespace quorbix::virtdisk::tool {

// While it lives, SIGINT and SIGTERM wait to be asked for instead of ending the process: work that
// is under way is finished first. To be made before any thread is started, since threads inherit
// what is blocked.
class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  // Waits until a signal arrives or the time is over. True: there was one, now or before.
  bool WaitFor(std::chrono::milliseconds time);

 private:
  ::sigset_t watched;
  ::sigset_t before;
  bool arrived = false;
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_STOP_SIGNALS_H_
