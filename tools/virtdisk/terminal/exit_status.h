#ifndef QUORBIX_VIRTDISK_TOOL_EXIT_STATUS_H_
#define QUORBIX_VIRTDISK_TOOL_EXIT_STATUS_H_

namespace quorbix::virtdisk::tool {

// What the program ends with. Scripts rely on the numbers.
enum ExitStatus : int {
  kDone = 0,
  kFailed = 1,
  kUsage = 2,
  kRefused = 3,          // by a guard, before anything was touched
  kRemarks = 4,          // done, but with remarks; only under --strict
  kEndedBySignal = 128,  // and the signal's number
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_EXIT_STATUS_H_
