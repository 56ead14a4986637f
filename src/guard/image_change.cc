#include "guard/image_change.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <span>
#include <utility>
#include <vector>

#include "common/byte_order.h"
#include "common/file_rights.h"
#include "common/host_file.h"
#include "common/write_out.h"
#include "fat16/volume_layout.h"
#include "guard/copying.h"
#include "guard/disk_view.h"
#include "guard/host_view.h"
#include "guard/renames.h"
#include "guard/writers.h"

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

constexpr char kReplaced[] = "image replaced";
// The master boot record and the boot sector, which every image made here has behind it.
constexpr std::size_t kHeadBytes = std::size_t{2} * kSectorBytes;
constexpr std::size_t kVolumeIdAt = std::size_t{kSectorBytes} + boot_sector::kVolumeId;

Ending ImageChanged(const fs::path& image) {
  return Ending::Busy("the image " + image.string() + " has changed since it was looked at");
}

// Where the file system does not let it, the file is as it would be new.
bool TakeAfter(int file, const fs::path& old) {
  struct ::stat status;
  if (::stat(old.c_str(), &status) != 0) return false;
  static_cast<void>(TakeOverRights(file, old, status));
  return true;
}

// Gives room to what was never written to, so that no full disk ends the writing half way. A file
// system that cannot do that beforehand is left to itself.
bool FillHoles(int file) {
  struct ::stat status;
  if (::fstat(file, &status) != 0) return false;
  if (RoomOf(status) >= static_cast<std::uint64_t>(status.st_size)) return true;
  int result;
  do {
    result = ::fallocate(file, 0, 0, status.st_size);
  } while (result != 0 && errno == EINTR);
  return result == 0 || errno == EOPNOTSUPP || errno == ENOSYS;
}

Ending WhileNobodyWrites(const fs::path& image) {
  std::string text = ImageInUseText(image);
  return text.empty() ? Ending{} : Ending::Busy(std::move(text));
}

bool IsSameFile(const fs::path& one, const fs::path& other) {
  const auto a = StampAt(one);
  const auto b = StampAt(other);
  return a && b && a->identity == b->identity;
}

// Whether what was read back says what was made about everything but contents: both boot sectors,
// and of each entry the attributes, times and dates.
bool HasMarksOf(const Fat16Image& made, const DiskView& view) {
  const auto bytes = made.Bytes();
  const auto isAt = [&](std::uint64_t offset, const auto& read) {
    return std::equal(read.begin(), read.end(),
                      bytes.begin() + static_cast<std::ptrdiff_t>(offset));
  };
  return view.facts.bytes == bytes.size() && isAt(0, view.masterBoot) &&
         isAt(kSectorBytes, view.boot) &&
         std::all_of(view.entries.begin(), view.entries.end(), [&](const auto& entry) {
           return isAt(entry.second.slotOffset + dir_entry::kAttributes, entry.second.marks);
         });
}

}  // namespace

ImageChange::ImageChange(const fs::path& image, const Stamp& old, TrashRun& trashRun,
                         WorkMonitor& workMonitor)
    : path(image), seen(old), trash(trashRun), monitor(workMonitor) {}

