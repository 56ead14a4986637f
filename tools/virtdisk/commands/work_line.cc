#include "commands/work_line.h"

#include <utility>

namespace quorbix::virtdisk::tool {
namespace {

const char* WorkName(GuardedWork work) {
  switch (work) {
    case GuardedWork::kReadFolder:
      return "reading the folder";
    case GuardedWork::kReadDisk:
      return "reading the disk";
    case GuardedWork::kWriteFolder:
      return "writing to the folder";
    case GuardedWork::kMakeDisk:
      return "making the new disk";
    case GuardedWork::kWriteDisk:
      return "writing the new disk";
    case GuardedWork::kCheckDisk:
      return "checking the new disk";
    case GuardedWork::kKeep:
      return "keeping what is replaced";
    case GuardedWork::kRestore:
      return "restoring";
  }
  return "";
}

}  // namespace

WorkLine::WorkLine(Console& console, std::function<Progress::Clock::time_point()> now)
    : line(console, WorkName(GuardedWork::kReadFolder), 0, ProgressUnit::kBytes, std::move(now)) {}

void WorkLine::Show(const GuardedProgress& told) {
  const bool isSame = last && last->work == told.work && last->bytes <= told.bytes;
  if (!isSame) line.Turn(WorkName(told.work), told.total);
  line.Add(told.bytes - (isSame ? last->bytes : 0));
  last = told;
}

}  // namespace quorbix::virtdisk::tool
