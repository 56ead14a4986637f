#include "guard/host_view.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>

#include "common/descriptor.h"
#include "common/folder_listing.h"
#include "common/host_file.h"
#include "guard/clock.h"
#include "guard/host_content.h"
#include "guard/paths.h"
#include "guard/rights.h"
#include "guard/system_text.h"

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

constexpr std::uint64_t kBytesPerBlock = 512;  // of stat(2)
constexpr char kDotName[] = "takes no part: its name begins with \".\"";
constexpr char kTemporary[] = "takes no part: a temporary file";
constexpr char kOwnPart[] = "takes no part: it belongs to the synchroniser";
constexpr char kFolderLink[] = "takes no part: a link to a folder";
constexpr char kLinkOut[] = "takes no part: a link that leads out of the folder";
constexpr char kLinkNowhere[] = "takes no part: a link that leads nowhere";
constexpr char kSpecial[] = "takes no part: neither a file nor a folder";
constexpr char kUnreadableFile[] = "cannot be read: ";
constexpr char kUnreadableFolder[] = "cannot be listed: ";

class HostLooker {
 public:
  HostLooker(const HostLook& hostLook, WorkMonitor& workMonitor)
      : look(hostLook), monitor(workMonitor), contents(workMonitor) {}

  HostView Run() {
    monitor.Begin(GuardedWork::kReadFolder);
    std::error_code ignored;
    realFolder = fs::canonical(look.folder, ignored).native();
    ListTop();
    while (!pending.empty() && view.result == HostView::Result::kComplete) {
      const std::string path = std::move(pending.back());
      pending.pop_back();
      ListBelow(path);
    }
    return std::move(view);
  }

 private:
  void ListTop() {
    Descriptor folder;
    const FolderListing listing = ListFolder(look.folder.native(), IfLink::kFollow, folder);
    if (!listing.opened || listing.error) {
      view.result = HostView::Result::kUnreadable;
      view.error = listing.error.message();
      return;
    }
    TakeEntries("", listing, folder);
  }

  void ListBelow(const std::string& path) {
    Descriptor folder;
    const FolderListing listing =
        ListFolder(look.folder.native() + '/' + path, IfLink::kRefuse, folder);
    if (!listing.opened || listing.error) {
      view.items[path].isReadable = false;
      view.wasAllRead = false;
      view.notes.push_back({path, kUnreadableFolder + listing.error.message()});
      return;
    }
    TakeEntries(path, listing, folder);
  }

  void TakeEntries(const std::string& path, const FolderListing& listing,
                   const Descriptor& folder) {
    struct ::stat status;
    if (::fstat(folder.Get(), &status) == 0) {
      if (path.empty()) view.identity = StampOf(status).identity;
      view.latestFolderChange = std::max(view.latestFolderChange, ToNanoseconds(status.st_mtim));
    }
    for (const ListedEntry& entry : listing.entries) {
      if (monitor.IsStopped()) view.result = HostView::Result::kStopped;
      if (view.result == HostView::Result::kStopped) return;
      TakeEntry(Join(path, entry.name), entry.name, folder.Get());
      if (view.result != HostView::Result::kComplete) return;
    }
  }

