#include "interop/fsck_findings.h"

#include <algorithm>
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

const std::vector<const char*> kBadName = {"/.*", "  Bad short file name \\(.*\\)\\.",
                                           "  Auto-renaming it\\.", "  Renamed to .*"};
const std::vector<const char*> kBadLabel = {
    "Volume label '.*' stored in root directory is not valid\\.", "  Auto-removing label\\."};

bool IsNoFault(const Lines& lines, std::size_t first) {
  return std::any_of(kNoFault.begin(), kNoFault.end(),
                     [&](const auto& patterns) { return Matches(lines, first, patterns); });
}

}  // namespace

FsckFindings ParseFsckReport(const std::string& report) {
  const Lines lines = SplitLines(report);
  FsckFindings findings;
  for (std::size_t i = 0; i < lines.size();) {
    if (Matches(lines, i, kBadName)) {
      findings.badNames.push_back(lines[i]);
      i += kBadName.size();
    } else if (Matches(lines, i, kBadLabel)) {
      findings.hasBadLabel = true;
      i += kBadLabel.size();
    } else {
      if (!IsNoFault(lines, i)) findings.others.push_back(lines[i]);
      ++i;
    }
  }
  return findings;
}

}  // namespace quorbix::virtdisk::test
