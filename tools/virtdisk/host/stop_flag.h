#ifndef QUORBIX_VIRTDISK_TOOL_STOP_FLAG_H_
#define QUORBIX_VIRTDISK_TOOL_STOP_FLAG_H_

#include <signal.h>

#include <array>
#include <atomic>
#include <chrono>

namespace quorbix::virtdisk::tool {

// While it lives, SIGINT, SIGTERM and SIGHUP set a flag instead of ending the process: work that is
// under way looks at it and ends where nothing is left half done. A SIGHUP that is ignored, as
// under nohup, stays so. One at a time.
class StopFlag {
 public:
  StopFlag();
  ~StopFlag();
  StopFlag(const StopFlag&) = delete;
  StopFlag& operator=(const StopFlag&) = delete;

  static const std::atomic<bool>& Flag();
  static bool IsSet() { return Flag(); }

  // What the program ends with because of the signal: 128 and its number; 0 when none came.
  static int ExitStatus();

  // Waits until the flag is set, `other` can be read (-1: nothing else counts), or the time is
  // over. True: `other` can be read.
  static bool WaitFor(int other, std::chrono::milliseconds time);

 private:
  std::array<struct ::sigaction, 3> before{};
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_STOP_FLAG_H_
