#ifndef QUORBIX_VIRTDISK_TOOL_BUILD_REPORT_H_
#define QUORBIX_VIRTDISK_TOOL_BUILD_REPORT_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <quorbix/virtdisk/build_preview.h>

#include "commands/build_notes.h"
#include "disk/volume_view.h"
#include "terminal/json.h"

namespace quorbix::virtdisk::tool {

// What a build made.
struct BuildReport {
  std::filesystem::path image;
  std::uint64_t bytes = 0;
  std::string label;
  std::uint32_t volumeId = 0;
  std::uint32_t clusterBytes = 0;
  ClusterCounts clusters;
  std::uint64_t files = 0;
  std::uint64_t directories = 0;
  BuildNotes notes;
  std::string remark;
  bool hasFolderChanged = false;  // between the look at it and its copying
};

// The summary for people.
std::string FormatReport(const BuildReport& report);

// Details of one kind, each a line, under a title that counts them.
struct RemarkGroup {
  std::string title;
  std::vector<std::string> lines;
};
std::vector<RemarkGroup> GroupRemarks(const BuildNotes& notes);

// All of it, for programs.
Json ReportRecord(const BuildReport& report);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_BUILD_REPORT_H_
