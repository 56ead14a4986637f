#ifndef QUORBIX_VIRTDISK_GUARD_TRASH_H_
#define QUORBIX_VIRTDISK_GUARD_TRASH_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "guard/ending.h"
#include "guard/work_monitor.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"

namespace quorbix::virtdisk::internal::guard {

// What a pass replaces or deletes goes to a folder of its own: "trash/<time>" in the state's
// folder, with a manifest that says what each thing was. A thing that the manifest names and that
// is not there was never taken away.

struct TrashRequest {
  std::string side;  // "folder" or "disk"
  std::string path;  // where it is
  std::string why;
  // Of what is to be moved: tells it again where a kill has left it under a temporary name. 0: it
  // is copied.
  std::uint64_t inode = 0;
};

class TrashRun {
 public:
  // `when` is the pass's time: "2026-11-21 17.20.05". Nothing is made yet.
  TrashRun(const std::filesystem::path& stateFolder, const std::string& when);

  // Takes down what is about to come, and returns a path for each, on which there is nothing yet.
  // On failure returns false and says why in `err`.
  [[nodiscard]] bool Announce(const std::vector<TrashRequest>& requests,
                              std::vector<std::filesystem::path>& places, std::string& err);

  // Writes the entries of the folder out to the disk.
  [[nodiscard]] bool Flush(std::string& err) const;

  // Takes the folder away again if nothing has come into it: a pass that fails, and is tried again
  // and again, takes nobody's place.
  void DropIfEmpty() const;

 private:
  bool MakeFolder(std::string& err);

  const std::filesystem::path trash;
  const std::string when;
  std::filesystem::path folder;  // empty until something is announced
  std::size_t count = 0;
};

// Why a pass could put nothing into the trash of a state folder; empty: it could, as far as kinds
// of entries and permissions tell.
std::string WhyTrashIsUnusable(const std::filesystem::path& stateFolder);

// Where a copy lies until it is whole: what is named in the manifest is never cut.
std::filesystem::path PartOf(const std::filesystem::path& place);

// Where a thing of the trash lies.
std::filesystem::path PlaceInTrash(const std::filesystem::path& stateFolder, const std::string& id);

// Copies the entry `name` of an open folder, a file or a link, to `place`, where nothing may be,
// with its mode and times, and writes it out. False: the cause is in errno, ECANCELED when it was
// stopped and EBUSY when it changed meanwhile; what there is at `place` is not whole.
[[nodiscard]] bool CopyEntry(int folder, const std::string& name,
                             const std::filesystem::path& place, WorkMonitor& monitor);

// Moves the entry `name` of an open folder to `place`; copies it, with its mode and times, where
// that is on another file system. Unless that is done, the entry is where it was. `shown` is what a
// text calls it, where it goes by a temporary name.
[[nodiscard]] Ending MoveToTrash(int folder, const std::string& name,
                                 const std::filesystem::path& place, WorkMonitor& monitor,
                                 const std::string& shown);

// How much room a trash takes, in bytes of its file system.
struct TrashSize {
  std::uint64_t held = 0;
  std::uint64_t spare = 0;  // of these, what TrimTrash would give back
};

struct TrashBound {
  std::size_t passes = 0;
  std::uint64_t bytes = 0;
  // What a pass that was cut off has thrown away, and those that end it, stays until that is done:
  // all that is later than this pass, the name of a folder; empty: all.
  std::optional<std::string> keepAfter{};
};

TrashSize MeasureTrash(const std::filesystem::path& stateFolder, const TrashBound& bound);

// Deletes the oldest passes until no more than the bound is left; the latest one stays. What was
// announced and never came counts as nothing.
void TrimTrash(const std::filesystem::path& stateFolder, const TrashBound& bound);

// What was announced and has not come, by inode: a pass that was cut off may have had it in its
// hands.
std::map<std::uint64_t, TrashRequest> NeverCome(const std::filesystem::path& stateFolder);

// All that has come, the oldest first. On failure returns false and says why in `err`.
[[nodiscard]] bool ListItems(const std::filesystem::path& stateFolder,
                             std::vector<TrashedItem>& items, std::string& err);

// The name of the latest pass's folder; empty when there is none.
std::string LatestPassIn(const std::filesystem::path& stateFolder);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_TRASH_H_
