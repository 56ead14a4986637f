#ifndef QUORBIX_VIRTDISK_TOOL_SYNC_REPORT_H_
#define QUORBIX_VIRTDISK_TOOL_SYNC_REPORT_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <quorbix/virtdisk/guarded_folder_sync.h>

#include "terminal/console.h"
#include "terminal/json.h"

namespace quorbix::virtdisk::tool {

// "17:20:05  disk -> folder  changed  LONG_FIL.TXT -> Long File Name.txt  12 KiB"
std::string StepLine(const GuardedStep& step, std::string_view time);

// "done", "refused" ...
const char* OutcomeName(GuardedOutcome outcome);

// The hazard with this name; nothing when there is none.
std::optional<GuardedHazard> FindHazard(std::string_view name);
std::vector<std::string> HazardNames();

// All of a report, as one object. `time` is "2026-11-21 17:20:05".
Json ReportObject(const GuardedReport& report, std::string_view time);

// Tells people what keeps a pass from being carried out although these hazards are accepted, and
// what to do about it.
void PrintRefusal(Console& console, const GuardedReport& report,
                  const std::vector<GuardedHazard>& accepted);

// "17:20:05", "2026-11-21 17:20:05": now, in the local time zone.
std::string ClockText();
std::string DateAndClockText();

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_SYNC_REPORT_H_
