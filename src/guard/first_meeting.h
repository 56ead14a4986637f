#ifndef QUORBIX_VIRTDISK_GUARD_FIRST_MEETING_H_
#define QUORBIX_VIRTDISK_GUARD_FIRST_MEETING_H_

#include <filesystem>
#include <map>
#include <string>

#include "guard/model.h"
#include "guard/pairing.h"
#include "guard/work_monitor.h"

namespace quorbix::virtdisk::internal::guard {

// What a disk may have from a build of the folder.
struct FirstMeeting {
  NameHints::Names names{};  // that a build gives
  // Entries of the disk that are what a build makes of entries that take no part here, such as
  // links to folders: nothing that a machine has put there.
  std::map<std::string, Ignored> ignored{};  // by key
  std::string busyPath{};  // a file that somebody would have to let go of before it can be read
};

// Looks at the folder as a build would, when nothing is known of it and the disk yet. What it
// returns is of no use once it is stopped.
FirstMeeting MeetFirst(const std::filesystem::path& folder, const Observation& seen,
                       WorkMonitor& monitor);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_FIRST_MEETING_H_
