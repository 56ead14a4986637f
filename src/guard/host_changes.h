#ifndef QUORBIX_VIRTDISK_GUARD_HOST_CHANGES_H_
#define QUORBIX_VIRTDISK_GUARD_HOST_CHANGES_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "common/descriptor.h"
#include "guard/ending.h"
#include "guard/planning.h"
#include "guard/state.h"
#include "guard/trash.h"
#include "guard/work_monitor.h"

namespace quorbix::virtdisk::internal::guard {

// Hands the content of a file of the disk to a function, piece by piece, until that returns false.
using Sink = std::function<bool(std::span<const std::uint8_t>)>;
using DiskContents = std::function<Ending(const std::string& diskPath, const Sink& sink)>;

// Changes the folder as a plan says. Nothing is replaced or deleted that is not what was looked at,
// and whatever is goes to the trash; a process that is killed leaves the old file or the new one
// under every name, and what it had in its hands under a temporary one.
class HostChanges {
 public:
  HostChanges(const std::filesystem::path& folder, const std::map<std::string, Stamp>& entryStamps,
              TrashRun& trashRun, WorkMonitor& workMonitor);

  // Puts what passes before this one left behind into the trash: what one of them was about to put
  // there, by inode, as that.
  [[nodiscard]] Ending SweepLeftovers(const std::vector<std::string>& paths,
                                      const std::map<std::uint64_t, TrashRequest>& neverCome);

  [[nodiscard]] Ending MakeFolders(const std::vector<std::string>& paths);

  // Writes all files beside their targets first, and gives them their names when all of that has
  // succeeded and is on the disk.
  [[nodiscard]] Ending WriteFiles(const std::vector<HostWrite>& writes,
                                  const DiskContents& contents);

  [[nodiscard]] Ending DeleteFiles(const std::vector<std::string>& paths);
  // Folders that hold something by now are left to the next pass, and so are those on which
  // something is mounted.
  [[nodiscard]] Ending RemoveFolders(const std::vector<std::string>& paths);

  // The files that were written, as they are now.
  const std::map<std::string, SeenFile>& Written() const { return written; }
  // The paths that were changed as planned so far.
  const std::set<std::string>& Changed() const { return changed; }

 private:
  struct NewFile {
    const HostWrite* write = nullptr;
    std::string temporary;
    Stamp stamp{};           // when it was written
    std::int64_t taken = 0;  // just after that
    bool holdsOld = false;   // under the temporary name lies what was replaced: not to be discarded
  };

  Descriptor OpenFolder(const std::string& path) const;
  TrashRequest RequestFor(const std::string& path, const char* why) const;
  Ending WriteTemporary(const HostWrite& write, const DiskContents& contents, NewFile& file);
  Ending Flush(const std::vector<NewFile>& files) const;
  void Discard(const std::vector<NewFile>& files) const;
  Ending NameFiles(std::vector<NewFile>& files);
  static Ending NameNew(int folder, const NewFile& file);
  Ending Replace(int folder, NewFile& file, const std::filesystem::path& place);
  Ending SetAside(int folder, const std::string& path, const std::string& aside) const;
  Ending LeftAlone(int folder, const std::string& name, const std::string& path) const;
  bool IsAsSeen(int folder, const std::string& name, const std::string& path) const;
  void NoteWritten(int folder, const NewFile& file);
  Ending FlushFolders();

  const std::filesystem::path root;
  const std::map<std::string, Stamp>& stamps;
  TrashRun& trash;
  WorkMonitor& monitor;
  std::set<std::string> touched;  // folders with changed entries that are not written out yet
  std::map<std::string, SeenFile> written;
  std::set<std::string> changed;
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_HOST_CHANGES_H_
