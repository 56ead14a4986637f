#include "guard/host_changes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <utility>

#include "common/file_rights.h"
#include "common/host_file.h"
#include "common/write_out.h"
#include "guard/clock.h"
#include "guard/host_view.h"
#include "guard/paths.h"
#include "guard/renames.h"
#include "guard/writers.h"
#include "sync/hash_bytes.h"

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

// Who may read, write and run it, without the bits that give rights to whoever runs it.
constexpr ::mode_t kPlainMode = 0777;

// Of an entry of an open folder, wherever that is by now.
std::string PathIn(int folder, const std::string& name) {
  return "/proc/self/fd/" + std::to_string(folder) + '/' + name;
}

Ending Busy(const std::string& path) {
  return Ending::Busy(path + " has changed since it was looked at");
}

Ending InUse(const std::string& path) { return Ending::Busy(HasOpenText(path)); }

}  // namespace

HostChanges::HostChanges(const fs::path& folder, const std::map<std::string, Stamp>& entryStamps,
                         TrashRun& trashRun, WorkMonitor& workMonitor)
    : root(folder), stamps(entryStamps), trash(trashRun), monitor(workMonitor) {}

Ending HostChanges::SweepLeftovers(const std::vector<std::string>& paths,
                                   const std::map<std::uint64_t, TrashRequest>& neverCome) {
  std::vector<TrashRequest> requests;
  requests.reserve(paths.size());
  for (const std::string& path : paths) {
    struct ::stat status;
    const bool isThere = ::lstat((root / path).c_str(), &status) == 0;
    const auto old = isThere ? neverCome.find(status.st_ino) : neverCome.end();
    const bool isOld = old != neverCome.end() && ParentOf(old->second.path) == ParentOf(path);
    requests.push_back(isOld ? old->second : TrashRequest{"folder", path, "left over"});
  }
  std::vector<fs::path> places;
  Ending ending;
  if (!trash.Announce(requests, places, ending.text)) {
    return Ending::Failed(ending.text);
  }
  for (std::size_t i = 0; i < paths.size(); ++i) {
    if (monitor.IsStopped()) return Ending::Stopped();
    const Descriptor folder = OpenFolder(ParentOf(paths[i]));
    if (!folder) return Cannot("open the folder of", paths[i]);
    const std::string name = NameOf(paths[i]);
    // The mending of a pass that was cut off may have taken it away.
    if (::faccessat(folder.Get(), name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) != 0) continue;
    ending = MoveToTrash(folder.Get(), name, places[i], monitor, paths[i]);
    if (!ending.IsDone()) return ending;
    touched.insert(ParentOf(paths[i]));
  }
  return FlushFolders();
}

Ending HostChanges::MakeFolders(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    if (monitor.IsStopped()) return Ending::Stopped();
    const Descriptor folder = OpenFolder(ParentOf(path));
    if (!folder) return Cannot("open the folder of", path);
    if (::mkdirat(folder.Get(), NameOf(path).c_str(), 0777) != 0) {
      return errno == EEXIST ? Busy(path) : Cannot("make the folder", path);
    }
    touched.insert(ParentOf(path));
    changed.insert(path);
  }
  return FlushFolders();
}

Ending HostChanges::WriteFiles(const std::vector<HostWrite>& writes, const DiskContents& contents) {
  std::vector<NewFile> files;
  std::uint64_t bytes = 0;
  for (const HostWrite& write : writes) bytes += write.content.size;
  monitor.Begin(GuardedWork::kWriteFolder, bytes);
  Ending ending;
  for (const HostWrite& write : writes) {
    NewFile file{.write = &write, .temporary = NewTemporaryName()};
    ending = WriteTemporary(write, contents, file);
    files.push_back(std::move(file));
    if (!ending.IsDone()) break;
  }
  if (ending.IsDone()) ending = Flush(files);
  if (ending.IsDone()) ending = NameFiles(files);
  Discard(files);
  const Ending flushed = FlushFolders();
  return ending.IsDone() ? flushed : ending;
}

Ending HostChanges::DeleteFiles(const std::vector<std::string>& paths) {
  std::vector<TrashRequest> requests;
  requests.reserve(paths.size());
  for (const std::string& path : paths) requests.push_back(RequestFor(path, "deleted"));
  std::vector<fs::path> places;
  std::string err;
  if (!trash.Announce(requests, places, err)) return Ending::Failed(err);
  monitor.Begin(GuardedWork::kKeep);
  for (std::size_t i = 0; i < paths.size(); ++i) {
    if (monitor.IsStopped()) return Ending::Stopped();
    const Descriptor folder = OpenFolder(ParentOf(paths[i]));
    if (!folder) return Busy(paths[i]);
    const std::string aside = NewTemporaryName();
    Ending ending = SetAside(folder.Get(), paths[i], aside);
    if (!ending.IsDone()) return ending;
    touched.insert(ParentOf(paths[i]));
    ending = MoveToTrash(folder.Get(), aside, places[i], monitor, paths[i]);
    if (!ending.IsDone()) {
      static_cast<void>(
          RenameIfFree(folder.Get(), aside.c_str(), folder.Get(), NameOf(paths[i]).c_str()));
      return ending;
    }
    changed.insert(paths[i]);
  }
  if (!trash.Flush(err)) return Ending::Failed(err);
  return FlushFolders();
}