Ending ImageChange::Save(const Fat16Image& made, const fs::path& whole,
                         const std::map<std::string, DiskItem>& expected) {
  Descriptor file = OpenHostPath(whole.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
  if (!file) return Cannot("make the new image", whole);
  Ending ending = SaveTo(file, made, whole);
  if (ending.IsDone()) ending = Verify(made, whole, expected);
  // It would take the room that the next pass needs.
  if (!ending.IsDone()) ::unlink(whole.c_str());
  return ending;
}

Ending ImageChange::SaveTo(Descriptor& file, const Fat16Image& made, const fs::path& whole) {
  monitor.Begin(GuardedWork::kWriteDisk, made.Bytes().size());
  std::uint64_t done = 0;
  const bool written = made.WriteTo(file.Get(), [&](std::size_t bytes) {
    WriteOutSoon(file.Get(), done, done + bytes);
    done += bytes;
    monitor.Add(bytes);
    return !monitor.IsStopped();
  });
  if (monitor.IsStopped()) return Ending::Stopped();
  if (!written || !TakeAfter(file.Get(), path) || ::fsync(file.Get()) != 0 || !file.Close()) {
    return Cannot("write the new image", whole);
  }
  return {};
}

Ending ImageChange::Verify(const Fat16Image& made, const fs::path& whole,
                           const std::map<std::string, DiskItem>& expected) {
  const DiskView view = LookAtDisk(whole, GuardedWork::kCheckDisk, monitor);
  if (view.result == DiskView::Result::kStopped) return Ending::Stopped();
  const auto isAsPlanned = [](const auto& planned, const auto& read) {
    const DiskItem& a = planned.second;
    const DiskItem& b = read.second;
    // The letter case of names alone may be another than was remembered.
    return planned.first == read.first && a.type == b.type && a.content == b.content &&
           b.isReadable;
  };
  const bool isSound = view.facts.state == ImageFacts::State::kPresent && view.facts.damage.empty();
  const bool isSame = isSound && std::equal(expected.begin(), expected.end(), view.items.begin(),
                                            view.items.end(), isAsPlanned);
  if (isSame && HasMarksOf(made, view)) return {};
  return Ending::Failed("the new image " + whole.string() + " does not hold what was planned");
}

bool ImageChange::IsAsSeen(const fs::path& file) const { return IsStill(AT_FDCWD, file, seen); }

Ending ImageChange::Rename(const fs::path& whole) {
  std::vector<fs::path> places;
  std::string err;
  if (!trash.Announce({{"disk", path.filename().string(), kReplaced}}, places, err)) {
    return Ending::Failed(err);
  }
  const auto made = StampAt(whole);
  if (!made) return Cannot("find the new image", whole);
  Ending ready = IsAsSeen(path) ? WhileNobodyWrites(path) : ImageChanged(path);
  if (!ready.IsDone()) return ready;
  if (!ExchangeNames(AT_FDCWD, whole.c_str(), path.c_str())) {
    if (errno == EINVAL) return RenameByLink(whole, places.front());
    return errno == ENOENT ? ImageChanged(path) : Cannot("replace the image", path);
  }
  isBegun = true;
  // Somebody was quicker: what he has written, or is about to write into what he has open, is the
  // image. Under its temporary name nobody else opens it.
  Ending quicker = IsAsSeen(whole) ? WhileNobodyWrites(whole) : ImageChanged(path);
  if (!quicker.IsDone()) {
    if (!ExchangeNames(AT_FDCWD, whole.c_str(), path.c_str())) return Cannot("put back", path);
    isBegun = !IsStill(AT_FDCWD, whole, *made);
    return quicker;
  }
  if (!FlushFolder(path.parent_path())) return Cannot("write out the folder of", path);
  // From here on the new image is the image; the old one keeps its name beside it until it has
  // found its place.
  monitor.Begin(GuardedWork::kKeep, seen.size);
  Ending kept = MoveToTrash(AT_FDCWD, whole.string(), places.front(), monitor, path.string());
  if (!kept.IsDone()) return TakeBack(whole, *made, std::move(kept));
  if (!trash.Flush(err)) return Ending::Failed(err);
  return FlushFolder(path.parent_path()) ? Ending{} : Cannot("write out the folder of", path);
}

// A trash that is full today is full at the next pass: without its place in it the old image stays
// the image. Unless somebody has written into the new one: then the next pass goes on.
Ending ImageChange::TakeBack(const fs::path& whole, const Stamp& made, Ending why) const {
  if (!IsStill(AT_FDCWD, path, made)) return why;
  if (!ExchangeNames(AT_FDCWD, whole.c_str(), path.c_str())) return why;
  if (!IsStill(AT_FDCWD, whole, made)) {
    static_cast<void>(ExchangeNames(AT_FDCWD, whole.c_str(), path.c_str()));
    return why;
  }
  ::unlink(whole.c_str());
  static_cast<void>(FlushFolder(path.parent_path()));
  return why;
}

// For file systems that cannot exchange names.
Ending ImageChange::RenameByLink(const fs::path& whole, const fs::path& place) {
  if (::link(path.c_str(), place.c_str()) != 0) {
    const Descriptor old = OpenHostPath(path.c_str(), O_RDONLY | O_NOFOLLOW);
    if (!old) return Cannot("read", path);
    fs::path ignored;
    Ending copied = CopyToTrash(old.Get(), kReplaced, ignored);
    if (!copied.IsDone()) return copied;
  }
  std::string err;
  if (!trash.Flush(err)) return Ending::Failed(err);
  Ending ending = IsAsSeen(path) ? WhileNobodyWrites(path) : ImageChanged(path);
  if (ending.IsDone()) {
    isBegun = ::rename(whole.c_str(), path.c_str()) == 0;
    if (!isBegun) ending = Cannot("replace the image", path);
  }
  if (!ending.IsDone()) {
    // The image itself under a second name is no old one.
    if (IsSameFile(path, place)) ::unlink(place.c_str());
    return ending;
  }
  return FlushFolder(path.parent_path()) ? Ending{} : Cannot("write out the folder of", path);
}

Ending ImageChange::CopyToTrash(int from, const std::string& why, fs::path& copy) {
  std::vector<fs::path> places;
  std::string err;
  if (!trash.Announce({{"disk", path.filename().string(), why}}, places, err)) {
    return Ending::Failed(err);
  }
  const fs::path part = PartOf(places.front());
  Ending ending = CopyTo(part, from);
  // What somebody wrote while it was copied would be a mixture.
  if (ending.IsDone() && !IsAsSeen(path)) ending = ImageChanged(path);
  if (ending.IsDone() && ::rename(part.c_str(), places.front().c_str()) != 0) {
    ending = Cannot("name", places.front());
  }
  if (!ending.IsDone()) {
    ::unlink(part.c_str());
    return ending;
  }
  copy = places.front();
  return trash.Flush(err) ? Ending{} : Ending::Failed(err);
}

Ending ImageChange::CopyTo(const fs::path& copy, int from) {
  const Descriptor to = OpenHostPath(copy.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
  if (!to || !TakeAfter(to.Get(), path)) return Cannot("write", copy);
  monitor.Begin(GuardedWork::kKeep, seen.size);
  // Where the file system can, both share their room until the image is written over.
  const bool isShared = ::ioctl(to.Get(), FICLONE, from) == 0;
  if (isShared) monitor.Add(seen.size);
  Ending ending = isShared ? Ending{} : CopyBytes(from, to.Get(), copy);
  if (ending.IsDone() && ::fsync(to.Get()) != 0) ending = Cannot("write out", copy);
  return ending;
}

Ending ImageChange::CopyBytes(int from, int to, const fs::path& copy) {
  switch (CopyToEnd(from, to, monitor)) {
    case Copying::kDone:
      return {};
    case Copying::kStopped:
      return Ending::Stopped();
    case Copying::kCannotRead:
      return Cannot("read", path);
    case Copying::kCannotWrite:
      return Cannot("write", copy);
  }
  return {};
}

Ending ImageChange::WriteInPlace(const fs::path& whole, std::uint32_t tornId,
                                 const std::string& why) {
  const Descriptor from = OpenHostPath(whole.c_str(), O_RDONLY | O_NOFOLLOW);
  if (!from) return Cannot("read the new image", whole);
  const Descriptor to = OpenHostFileNow(path.c_str(), O_RDWR | O_NOFOLLOW);
  if (!to && errno == EWOULDBLOCK) {
    return Ending::Busy("another process holds a lease on the image " + path.string());
  }
  if (!to) return Cannot("write to the image", path);
  fs::path copy;
  Ending ending = CopyToTrash(to.Get(), why, copy);
  if (ending.IsDone() && !IsAsSeen(path)) ending = ImageChanged(path);
  if (ending.IsDone() && !FillHoles(to.Get())) ending = Cannot("make room in the image", path);
  if (!ending.IsDone()) {
    if (!copy.empty()) ::unlink(copy.c_str());
    return ending;
  }
  isBegun = true;
  // From here on it goes on to the end: half of an image is of no use to anybody.
  return CopyOver(from.Get(), to.Get(), tornId);
}

// The volume id is the last thing that the image gets from the new one: a pass that finds the id of
// a torn one knows that it has to be written once more.
Ending ImageChange::CopyOver(int from, int to, std::uint32_t tornId) {
  std::vector<std::uint8_t> head(kHeadBytes);
  if (ReadFully(from, head) != static_cast<std::ptrdiff_t>(head.size())) {
    return Cannot("read", path);
  }
  std::vector<std::uint8_t> torn = head;
  StoreU32(torn.data() + kVolumeIdAt, tornId);
  if (!WriteAt(to, 0, torn) || ::fsync(to) != 0) return Cannot("write to the image", path);
  monitor.Begin(GuardedWork::kWriteDisk, seen.size);
  monitor.Add(torn.size());
  const Copying copying = CopyDifferences(from, to, torn.size(), monitor);
  if (copying == Copying::kCannotRead) return Cannot("read the new image for", path);
  if (copying != Copying::kDone) return Cannot("write to the image", path);
  if (::fsync(to) != 0 || !WriteAt(to, 0, head) || ::fsync(to) != 0) {
    return Cannot("write to the image", path);
  }
  return {};
}

}  // namespace quorbix::virtdisk::internal::guard
