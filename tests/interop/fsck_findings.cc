#include "interop/fsck_findings.h"

#include <cstddef>
#include <regex>
#include <sstream>

namespace quorbix::virtdisk::test {
namespace {

using Lines = std::vector<std::string>;

Lines SplitLines(const std::string& text) {
  Lines lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// Whether the lines from `first` on match the patterns, one each.
bool Matches(const Lines& lines, std::size_t first, const std::vector<const char*>& patterns) {
  if (lines.size() - first < patterns.size()) return false;
  for (std::size_t i = 0; i < patterns.size(); ++i) {
    if (!std::regex_match(lines[first + i], std::regex(patterns[i]))) return false;
  }
  return true;
}

const std::vector<std::vector<const char*>> kNoFault = {
    {"fsck\\.fat .*"},
    {".*: \\d+ files, \\d+/\\d+ clusters"},
    {""},
    {"Leaving filesystem unchanged\\."},
};

const std::vector<std::vector<const char*>> kExpectedFindings = {
    {"/(.*/)?\\.[^/]*", "  Bad short file name \\(\\..*\\)\\.", "  Auto-renaming it\\.",
     "  Renamed to .*"},
    {"Volume label '.*' stored in root directory is not valid\\.", "  Auto-removing label\\."},
};

}  // namespace

std::vector<std::string> UnexpectedFindings(const std::string& report) {
  const Lines lines = SplitLines(report);
  Lines unexpected;
  for (std::size_t i = 0; i < lines.size();) {
    std::size_t accepted = 0;
    for (const auto* group : {&kNoFault, &kExpectedFindings}) {
      for (const auto& patterns : *group) {
        if (accepted == 0 && Matches(lines, i, patterns)) accepted = patterns.size();
      }
    }
    if (accepted == 0) unexpected.push_back(lines[i]);
    i += accepted == 0 ? 1 : accepted;
  }
  return unexpected;
}

}  // namespace quorbix::virtdisk::test
