#ifndef QUORBIX_VIRTDISK_TOOL_FOLDER_SURVEY_H_
#define QUORBIX_VIRTDISK_TOOL_FOLDER_SURVEY_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "host/plan.h"

namespace quorbix::virtdisk::tool {

// An entry that the image shows under another name than the host.
struct Renamed {
  std::filesystem::path host;  // relative to the folder surveyed
  std::string image;           // empty: the entry is in the image, but listings leave it out
};

struct FolderSurvey {
  FolderContent content;
  std::uint64_t files = 0;        // that a build places, empty ones included
  std::uint64_t directories = 0;  // likewise
  std::uint64_t unreadable = 0;   // files that a build lists as skipped for that
  std::vector<Renamed> renamed;   // folder by folder, each in the host's listing order
};

// Walks a folder as a build would: in the same listing order, links followed by their status, with
// the same short names, and passing over what a build passes over. Holds one open folder at a time
// and ends early when what it has met fits into no image, as with links that lead back up.
FolderSurvey SurveyFolder(const std::filesystem::path& folder);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_FOLDER_SURVEY_H_