Ending HostChanges::RemoveFolders(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    if (monitor.IsStopped()) return Ending::Stopped();
    const Descriptor folder = OpenFolder(ParentOf(path));
    const bool removed =
        folder && ::unlinkat(folder.Get(), NameOf(path).c_str(), AT_REMOVEDIR) == 0;
    if (!removed && folder && errno == EBUSY) continue;
    if (!removed && (errno == ENOTEMPTY || errno == EEXIST || errno == ENOENT)) return Busy(path);
    if (!removed) return Cannot("remove the folder", path);
    touched.insert(ParentOf(path));
    touched.erase(path);
    changed.insert(path);
  }
  return FlushFolders();
}

TrashRequest HostChanges::RequestFor(const std::string& path, const char* why) const {
  const auto seen = stamps.find(path);
  return {"folder", path, why, seen == stamps.end() ? 0 : seen->second.identity.inode};
}

Descriptor HostChanges::OpenFolder(const std::string& path) const {
  return OpenFolderBelow(root.c_str(), path);
}

Ending HostChanges::WriteTemporary(const HostWrite& write, const DiskContents& contents,
                                   NewFile& file) {
  const Descriptor folder = OpenFolder(ParentOf(write.host));
  if (!folder) return Cannot("open the folder of", write.host);
  struct ::stat old {};
  const std::string name = NameOf(write.host);
  if (write.replaces && ::fstatat(folder.Get(), name.c_str(), &old, 0) != 0) {
    return Busy(write.host);
  }
  // A file that is replaced may be nobody else's to read, from the first byte on.
  const ::mode_t mode = write.replaces ? 0600 : 0666;
  const Descriptor out(::openat(folder.Get(), file.temporary.c_str(),
                                O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
  if (!out) return Cannot("write beside", write.host);
  if (write.replaces) {
    // Where the file system does not let it, the file is as it would be new. What a guest has
    // written never runs with the rights of the program it replaces.
    old.st_mode &= kPlainMode;
    static_cast<void>(TakeOverRights(out.Get(), PathIn(folder.Get(), name), old));
  }
  Content content{.hash = kEmptyHash, .size = 0};
  bool isWritten = true;
  Ending ending = contents(write.disk, [&](std::span<const std::uint8_t> bytes) {
    content.hash = HashBytes(bytes, content.hash);
    isWritten = WriteFully(out.Get(), bytes);
    WriteOutSoon(out.Get(), content.size, content.size + bytes.size());
    content.size += bytes.size();
    monitor.Add(bytes.size());
    return isWritten && !monitor.IsStopped();
  });
  if (!isWritten) return Cannot("write", write.host);
  if (monitor.IsStopped()) return Ending::Stopped();
  if (!ending.IsDone()) return ending;
  if (content != write.content) return Ending::Busy("the image has changed meanwhile");
  WriteRestOutSoon(out.Get());
  struct ::stat status;
  if (::fstat(out.Get(), &status) != 0) return Cannot("look at", write.host);
  file.stamp = StampOf(status);
  file.taken = NowNanoseconds();
  return {};
}

// All of them are on their way to the disk by now: one after the other takes no longer than all at
// once, and a signal can end it.
Ending HostChanges::Flush(const std::vector<NewFile>& files) const {
  for (const NewFile& file : files) {
    if (monitor.IsStopped()) return Ending::Stopped();
    const std::string& path = file.write->host;
    const Descriptor folder = OpenFolder(ParentOf(path));
    const Descriptor opened(::openat(folder.Get(), file.temporary.c_str(),
                                     O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!opened || ::fdatasync(opened.Get()) != 0) return Cannot("write out", path);
  }
  return {};
}

// Those that have their names by now are not there any more.
void HostChanges::Discard(const std::vector<NewFile>& files) const {
  for (const NewFile& file : files) {
    if (file.holdsOld) continue;
    const Descriptor folder = OpenFolder(ParentOf(file.write->host));
    if (folder) ::unlinkat(folder.Get(), file.temporary.c_str(), 0);
  }
}

Ending HostChanges::NameFiles(std::vector<NewFile>& files) {
  std::vector<TrashRequest> requests;
  for (const NewFile& file : files) {
    if (file.write->replaces) requests.push_back(RequestFor(file.write->host, "replaced"));
  }
  std::vector<fs::path> places;
  std::string err;
  if (!trash.Announce(requests, places, err)) return Ending::Failed(err);
  monitor.Begin(GuardedWork::kKeep);
  auto place = places.begin();
  for (NewFile& file : files) {
    if (monitor.IsStopped()) return Ending::Stopped();
    const Descriptor folder = OpenFolder(ParentOf(file.write->host));
    if (!folder) return Busy(file.write->host);
    touched.insert(ParentOf(file.write->host));
    Ending ending =
        file.write->replaces ? Replace(folder.Get(), file, *place++) : NameNew(folder.Get(), file);
    if (!ending.IsDone()) return ending;
    NoteWritten(folder.Get(), file);
  }
  return trash.Flush(err) ? Ending{} : Ending::Failed(err);
}

Ending HostChanges::NameNew(int folder, const NewFile& file) {
  const std::string name = NameOf(file.write->host);
  if (RenameIfFree(folder, file.temporary.c_str(), folder, name.c_str())) return {};
  return errno == EEXIST ? Busy(file.write->host) : Cannot("name", file.write->host);
}

// Both change names in one step, so that there is a file under the name at every moment, and what
// was there is in these hands, whatever anybody did to it until then.
Ending HostChanges::Replace(int folder, NewFile& file, const fs::path& place) {
  const std::string& path = file.write->host;
  const std::string name = NameOf(path);
  const char* temporary = file.temporary.c_str();
  if (!IsAsSeen(folder, name, path)) return Busy(path);
  if (!ExchangeNames(folder, temporary, name.c_str())) {
    if (errno != EINVAL) return errno == ENOENT ? Busy(path) : Cannot("replace", path);
    // In two steps, where the file system has no such one. What is cut off between them is copied
    // from the disk once more.
    const std::string aside = NewTemporaryName();
    Ending ending = SetAside(folder, path, aside);
    if (!ending.IsDone()) return ending;
    ending = MoveToTrash(folder, aside, place, monitor, path);
    if (!ending.IsDone()) {
      static_cast<void>(RenameIfFree(folder, aside.c_str(), folder, name.c_str()));
      return ending;
    }
    ending = NameNew(folder, file);
    // The old one comes back where that is a rename as well.
    if (!ending.IsDone()) {
      static_cast<void>(RenameIfFree(AT_FDCWD, place.c_str(), folder, name.c_str()));
    }
    return ending;
  }
  file.holdsOld = true;
  Ending ending = LeftAlone(folder, file.temporary, path);
  if (ending.IsDone()) ending = MoveToTrash(folder, file.temporary, place, monitor, path);
  if (ending.IsDone()) return ending;
  if (!ExchangeNames(folder, temporary, name.c_str())) return Cannot("put back", path);
  file.holdsOld = false;
  return ending;
}

// Takes a file away under another name, if it is the one that was looked at.
Ending HostChanges::SetAside(int folder, const std::string& path, const std::string& aside) const {
  const std::string name = NameOf(path);
  Ending ending = LeftAlone(folder, name, path);
  if (!ending.IsDone()) return ending;
  if (!RenameIfFree(folder, name.c_str(), folder, aside.c_str())) return Cannot("move", path);
  ending = LeftAlone(folder, aside, path);
  if (ending.IsDone()) return ending;
  static_cast<void>(RenameIfFree(folder, aside.c_str(), folder, name.c_str()));
  return ending;
}

// Whether it is what was looked at, and nobody writes to it: what he writes would go to the trash.
Ending HostChanges::LeftAlone(int folder, const std::string& name, const std::string& path) const {
  if (!IsAsSeen(folder, name, path)) return Busy(path);
  return IsOpenForWriting(folder, name) ? InUse(path) : Ending{};
}

bool HostChanges::IsAsSeen(int folder, const std::string& name, const std::string& path) const {
  const auto seen = stamps.find(path);
  return seen != stamps.end() && IsStill(folder, name, seen->second);
}

// What somebody has made of it since it has its name is his, and news to the next pass.
void HostChanges::NoteWritten(int folder, const NewFile& file) {
  const HostWrite& write = *file.write;
  changed.insert(write.host);
  struct ::stat status;
  if (::fstatat(folder, NameOf(write.host).c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return;
  const Stamp stamp = StampOf(status);
  if (!IsSameButForItsName(stamp, file.stamp)) return;
  written[write.host] = {.stamp = stamp, .taken = file.taken, .content = write.content};
}

Ending HostChanges::FlushFolders() {
  for (const std::string& path : touched) {
    if (monitor.IsStopped()) return Ending::Stopped();
    const Descriptor folder = OpenFolder(path);
    if (folder && ::fsync(folder.Get()) != 0 && errno != EINVAL) {
      return Cannot("write out the folder", path.empty() ? root.string() : path);
    }
  }
  touched.clear();
  return {};
}

}  // namespace quorbix::virtdisk::internal::guard
