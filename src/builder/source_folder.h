#ifndef QUORBIX_VIRTDISK_BUILDER_SOURCE_FOLDER_H_
#define QUORBIX_VIRTDISK_BUILDER_SOURCE_FOLDER_H_

#include <filesystem>
#include <string>

#include "common/fail.h"

namespace quorbix::virtdisk::internal {

// False: nothing can be built from `folder`, for a reason that `err` tells. Throws
// std::filesystem::filesystem_error when the host does not say what it is.
[[nodiscard]] inline bool CheckSourceFolder(const std::filesystem::path& folder, std::string& err) {
  if (!std::filesystem::exists(folder)) {
    return Fail(err, "Source folder does not exist: " + folder.string());
  }
  if (!std::filesystem::is_directory(folder)) {
    return Fail(err, "Source path is not a directory: " + folder.string());
  }
  return true;
}

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BUILDER_SOURCE_FOLDER_H_
