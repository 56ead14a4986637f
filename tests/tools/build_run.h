#ifndef QUORBIX_VIRTDISK_TESTS_TOOLS_BUILD_RUN_H_
#define QUORBIX_VIRTDISK_TESTS_TOOLS_BUILD_RUN_H_

#include <string>
#include <vector>

#include "program_run.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::test {

// Builds disk.img from the folder DISK, both in `folder`.
inline ProgramRun BuildDisk(const TempFolder& folder, std::vector<std::string> more = {}) {
  std::vector<std::string> arguments{"build", (folder / "DISK").string(),
                                     (folder / "disk.img").string()};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return RunVirtdisk(arguments);
}

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_TOOLS_BUILD_RUN_H_
