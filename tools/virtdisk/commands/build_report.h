#ifndef QUORBIX_VIRTDISK_TOOL_BUILD_REPORT_H_
#define QUORBIX_VIRTDISK_TOOL_BUILD_REPORT_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <quorbix/virtdisk/build_preview.h>

#include "disk/volume_view.h"
#include "terminal/json.h"

namespace quorbix::virtdisk::tool {

// An entry that the image shows under another name than the host.
struct Renamed {
  std::string host;   // relative to the folder
  std::string image;  // empty: the entry is in the image, but listings leave it out
};

// In the order of `preview`.
std::vector<Renamed> FindRenamed(const BuildPreview& preview);

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
  std::vector<std::string> skipped;  // path and reason
  std::vector<Renamed> renamed;
  std::string remark;
};

std::string FormatReport(const BuildReport& report);
Json ReportRecord(const BuildReport& report);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_BUILD_REPORT_H_
