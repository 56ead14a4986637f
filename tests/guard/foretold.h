#ifndef QUORBIX_VIRTDISK_TESTS_GUARD_FORETOLD_H_
#define QUORBIX_VIRTDISK_TESTS_GUARD_FORETOLD_H_

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "quorbix/virtdisk/guarded_folder_sync.h"

namespace quorbix::virtdisk::internal::guard {

// With every "2026-11-21 17.20.05" as "TIME".
inline std::string WithoutTimes(std::string text) {
  constexpr std::string_view kShape = "dddd-dd-dd dd.dd.dd";
  const auto isAsShaped = [](char shape, char c) {
    return shape == 'd' ? c >= '0' && c <= '9' : c == shape;
  };
  for (std::size_t i = 0; i + kShape.size() <= text.size(); ++i) {
    if (std::equal(kShape.begin(), kShape.end(), &text[i], isAsShaped)) {
      text.replace(i, kShape.size(), "TIME");
    }
  }
  return text;
}

// All that a report tells of what a pass comes to before it begins, a line a fact: what a preview
// and the pass after it have in common. The time in the names of kept versions is left out.
inline std::string Foretold(const GuardedReport& report) {
  std::string text =
      "outcome " + std::to_string(static_cast<int>(report.outcome)) + ' ' + report.message + '\n';
  for (const GuardedHazardReport& hazard : report.hazards) {
    text += std::string("hazard ") + GuardedHazardName(hazard.hazard) +
            (hazard.canBeAccepted ? ": " : "! ") + hazard.text + '\n';
    for (const std::string& path : hazard.paths) text += "  " + path + '\n';
    text += "  of " + std::to_string(hazard.pathCount) + '\n';
  }
  for (const GuardedStep& step : report.steps) {
    text += "step " + std::to_string(static_cast<int>(step.kind)) + " because of " +
            std::to_string(static_cast<int>(step.reason)) + ": " + step.hostPath + " = " +
            step.diskPath + ", " + std::to_string(step.bytes) + '\n';
  }
  for (const GuardedNote& note : report.notes) {
    text += "note " + note.path + ": " + note.text + '\n';
  }
  text += (report.isFirstMeeting ? "first meeting, " : "") + std::to_string(report.files) +
          " files, " + std::to_string(report.bytes) + " bytes\n";
  return WithoutTimes(std::move(text));
}

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_TESTS_GUARD_FORETOLD_H_
