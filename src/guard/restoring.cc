#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "common/fail.h"
#include "common/host_file.h"
#include "guard/clock.h"
#include "guard/ending.h"
#include "guard/host_view.h"
#include "guard/memory.h"
#include "guard/paths.h"
#include "guard/renames.h"
#include "guard/state_file.h"
#include "guard/system_text.h"
#include "guard/trash.h"
#include "guard/work_monitor.h"
#include "guard/writers.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"

// Bringing back from the trash.

namespace quorbix::virtdisk {
namespace {

namespace fs = std::filesystem;
using namespace internal::guard;
using internal::Fail;
using internal::FlushFolder;

constexpr char kDisk[] = "disk";
constexpr char kRestoredOver[] = "restored over";

void RemoveMade(const std::vector<fs::path>& made) {
  for (auto folder = made.rbegin(); folder != made.rend(); ++folder) ::rmdir(folder->c_str());
}

// Makes the folder and all that is missing above it: `made`, the outermost first.
bool MakeMissing(const fs::path& folder, std::vector<fs::path>& made, std::string& err) {
  struct ::stat status;
  std::vector<fs::path> missing;
  for (fs::path path = folder; !path.empty(); path = path.parent_path()) {
    if (::stat(path.c_str(), &status) == 0 || errno != ENOENT) break;
    missing.push_back(path);
  }
  for (auto path = missing.rbegin(); path != missing.rend(); ++path) {
    if (::mkdir(path->c_str(), 0777) == 0) {
      made.push_back(*path);
      const fs::path above = path->parent_path();
      if (FlushFolder(above.empty() ? fs::path(".") : above)) continue;
    } else if (errno == EEXIST) {
      continue;  // somebody else was quicker
    }
    const std::string why = SystemText();
    RemoveMade(made);
    return Fail(err, "cannot make the folder " + path->string() + " (" + why + ")");
  }
  return true;
}

fs::path FolderOf(const fs::path& target) {
  return target.has_parent_path() ? target.parent_path() : fs::path(".");
}

bool FindItem(const fs::path& stateFolder, const std::string& id, TrashedItem& item,
              std::string& err) {
  std::vector<TrashedItem> items;
  if (!ListItems(stateFolder, items, err)) return false;
  const auto found = std::find_if(items.begin(), items.end(),
                                  [&](const TrashedItem& listed) { return listed.id == id; });
  if (found == items.end()) return Fail(err, "the trash holds nothing named " + id);
  item = *found;
  return true;
}

bool CopyOut(const fs::path& source, const fs::path& temporary, WorkMonitor& monitor,
             std::string& err) {
  if (CopyEntry(AT_FDCWD, source.string(), temporary, monitor)) return true;
  const std::string why = SystemText();
  ::unlink(temporary.c_str());
  if (monitor.IsStopped()) return Fail(err, Ending::Stopped().text);
  return Fail(err, "cannot write " + temporary.string() + " (" + why + ")");
}

bool Restore(const fs::path& source, const fs::path& folder, const fs::path& target,
             WorkMonitor& monitor, std::string& err) {
  const fs::path temporary = folder / NewRestoreName();
  if (!CopyOut(source, temporary, monitor, err)) return false;
  if (RenameIfFree(AT_FDCWD, temporary.c_str(), AT_FDCWD, target.c_str())) {
    return FlushFolder(folder) || Fail(err, "cannot write out " + folder.string());
  }
  const bool exists = errno == EEXIST;
  const std::string why = SystemText();
  ::unlink(temporary.c_str());
  return Fail(err, exists ? target.string() + " exists, and is not replaced"
                          : "cannot name " + target.string() + " (" + why + ")");
}

// Where a later restore puts it by itself: in the folder of the pair, where the thing that comes
// has its old place there, too.
std::string PathOfOld(const TrashedItem& item, const fs::path& target) {
  const bool isOldPlace = target.native().ends_with('/' + item.path);
  return isOldPlace ? item.path : target.filename().native();
}

// Gives what stands at `target` a second name in the trash, or puts a copy there where it cannot
// have one: it is safe before it loses its own name, and no kill leaves it under a third one alone.
Ending KeepOld(const fs::path& target, const fs::path& place, WorkMonitor& monitor) {
  if (::link(target.c_str(), place.c_str()) == 0) return {};
  const fs::path part = PartOf(place);
  if (CopyEntry(AT_FDCWD, target.string(), part, monitor) &&
      ::rename(part.c_str(), place.c_str()) == 0) {
    return {};
  }
  Ending ending = monitor.IsStopped() ? Ending::Stopped() : Cannot("keep", target);
  ::unlink(part.c_str());
  return ending;
}

// Gives the new file the name, if the old one is still what has it.
Ending TakeName(const fs::path& temporary, const fs::path& target, const Stamp& old, bool isImage) {
  Ending changed = Ending::Busy(target.string() + " has changed just now, and is not replaced");
  if (!IsStill(AT_FDCWD, target, old)) return changed;
  if (!ExchangeNames(AT_FDCWD, temporary.c_str(), target.c_str())) {
    if (errno != EINVAL) return Cannot("replace", target);
    return ::rename(temporary.c_str(), target.c_str()) == 0 ? Ending{} : Cannot("replace", target);
  }
  const bool isWritten = isImage && !FindWriter(temporary).empty();
  if (IsStill(AT_FDCWD, temporary, old) && !isWritten) return {};
  // Somebody was quicker: what he has written, or is about to, is the file.
  if (ExchangeNames(AT_FDCWD, temporary.c_str(), target.c_str())) return changed;
  return Cannot("put back", target);
}

Ending Replace(const fs::path& stateFolder, const TrashedItem& item, const fs::path& temporary,
               const fs::path& target, const Stamp& old, WorkMonitor& monitor) {
  TrashRun trash(stateFolder, LocalTimeText(NowNanoseconds()));
  std::vector<fs::path> places;
  std::string err;
  if (!trash.Announce({{item.side, PathOfOld(item, target), kRestoredOver}}, places, err)) {
    return Ending::Failed(err);
  }
  monitor.Begin(GuardedWork::kKeep, old.size);
  Ending ending = KeepOld(target, places.front(), monitor);
  if (ending.IsDone() && !trash.Flush(err)) ending = Ending::Failed(err);
  if (ending.IsDone()) ending = TakeName(temporary, target, old, item.side == kDisk);
  if (!ending.IsDone()) {
    ::unlink(places.front().c_str());
    trash.DropIfEmpty();
  }
  return ending;
}

bool StampHere(const fs::path& path, Stamp& stamp) {
  struct ::stat status;
  if (::lstat(path.c_str(), &status) != 0) return false;
  stamp = StampOf(status);
  return true;
}

bool RestoreOver(const fs::path& stateFolder, const TrashedItem& item, const fs::path& target,
                 WorkMonitor& monitor, std::string& err) {
  const fs::path temporary = FolderOf(target) / NewRestoreName();
  Stamp old;
  Stamp made;
  if (!StampHere(target, old)) return Fail(err, Cannot("look at", target).text);
  if (!CopyOut(PlaceInTrash(stateFolder, item.id), temporary, monitor, err)) return false;
  Ending ending = StampHere(temporary, made)
                      ? Replace(stateFolder, item, temporary, target, old, monitor)
                      : Cannot("look at", temporary);
  // Anything else under that name is what somebody has put into the file's place meanwhile.
  if (IsStill(AT_FDCWD, temporary, old) || IsStill(AT_FDCWD, temporary, made)) {
    ::unlink(temporary.c_str());
  }
  if (!ending.IsDone()) return Fail(err, ending.text);
  return FlushFolder(FolderOf(target)) ||
         Fail(err, "cannot write out " + FolderOf(target).string());
}

bool RestoreNew(const fs::path& stateFolder, const std::string& id, const fs::path& target,
                WorkMonitor& monitor, std::string& err) {
  TrashedItem item;
  if (!FindItem(stateFolder, id, item, err)) return false;
  std::vector<fs::path> made;
  if (!MakeMissing(FolderOf(target), made, err)) return false;
  monitor.Begin(GuardedWork::kRestore, item.bytes);
  const bool restored =
      Restore(PlaceInTrash(stateFolder, id), FolderOf(target), target, monitor, err);
  if (!restored) RemoveMade(made);
  return restored;
}

bool RestoreAnyway(const fs::path& stateFolder, const std::string& id, const fs::path& target,
                   WorkMonitor& monitor, std::string& err) {
  struct ::stat there;
  if (::lstat(target.c_str(), &there) != 0) {
    return RestoreNew(stateFolder, id, target, monitor, err);
  }
  if (!S_ISREG(there.st_mode) && !S_ISLNK(there.st_mode)) {
    return Fail(err, target.string() + " is no file, and is not replaced");
  }
  TrashedItem item;
  StateLock lock;
  if (!FindItem(stateFolder, id, item, err)) return false;
  if (lock.Take(stateFolder, err) != Locking::kTaken) return false;
  const std::string writer = item.side == kDisk ? FindWriter(target) : std::string();
  if (!writer.empty()) return Fail(err, writer + " has " + target.string() + " open for writing");
  monitor.Begin(GuardedWork::kRestore, item.bytes);
  return RestoreOver(stateFolder, item, target, monitor, err);
}

}  // namespace

bool ListTrash(const fs::path& stateFolder, std::vector<TrashedItem>& items, std::string& err) {
  items.clear();
  const bool isListed = WithinMemoryOr(err, [&] { return ListItems(stateFolder, items, err); });
  if (!isListed) items.clear();
  return isListed;
}

bool RestoreTrashed(const fs::path& stateFolder, const std::string& id, const fs::path& target,
                    std::string& err, const std::atomic<bool>* stop,
                    const std::function<void(const GuardedProgress&)>& onProgress) {
  return WithinMemoryOr(err, [&] {
    WorkMonitor monitor(stop, onProgress);
    return RestoreNew(stateFolder, id, target, monitor, err);
  });
}

bool RestoreTrashedOver(const fs::path& stateFolder, const std::string& id, const fs::path& target,
                        std::string& err, const std::atomic<bool>* stop,
                        const std::function<void(const GuardedProgress&)>& onProgress) {
  return WithinMemoryOr(err, [&] {
    WorkMonitor monitor(stop, onProgress);
    return RestoreAnyway(stateFolder, id, target, monitor, err);
  });
}

}  // namespace quorbix::virtdisk
