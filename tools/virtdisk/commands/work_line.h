#ifndef QUORBIX_VIRTDISK_TOOL_WORK_LINE_H_
#define QUORBIX_VIRTDISK_TOOL_WORK_LINE_H_

#include <cstdint>
#include <functional>
#include <optional>

#include <quorbix/virtdisk/guarded_folder_sync.h>

#include "terminal/console.h"
#include "terminal/progress.h"

namespace quorbix::virtdisk::tool {

// The progress line of a guarded pass, or of a restore: one kind of work after the other. It goes
// with the object.
class WorkLine {
 public:
  explicit WorkLine(Console& console,
                    std::function<Progress::Clock::time_point()> now = Progress::Clock::now);

  void Show(const GuardedProgress& told);

 private:
  Progress line;
  std::optional<GuardedProgress> last;
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_WORK_LINE_H_
