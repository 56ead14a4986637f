#ifndef QUORBIX_VIRTDISK_GUARD_HOST_VIEW_H_
#define QUORBIX_VIRTDISK_GUARD_HOST_VIEW_H_

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "guard/facts.h"
#include "guard/kept_contents.h"
#include "guard/model.h"
#include "guard/planning.h"
#include "guard/state.h"
#include "guard/work_monitor.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"

namespace quorbix::virtdisk::internal::guard {

Stamp StampOf(const struct ::stat& status);

// What a file takes of its file system, in bytes.
std::uint64_t RoomOf(const struct ::stat& status);

// That of what lies at `path`, links followed; nothing when nothing does, with the cause in errno.
std::optional<Stamp> StampAt(const std::filesystem::path& path);

// A rename changes no more of a stamp than the time at which something about the file has changed.
bool IsSameButForItsName(Stamp now, const Stamp& before);

// Whether the entry `name` of an open folder is the one that had the stamp `seen`, unchanged, under
// whatever name.
bool IsStill(int folder, const std::filesystem::path& name, const Stamp& seen);

// How a look at the folder is taken.
struct HostLook {
  std::filesystem::path folder{};
  // Files and folders that take no part, wherever they lie: the image, the state's folder.
  std::vector<Identity> leftOut{};
  const std::map<std::string, SeenFile>* known = nullptr;  // contents that need no reading
  bool readsEverything = false;
  KeptContents* kept = nullptr;  // gets what is read, as far as it has room
  // Larger files have no room on the disk, whatever they say: of their content only the size is
  // found out.
  std::uint64_t mostBytes = std::numeric_limits<std::uint64_t>::max();
  std::int64_t settleNanoseconds = 0;
};

// The folder as it is.
struct HostView {
  enum class Result {
    kComplete,
    kBusy,        // `busyPath` is being written just now
    kUnreadable,  // the folder itself; `error` says why
    kStopped,
  };
  Result result = Result::kComplete;
  std::string busyPath{};
  std::string error{};

  Identity identity{};  // of the folder that was listed
  std::map<std::string, HostItem> items{};
  std::set<std::string> leftOut{};
  std::vector<GuardedNote> notes{};        // why they are left out
  std::map<std::string, SeenFile> seen{};  // of every file that could be read
  // Of the entry itself, also where it is a link; not of what is left out for its name.
  std::map<std::string, Stamp> entryStamps{};
  std::map<std::string, Stamp> leftOutTargets{};  // of links that lead somewhere
  FileLinks links{};
  std::vector<std::string> leftovers{};  // of passes that were cut off
  bool wasAllRead = true;                // every content, and none was taken from `known`
  std::int64_t latestFolderChange = 0;   // nanoseconds since 1970
};

// Lists the folder with all that lies below it, and reads what has to be read.
HostView LookAtHost(const HostLook& look, WorkMonitor& monitor);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_HOST_VIEW_H_
