#include "commands/sync_report.h"

#include <time.h>

#include <algorithm>
#include <array>
#include <ctime>

#include "browser/path_text.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

using Kind = GuardedStep::Kind;
using Reason = GuardedStep::Reason;

constexpr std::size_t kMostPathsShown = 5;

bool IsOnHost(Kind kind) {
  return kind == Kind::kWriteOnHost || kind == Kind::kMakeOnHost || kind == Kind::kDeleteOnHost ||
         kind == Kind::kRemoveOnHost;
}

bool IsAboutFile(Kind kind) {
  return kind == Kind::kWriteOnHost || kind == Kind::kDeleteOnHost || kind == Kind::kWriteOnDisk ||
         kind == Kind::kDeleteOnDisk;
}

const char* KindName(Kind kind) {
  switch (kind) {
    case Kind::kWriteOnHost:
    case Kind::kWriteOnDisk:
      return "write";
    case Kind::kMakeOnHost:
    case Kind::kMakeOnDisk:
      return "make";
    case Kind::kDeleteOnHost:
    case Kind::kDeleteOnDisk:
      return "delete";
    case Kind::kRemoveOnHost:
    case Kind::kRemoveOnDisk:
      return "remove";
  }
  return "";
}

const char* ReasonName(Reason reason) {
  switch (reason) {
    case Reason::kNew:
      return "new";
    case Reason::kChanged:
      return "changed";
    case Reason::kDeleted:
      return "deleted";
    case Reason::kConflict:
      return "conflict";
    case Reason::kUnreadable:
      return "repaired";
  }
  return "";
}

// "/DOCS/A.TXT" -> "DOCS/A.TXT"
std::string DiskPath(const GuardedStep& step) {
  return step.diskPath.empty() ? std::string() : step.diskPath.substr(1);
}

// From where it comes to where it goes, once when both have the same name.
std::string Names(const GuardedStep& step) {
  const std::string disk = DiskPath(step);
  if (internal::NormalizePath(disk) == internal::NormalizePath(step.hostPath)) {
    return Printable(IsOnHost(step.kind) ? step.hostPath : disk);
  }
  const std::string& from = IsOnHost(step.kind) ? disk : step.hostPath;
  const std::string& to = IsOnHost(step.kind) ? step.hostPath : disk;
  return Printable(from) + " -> " + Printable(to);
}

Json StepObject(const GuardedStep& step) {
  Json object;
  object["to"] = IsOnHost(step.kind) ? "folder" : "disk";
  object["action"] = KindName(step.kind);
  object["type"] = IsAboutFile(step.kind) ? "file" : "folder";
  object["reason"] = ReasonName(step.reason);
  object["hostPath"] = step.hostPath;
  object["diskPath"] = step.diskPath;
  object["bytes"] = step.bytes;
  object["done"] = step.isDone;
  return object;
}

}  // namespace

std::string StepLine(const GuardedStep& step, std::string_view time) {
  std::string line(time);
  line += IsOnHost(step.kind) ? "  disk -> folder  " : "  folder -> disk  ";
  std::string reason = ReasonName(step.reason);
  reason.resize(std::max<std::size_t>(reason.size(), 8), ' ');
  line += reason + "  " + Names(step);
  return line + (IsAboutFile(step.kind) ? "  " + FormatBytes(step.bytes) : "/");
}

const char* OutcomeName(GuardedOutcome outcome) {
  switch (outcome) {
    case GuardedOutcome::kNothingToDo:
      return "nothing to do";
    case GuardedOutcome::kDone:
      return "done";
    case GuardedOutcome::kRefused:
      return "refused";
    case GuardedOutcome::kNotNow:
      return "not now";
    case GuardedOutcome::kFailed:
      return "failed";
    case GuardedOutcome::kStopped:
      return "stopped";
  }
  return "";
}

std::vector<std::string> HazardNames() {
  std::vector<std::string> names;
  for (int i = 0; i <= static_cast<int>(GuardedHazard::kConflict); ++i) {
    names.emplace_back(GuardedHazardName(static_cast<GuardedHazard>(i)));
  }
  return names;
}

std::optional<GuardedHazard> FindHazard(std::string_view name) {
  const std::vector<std::string> names = HazardNames();
  const auto found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) return std::nullopt;
  return static_cast<GuardedHazard>(found - names.begin());
}

Json ReportObject(const GuardedReport& report, std::string_view time) {
  Json object;
  object["time"] = time;
  object["outcome"] = OutcomeName(report.outcome);
  object["message"] = report.message;
  object["steps"] = Json::array();
  for (const GuardedStep& step : report.steps) object["steps"].push_back(StepObject(step));
  object["hazards"] = Json::array();
  for (const GuardedHazardReport& hazard : report.hazards) {
    object["hazards"].push_back({{"name", GuardedHazardName(hazard.hazard)},
                                 {"canBeAccepted", hazard.canBeAccepted},
                                 {"text", hazard.text},
                                 {"paths", hazard.paths},
                                 {"pathCount", hazard.pathCount}});
  }
  object["notes"] = Json::array();
  for (const GuardedNote& note : report.notes) {
    object["notes"].push_back({{"path", note.path}, {"text", note.text}});
  }
  object["firstMeeting"] = report.isFirstMeeting;
  object["files"] = report.files;
  object["bytes"] = report.bytes;
  object["lastReadInFull"] = report.lastReadInFull;
  return object;
}

void PrintRefusal(Console& console, const GuardedReport& report,
                  const std::vector<GuardedHazard>& accepted) {
  for (const GuardedHazardReport& hazard : report.hazards) {
    const bool isAccepted =
        std::find(accepted.begin(), accepted.end(), hazard.hazard) != accepted.end();
    if (isAccepted && hazard.canBeAccepted) continue;
    const std::string hint =
        hazard.canBeAccepted
            ? "To go on all the same: --accept " + std::string(GuardedHazardName(hazard.hazard))
            : "This cannot be accepted.";
    Fail(console, hazard.text, hint);
    for (std::size_t i = 0; i < std::min(hazard.paths.size(), kMostPathsShown); ++i) {
      console.err << "  " << Printable(hazard.paths[i]) << "\n";
    }
    if (hazard.pathCount > kMostPathsShown) {
      console.err << "  and " << Count(hazard.pathCount - kMostPathsShown, "other", "others")
                  << "\n";
    }
  }
  console.err.flush();
}

std::string ClockText() {
  return DateAndClockText().substr(std::string_view("2026-11-21 ").size());
}

std::string DateAndClockText() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::localtime_r(&now, &parts);
  std::array<char, 64> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts)};
}

}  // namespace quorbix::virtdisk::tool
