#include "guard/trash.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "common/byte_buffer.h"
#include "common/fail.h"
#include "common/folder_listing.h"
#include "common/host_file.h"
#include "common/text_bytes.h"
#include "guard/copying.h"
#include "guard/host_view.h"
#include "guard/lines.h"
#include "guard/paths.h"
#include "guard/rights.h"
#include "guard/state_file.h"
#include "guard/system_text.h"

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

constexpr char kTrashName[] = "trash";
constexpr char kManifestName[] = "manifest";
constexpr char kTimeLine[] = "time";
constexpr char kItemLine[] = "item";

// A pass's time as the name of its folder, and back.
std::string FolderNameOf(std::string when) {
  std::replace(when.begin(), when.end(), ' ', '_');
  return when;
}
std::string TimeOf(std::string folderName) {
  folderName = folderName.substr(0, folderName.find('#'));
  std::replace(folderName.begin(), folderName.end(), '_', ' ');
  return folderName;
}

constexpr std::string_view kTimeShape = "dddd-dd-dd_dd.dd.dd";

bool IsShortNumber(std::string_view text) {
  return !text.empty() && text.size() <= 9 &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Folders of other names are somebody else's.
bool IsPassName(std::string_view name) {
  const std::string_view time = name.substr(0, kTimeShape.size());
  const auto isAsShaped = [](char shape, char c) {
    return shape == 'd' ? c >= '0' && c <= '9' : c == shape;
  };
  if (!std::equal(kTimeShape.begin(), kTimeShape.end(), time.begin(), time.end(), isAsShaped)) {
    return false;
  }
  name.remove_prefix(time.size());
  return name.empty() || (name[0] == '#' && IsShortNumber(name.substr(1)));
}

// By time, then by number: "#10" comes after "#9".
bool IsEarlierPass(const std::string& a, const std::string& b) {
  const int order = a.compare(0, kTimeShape.size(), b, 0, kTimeShape.size());
  if (order != 0) return order < 0;
  return a.size() != b.size() ? a.size() < b.size() : a < b;
}

// `name`, or what comes next to `last` when that is not earlier: the first in the trash are the
// first to go, also when a clock was set back, and when those before it in one second are gone.
std::string NameAfter(const std::string& last, std::string name) {
  if (IsEarlierPass(last, name)) return name;
  const std::string time = last.substr(0, kTimeShape.size());
  const bool isFirst = last.size() == time.size();
  const int number = isFirst ? 1 : std::stoi(last.substr(time.size() + 1));
  return time + '#' + std::to_string(number + 1);
}

// The passes in the trash, the oldest first.
std::vector<std::string> PassesIn(const fs::path& trash, std::error_code& error) {
  FolderListing listing = ListFolder(trash.native());
  error = listing.error;
  std::vector<std::string> names;
  for (const ListedEntry& entry : listing.entries) {
    if (entry.type == fs::file_type::directory && IsPassName(entry.name)) {
      names.push_back(entry.name);
    }
  }
  std::sort(names.begin(), names.end(), IsEarlierPass);
  return names;
}

struct ManifestLine {
  std::string number;
  TrashRequest request;
};

struct Manifest {
  std::string time;  // of the pass; its folder may have a later one
  std::vector<ManifestLine> lines;
};

Manifest ReadManifest(const fs::path& folder) {
  Manifest manifest{.time = TimeOf(folder.filename()), .lines = {}};
  ByteBuffer bytes;
  std::string ignored;
  if (LoadText(folder / kManifestName, bytes, ignored) != StateLoad::kLoaded) return manifest;
  std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  while (!text.empty()) {
    Line line(TakeLine(text));
    ManifestLine item;
    const std::string_view kind = line.Word();
    if (kind == kTimeLine) manifest.time = line.Path();
    if (kind != kItemLine) continue;
    item.number = line.Path();
    item.request.side = line.Path();
    item.request.why = line.Path();
    item.request.path = line.Path();
    if (!line.Peek().empty()) item.request.inode = line.Number<std::uint64_t>();
    // The last line can be cut, when the pass was.
    const bool isItem =
        line.IsSound() && IsShortNumber(item.number) && StaysInside(item.request.path);
    if (isItem) manifest.lines.push_back(std::move(item));
  }
  return manifest;
}

std::string CannotMake(const fs::path& trash, const std::error_code& why) {
  return "cannot make the trash " + trash.string() + " (" + why.message() + ")";
}

constexpr std::string_view kPartEnding = ".part";

struct PassSize {
  std::uint64_t bytes = 0;  // of what the files say
  std::uint64_t room = 0;   // that goes back to the file system with them
  bool isEmpty = false;     // nothing has come into it that is whole
};

PassSize SizeOf(const fs::path& folder) {
  PassSize size;
  const FolderListing listing = ListFolder(folder.native());
  // One that cannot be listed now may hold anything.
  size.isEmpty = listing.opened && !listing.error;
  for (const ListedEntry& entry : listing.entries) {
    if (entry.name != kManifestName && !entry.name.ends_with(kPartEnding)) size.isEmpty = false;
    struct ::stat status;
    const bool isFile =
        ::lstat((folder / entry.name).c_str(), &status) == 0 && S_ISREG(status.st_mode);
    if (!isFile) continue;
    size.bytes += static_cast<std::uint64_t>(status.st_size);
    if (status.st_nlink == 1) size.room += RoomOf(status);
  }
  return size;
}

// Calls `visit` with each pass, the latest first, its size, and whether it is one too many.
template <class Visit>
void VisitPasses(const fs::path& trash, const TrashBound& bound, const Visit& visit) {
  std::error_code ignored;
  const std::vector<std::string> names = PassesIn(trash, ignored);
  std::uint64_t kept = 0;
  std::size_t count = 0;
  for (auto name = names.rbegin(); name != names.rend(); ++name) {
    const PassSize size = SizeOf(trash / *name);
    if (size.isEmpty) {
      visit(trash / *name, size, true);
      continue;
    }
    kept += size.bytes;
    const bool isLatest = count == 0;
    const bool isBeyond = ++count > bound.passes || kept > bound.bytes;
    const bool isUnfinished = bound.keepAfter && IsEarlierPass(*bound.keepAfter, *name);
    visit(trash / *name, size, isBeyond && !isLatest && !isUnfinished);
  }
}

bool CopyFile(int folder, const std::string& name, const fs::path& place, WorkMonitor& monitor) {
  struct ::stat status;
  const Descriptor from = OpenRegularFileNow(folder, name.c_str(), status);
  if (!from && errno == EWOULDBLOCK) errno = EBUSY;
  if (!from) return false;
  const Descriptor to = OpenHostFile(place.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
  if (!to) return false;
  const Copying copying = CopyToEnd(from.Get(), to.Get(), monitor);
  if (copying == Copying::kStopped) errno = ECANCELED;
  if (copying != Copying::kDone) return false;
  struct ::stat after;
  if (::fstat(from.Get(), &after) != 0 || !(StampOf(after) == StampOf(status))) {
    errno = EBUSY;  // what somebody writes into it would be lost with it
    return false;
  }
  const std::array<::timespec, 2> times{status.st_atim, status.st_mtim};
  // What the file system of the trash does not hold of these, it does without. A copy gives nobody
  // the rights of its owner.
  static_cast<void>(::fchmod(to.Get(), status.st_mode & 0777));
  static_cast<void>(::fchown(to.Get(), status.st_uid, status.st_gid));
  static_cast<void>(::futimens(to.Get(), times.data()));
  return ::fdatasync(to.Get()) == 0;
}

bool CopyLink(int folder, const std::string& name, const fs::path& place) {
  std::array<char, 4096> target{};
  const ::ssize_t size = ::readlinkat(folder, name.c_str(), target.data(), target.size() - 1);
  return size > 0 && ::symlink(target.data(), place.c_str()) == 0;
}

bool CopyAndRemove(int folder, const std::string& name, const fs::path& place,
                   WorkMonitor& monitor) {
  const fs::path part = PartOf(place);
  const bool copied =
      CopyEntry(folder, name, part, monitor) && ::rename(part.c_str(), place.c_str()) == 0;
  if (copied && FlushFolder(place.parent_path())) return ::unlinkat(folder, name.c_str(), 0) == 0;
  const int error = errno;
  ::unlink(part.c_str());
  errno = error;
  return false;
}

}  // namespace

fs::path PartOf(const fs::path& place) { return place.native() + std::string(kPartEnding); }

TrashRun::TrashRun(const fs::path& stateFolder, const std::string& whenItRuns)
    : trash(stateFolder / kTrashName), when(whenItRuns) {}

bool TrashRun::Announce(const std::vector<TrashRequest>& requests, std::vector<fs::path>& places,
                        std::string& err) {
  places.clear();
  if (requests.empty()) return true;
  if (folder.empty() && !MakeFolder(err)) return false;
  std::string lines;
  // The folder is named after what was last thrown away, where a clock was ahead then.
  if (count == 0 && TimeOf(folder.filename()) != when) {
    lines.append(kTimeLine).append(" ").append(Escaped(when)).append("\n");
  }
  for (const TrashRequest& request : requests) {
    const std::string number = std::to_string(++count);
    lines.append(kItemLine).append(" ").append(number);
    for (const std::string* text : {&request.side, &request.why, &request.path}) {
      lines.append(" ").append(Escaped(*text));
    }
    if (request.inode != 0) lines.append(" ").append(std::to_string(request.inode));
    lines += '\n';
    places.push_back(folder / number);
  }
  const fs::path manifest = folder / kManifestName;
  const Descriptor file =
      OpenHostFile(manifest.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW, 0600);
  const bool written = file && WriteFully(file.Get(), AsBytes(lines)) &&
                       ::fdatasync(file.Get()) == 0 && FlushFolder(folder);
  return written || Fail(err, "cannot write " + manifest.string() + " (" + SystemText() + ")");
}

bool TrashRun::Flush(std::string& err) const {
  return folder.empty() || FlushFolder(folder) ||
         Fail(err, "cannot write out " + folder.string() + " (" + SystemText() + ")");
}

void TrashRun::DropIfEmpty() const {
  if (folder.empty() || !SizeOf(folder).isEmpty) return;
  std::error_code ignored;
  fs::remove_all(folder, ignored);
}

bool TrashRun::MakeFolder(std::string& err) {
  std::error_code failed;
  // In the state's folder alone: one that has gone is not to be made anew beside the old one.
  if (::mkdir(trash.c_str(), 0777) != 0 && errno != EEXIST) {
    return Fail(err, CannotMake(trash, {errno, std::generic_category()}));
  }
  const std::vector<std::string> before = PassesIn(trash, failed);
  std::string name = FolderNameOf(when);
  if (!before.empty()) name = NameAfter(before.back(), std::move(name));
  while (!failed) {
    fs::path candidate = trash / name;
    if (::mkdir(candidate.c_str(), 0700) == 0) {
      folder = std::move(candidate);
      return FlushFolder(trash) || Fail(err, "cannot write out " + trash.string());
    }
    if (errno != EEXIST) failed.assign(errno, std::generic_category());
    name = NameAfter(name, name);
  }
  return Fail(err, CannotMake(trash, failed));
}

std::string WhyTrashIsUnusable(const fs::path& stateFolder) {
  const fs::path trash = stateFolder / kTrashName;
  std::error_code unknown;
  const fs::file_type type = fs::symlink_status(trash, unknown).type();
  const bool isMissing = type == fs::file_type::not_found || type == fs::file_type::none;
  if (isMissing) return "";
  if (!fs::is_directory(trash, unknown)) return trash.string() + " is no folder";
  return MayChange(trash) ? "" : trash.string() + " cannot be written to";
}

fs::path PlaceInTrash(const fs::path& stateFolder, const std::string& id) {
  return stateFolder / kTrashName / id;
}

bool CopyEntry(int folder, const std::string& name, const fs::path& place, WorkMonitor& monitor) {
  struct ::stat status;
  if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return false;
  return S_ISLNK(status.st_mode) ? CopyLink(folder, name, place)
                                 : CopyFile(folder, name, place, monitor);
}

Ending MoveToTrash(int folder, const std::string& name, const fs::path& place, WorkMonitor& monitor,
                   const std::string& shown) {
  if (::renameat(folder, name.c_str(), AT_FDCWD, place.c_str()) == 0) return {};
  if (errno == EXDEV) {
    if (CopyAndRemove(folder, name, place, monitor)) return {};
    if (errno == ECANCELED) return Ending::Stopped();
    if (errno == EBUSY) return Ending::Busy(shown + " is being written just now");
  }
  return Ending::Failed("cannot move " + shown + " to the trash " + place.string() + " (" +
                        SystemText() + ")");
}

TrashSize MeasureTrash(const fs::path& stateFolder, const TrashBound& bound) {
  TrashSize trash;
  VisitPasses(stateFolder / kTrashName, bound,
              [&](const fs::path&, const PassSize& size, bool isTooMuch) {
                trash.held += size.room;
                if (isTooMuch) trash.spare += size.room;
              });
  return trash;
}

void TrimTrash(const fs::path& stateFolder, const TrashBound& bound) {
  VisitPasses(stateFolder / kTrashName, bound,
              [](const fs::path& pass, const PassSize&, bool isTooMuch) {
                std::error_code ignored;
                if (isTooMuch) fs::remove_all(pass, ignored);
              });
}

std::map<std::uint64_t, TrashRequest> NeverCome(const fs::path& stateFolder) {
  std::map<std::uint64_t, TrashRequest> requests;
  const fs::path trash = stateFolder / kTrashName;
  std::error_code ignored;
  for (const std::string& pass : PassesIn(trash, ignored)) {
    for (const ManifestLine& line : ReadManifest(trash / pass).lines) {
      struct ::stat status;
      const bool hasCome = ::lstat((trash / pass / line.number).c_str(), &status) == 0;
      if (!hasCome && line.request.inode != 0) {
        requests.insert_or_assign(line.request.inode, line.request);
      }
    }
  }
  return requests;
}

std::string LatestPassIn(const fs::path& stateFolder) {
  std::error_code ignored;
  const std::vector<std::string> names = PassesIn(stateFolder / kTrashName, ignored);
  return names.empty() ? std::string() : names.back();
}

bool ListItems(const fs::path& stateFolder, std::vector<TrashedItem>& items, std::string& err) {
  const fs::path trash = stateFolder / kTrashName;
  std::error_code error;
  const std::vector<std::string> passes = PassesIn(trash, error);
  if (error && error != std::errc::no_such_file_or_directory) {
    return Fail(err, "cannot list " + trash.string() + " (" + error.message() + ")");
  }
  for (const std::string& pass : passes) {
    const Manifest manifest = ReadManifest(trash / pass);
    for (const ManifestLine& line : manifest.lines) {
      struct ::stat status;
      if (::lstat((trash / pass / line.number).c_str(), &status) != 0) continue;
      items.push_back({.id = pass + '/' + line.number,
                       .time = manifest.time,
                       .side = line.request.side,
                       .path = line.request.path,
                       .why = line.request.why,
                       .bytes = static_cast<std::uint64_t>(status.st_size)});
    }
  }
  return true;
}

}  // namespace quorbix::virtdisk::internal::guard