  void TakeEntry(const std::string& path, const std::string& name, int folder) {
    const bool isOwn = IsOwnTemporaryName(name) && !IsFolder(name, folder);
    // Of a synchroniser of the folder above, or of one in it; or nobody's to take away but another
    // user's.
    if (isOwn && (IsOfAnotherProcess(name) || !MayTakeAway(folder, name))) {
      return LeaveOut(path, kTemporary);
    }
    if (isOwn) {
      view.leftovers.push_back(path);
      return;
    }
    if (IsTemporaryName(name) && !IsOwnTemporaryName(name)) return LeaveOut(path, kTemporary);
    if (name.starts_with('.')) return LeaveOut(path, kDotName);
    struct ::stat status;
    if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      // Gone since it was listed: somebody is at it, perhaps saving it anew.
      return errno == ENOENT ? Stop(HostView::Result::kBusy, path) : SpoilFolder(ParentOf(path));
    }
    view.entryStamps[path] = StampOf(status);
    if (IsLeftOut(status)) return LeaveOut(path, kOwnPart);
    if (S_ISDIR(status.st_mode)) {
      view.items[path] = {.type = EntryType::kFolder};
      pending.push_back(path);
    } else if (S_ISREG(status.st_mode)) {
      TakeFile(path, name, folder, status);
    } else if (S_ISLNK(status.st_mode)) {
      TakeLink(path, name, folder);
    } else {
      LeaveOut(path, kSpecial);
    }
  }

  // Passes leave files behind, never folders.
  static bool IsFolder(const std::string& name, int folder) {
    struct ::stat status;
    return ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(status.st_mode);
  }

  // What it holds has names and cannot be looked at, as in a folder that may be listed and not
  // entered: it is not gone.
  void SpoilFolder(const std::string& path) {
    const std::string why = SystemText();
    if (path.empty()) {
      view.result = HostView::Result::kUnreadable;
      view.error = why;
      return;
    }
    view.wasAllRead = false;
    HostItem& item = view.items[path];
    if (std::exchange(item.isReadable, false)) {
      view.notes.push_back({path, kUnreadableFolder + why});
    }
  }

  void TakeLink(const std::string& path, const std::string& name, int folder) {
    struct ::stat target;
    if (::fstatat(folder, name.c_str(), &target, 0) != 0) {
      const int why = errno;
      if (why == ENOENT) NoteLooseLink(path);
      if (why == ENOENT || why == ENOTDIR || why == ELOOP) return LeaveOut(path, kLinkNowhere);
      view.items[path] = {.isReadable = false};
      view.wasAllRead = false;
      view.notes.push_back({path, kUnreadableFile + SystemText()});
      return;
    }
    view.leftOutTargets[path] = StampOf(target);
    if (S_ISDIR(target.st_mode)) return LeaveOut(path, kFolderLink);
    if (!S_ISREG(target.st_mode)) return LeaveOut(path, kSpecial);
    std::error_code failed;
    const std::string real = fs::canonical(look.folder / path, failed).native();
    if (failed || !real.starts_with(realFolder + '/')) return LeaveOut(path, kLinkOut);
    if (LiesInOwnPart(real)) return LeaveOut(path, kOwnPart);
    view.leftOutTargets.erase(path);
    const std::string end = real.substr(realFolder.size() + 1);
    view.links[path] = {NextOf(path).value_or(end), end};
    TakeFile(path, name, folder, target);
  }

  // The pass may put something there.
  void NoteLooseLink(const std::string& link) {
    const auto end = InFolder(FollowLinks(look.folder / link));
    if (end) view.links[link] = {.next = NextOf(link).value_or(*end), .end = *end, .isLoose = true};
  }

  // The path in the folder that a link names itself, which may be another link, or nothing yet.
  std::optional<std::string> NextOf(const std::string& link) const {
    std::error_code failed;
    const fs::path at = look.folder / link;
    const fs::path named = fs::read_symlink(at, failed);
    return failed ? std::nullopt : InFolder(at.parent_path() / named);
  }

  // What the folder calls that place; nothing when it lies elsewhere.
  std::optional<std::string> InFolder(const fs::path& named) const {
    std::error_code failed;
    const fs::path place = fs::weakly_canonical(named.parent_path(), failed) / named.filename();
    if (failed || !place.native().starts_with(realFolder + '/')) return std::nullopt;
    return place.native().substr(realFolder.size() + 1);
  }

  void TakeFile(const std::string& path, const std::string& name, int folder,
                const struct ::stat& content) {
    const Stamp stamp = StampOf(content);
    if (const SeenFile* known = FindKnown(path, stamp)) {
      view.wasAllRead = false;
      view.items[path] = {.content = known->content};
      view.seen[path] = *known;
      return;
    }
    if (IsFresh(stamp) && !IsRemembered(path, stamp)) return Stop(HostView::Result::kBusy, path);
    ReadFile(path, name, folder);
  }

  const SeenFile* FindKnown(const std::string& path, const Stamp& stamp) const {
    if (look.readsEverything || !IsRemembered(path, stamp)) return nullptr;
    const SeenFile& known = look.known->at(path);
    return IsTrustworthy(stamp, known.taken) ? &known : nullptr;
  }

  // As the last pass left it, which may have been just now.
  bool IsRemembered(const std::string& path, const Stamp& stamp) const {
    if (look.known == nullptr) return false;
    const auto known = look.known->find(path);
    return known != look.known->end() && known->second.stamp == stamp;
  }

  // Changed so lately that whoever did may not be done yet.
  bool IsFresh(const Stamp& stamp) const {
    const std::int64_t age = NowNanoseconds() - std::max(stamp.modified, stamp.changed);
    return age >= 0 && age < look.settleNanoseconds;
  }

  void ReadFile(const std::string& path, const std::string& name, int folder) {
    SeenFile file;
    file.taken = NowNanoseconds();
    struct ::stat before {};
    struct ::stat after;
    const Descriptor opened = OpenRegularFileNow(folder, name.c_str(), before);
    if (!opened && errno == EWOULDBLOCK) return Stop(HostView::Result::kBusy, path);
    file.stamp = StampOf(before);
    if (opened && file.stamp.size > look.mostBytes) {
      view.items[path] = {.content = {.size = file.stamp.size}};
      view.wasAllRead = false;
      return;
    }
    const bool isKept = look.kept != nullptr && look.kept->HasRoomFor(file.stamp.size);
    std::vector<std::uint8_t> bytes;
    if (isKept) bytes.reserve(file.stamp.size);
    if (!opened || !contents.Read(opened.Get(), file.content, isKept ? &bytes : nullptr)) {
      if (contents.IsStopped()) return Stop(HostView::Result::kStopped, path);
      view.items[path] = {.isReadable = false};
      view.wasAllRead = false;
      view.notes.push_back({path, kUnreadableFile + SystemText()});
      return;
    }
    const bool isSteady = ::fstat(opened.Get(), &after) == 0 && StampOf(after) == file.stamp &&
                          file.content.size == file.stamp.size;
    if (!isSteady) return Stop(HostView::Result::kBusy, path);
    if (isKept) look.kept->Keep(path, file.content, std::move(bytes));
    view.items[path] = {.content = file.content};
    view.seen[path] = file;
  }

  bool IsLeftOut(const struct ::stat& status) const {
    const Identity identity = StampOf(status).identity;
    return std::find(look.leftOut.begin(), look.leftOut.end(), identity) != look.leftOut.end();
  }

  // Of a real path in the folder: whether it is, or lies below, what is left out.
  bool LiesInOwnPart(const fs::path& real) const {
    struct ::stat status;
    for (fs::path path = real; path != realFolder; path = path.parent_path()) {
      if (::stat(path.c_str(), &status) == 0 && IsLeftOut(status)) return true;
    }
    return false;
  }

  void LeaveOut(const std::string& path, const char* why) {
    view.leftOut.insert(path);
    view.notes.push_back({path, why});
  }

  void Stop(HostView::Result result, const std::string& path) {
    view.result = result;
    view.busyPath = path;
  }

  const HostLook& look;
  WorkMonitor& monitor;
  std::string realFolder;
  std::vector<std::string> pending;  // folders to list
  HostContentReader contents;
  HostView view;
};

}  // namespace

Stamp StampOf(const struct ::stat& status) {
  return {.identity = {.device = status.st_dev, .inode = status.st_ino},
          .size = static_cast<std::uint64_t>(status.st_size),
          .modified = ToNanoseconds(status.st_mtim),
          .changed = ToNanoseconds(status.st_ctim)};
}

std::uint64_t RoomOf(const struct ::stat& status) {
  return static_cast<std::uint64_t>(status.st_blocks) * kBytesPerBlock;
}

std::optional<Stamp> StampAt(const fs::path& path) {
  struct ::stat status;
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return StampOf(status);
}

bool IsSameButForItsName(Stamp now, const Stamp& before) {
  now.changed = before.changed;
  return now == before;
}

bool IsStill(int folder, const fs::path& name, const Stamp& seen) {
  struct ::stat status;
  if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return false;
  return IsSameButForItsName(StampOf(status), seen);
}

HostView LookAtHost(const HostLook& look, WorkMonitor& monitor) {
  return HostLooker(look, monitor).Run();
}

}  // namespace quorbix::virtdisk::internal::guard
