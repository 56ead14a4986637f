#include "guard/disk_view.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <span>
#include <string_view>
#include <utility>

#include "browser/entry_record.h"
#include "browser/file_source.h"
#include "browser/volume_description.h"
#include "browser/volume_index.h"
#include "check/check_volume.h"
#include "check/partitions.h"
#include "common/byte_order.h"
#include "common/host_file.h"
#include "fat16/geometry.h"
#include "guard/clock.h"
#include "guard/disk_names.h"
#include "guard/host_view.h"
#include "guard/long_names.h"
#include "guard/system_text.h"
#include "guard/usable_names.h"
#include "sync/hash_bytes.h"

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

// Directories nested thousands deep have paths of gigabytes in all.
constexpr std::uint64_t kMostPathBytes = std::uint64_t{64} << 20;
// Twice what a system takes as one path: nobody has put such a directory there to be used.
constexpr std::uint64_t kLongestPath = 8192;
constexpr std::uint64_t kMostBytesCopiedInVain = std::uint64_t{4} << 20;

constexpr char kNoUsableName[] = "has a name that no system takes: ";
constexpr char kInNextImage[] = " in the next image";

// Whether a host takes the name for one entry of a folder, and for no other than it says.
bool IsHostName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

// Whether files could be cut, mixed up or missed because of it.
bool EndangersFiles(FindingKind kind) {
  switch (kind) {
    case FindingKind::kFatsDiffer:
    case FindingKind::kBadStart:
    case FindingKind::kChainLoops:
    case FindingKind::kChainLeavesVolume:
    case FindingKind::kChainHitsFree:
    case FindingKind::kChainHitsBad:
    case FindingKind::kChainMeetsAnother:
    case FindingKind::kChainTooShort:
    case FindingKind::kRootBeyondImage:
    case FindingKind::kDirectoryWithoutChain:
    case FindingKind::kDirectoryTooLong:
    case FindingKind::kDuplicateName:
    case FindingKind::kUnusableName:
      return true;
    default:
      return false;
  }
}

const char* KindOf(::mode_t mode) {
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISFIFO(mode)) return "a pipe";
  if (S_ISSOCK(mode)) return "a socket";
  return "a device";
}

class DiskLooker {
 public:
  DiskLooker(const fs::path& imagePath, GuardedWork itsWork, WorkMonitor& workMonitor,
             const DiskKeeping* diskKeeping)
      : image(imagePath), work(itsWork), monitor(workMonitor), keeping(diskKeeping) {}

  DiskView Run() {
    struct ::stat before;
    view.taken = NowNanoseconds();
    if (::stat(image.c_str(), &before) != 0) return Missing();
    view.stamp = StampOf(before);
    view.facts.bytes = view.stamp.size;
    if (!S_ISREG(before.st_mode)) {
      Spoil(ImageFacts::State::kNoFile, KindOf(before.st_mode));
      return std::move(view);
    }
    Look();
    struct ::stat after;
    const bool isSteady = ::stat(image.c_str(), &after) == 0 && StampOf(after) == view.stamp;
    if (!isSteady && view.result == DiskView::Result::kComplete) {
      view.result = DiskView::Result::kBusy;
    }
    return std::move(view);
  }

 private:
  DiskView Missing() {
    view.facts.state =
        errno == ENOENT ? ImageFacts::State::kMissing : ImageFacts::State::kUnreadable;
    view.facts.error = SystemText();
    return std::move(view);
  }

  void Spoil(ImageFacts::State state, std::string error) {
    view.facts.state = state;
    view.facts.error = std::move(error);
    view.items.clear();
    view.entries.clear();
  }

  void Look() {
    // As long as it is open here, nobody gets a lease on it for which the next opening would wait.
    const Descriptor held = OpenHostFileNow(image.c_str(), O_RDONLY | O_NOCTTY);
    if (!held && errno == EWOULDBLOCK) {
      view.result = DiskView::Result::kBusy;
      return;
    }
    std::string err;
    const auto source = FileSource::Open(image, err);
    if (!source) return Spoil(ImageFacts::State::kUnreadable, err);
    LookInto(*source);
    // A disk of the host that fails is no damage of this one.
    if (!source->Failure().empty()) Spoil(ImageFacts::State::kUnreadable, source->Failure());
  }

  void LookInto(FileSource& source) {
    std::string err;
    Fat16FsInfo info;
    if (!DescribeVolume(source, info, err)) return Spoil(ImageFacts::State::kNoFat16, err);
    if (!TakeDescription(info, source)) return;
    VolumeIndex index(source);
    if (!index.Parse(err, VolumeIndex::Hidden::kCollect)) {
      return Spoil(ImageFacts::State::kCutShort, err);
    }
    if (!TakeLabel(info, source) || !Check(source)) return;
    NoteStart(info);
    TakeRecords(index, source);
    NoteHidden(index);
  }

  bool TakeDescription(const Fat16FsInfo& info, ByteSource& source) {
    const std::uint32_t dataSectors =
        info.totalSectors -
        std::min(info.totalSectors, info.dataStartSector - info.partitionStartLba);
    const std::uint32_t clusters = dataSectors / info.sectorsPerCluster;
    view.facts.isTakenForFat12 = clusters < kFewestFat16Clusters;
    if (!info.partitioned) {
      Spoil(ImageFacts::State::kNoFat16, "it has no partition table");
    } else if (view.facts.isTakenForFat12 && info.fileSystemType != "FAT16") {
      Spoil(ImageFacts::State::kNoFat16, "its boot sector calls it " + info.fileSystemType);
    } else if (info.volumeOffset + std::uint64_t{info.totalSectors} * kSectorBytes >
               source.Size()) {
      Spoil(ImageFacts::State::kCutShort, "the volume has " + std::to_string(info.totalSectors) +
                                              " sectors, and the image ends " + "before them");
    } else {
      return TakeSectors(info, source);
    }
    return false;
  }

  bool TakeSectors(const Fat16FsInfo& info, ByteSource& source) {
    if (!TakeSector(source, 0, view.masterBoot) ||
        !TakeSector(source, info.volumeOffset, view.boot)) {
      return false;
    }
    view.facts.volumeId = LoadU32(view.boot.data() + boot_sector::kVolumeId);
    std::vector<Partition> others;
    std::string err;
    if (!FindOtherPartitions(source, info, others, err)) return false;
    view.facts.otherPartitions = others.size();
    return true;
  }

  bool TakeSector(ByteSource& source, std::uint64_t offset,
                  std::array<std::uint8_t, kSectorBytes>& sector) {
    std::string err;
    const std::uint8_t* bytes = source.Read(offset, sector.size(), buffer, err);
    if (bytes == nullptr) return false;
    std::copy_n(bytes, sector.size(), sector.begin());
    return true;
  }

  // The walk has read the whole root: it lies inside the image.
  bool TakeLabel(const Fat16FsInfo& info, ByteSource& source) {
    const std::uint64_t root = std::uint64_t{info.rootDirStartSector} * kSectorBytes;
    for (std::uint32_t slot = 0; slot < info.rootEntryCount; ++slot) {
      std::string err;
      const std::uint8_t* bytes =
          source.Read(root + std::uint64_t{slot} * dir_entry::kSize, dir_entry::kSize, buffer, err);
      if (bytes == nullptr) return false;
      if (bytes[0] == dir_entry::kNeverUsed) return true;
      if (IsSkippedSlot(bytes) || !IsVolumeLabel(bytes)) continue;
      view.rootLabel.assign(reinterpret_cast<const char*>(bytes), dir_entry::kNameSize);
      return true;
    }
    return true;
  }

  bool Check(ByteSource& source) {
    std::string err;
    if (!CheckVolume(source, report, err)) {
      Spoil(ImageFacts::State::kUnreadable, err);
      return false;
    }
    for (const Finding& finding : report.findings) {
      const std::string text =
          finding.path.empty() ? finding.text : finding.path + ": " + finding.text;
      if (EndangersFiles(finding.kind)) {
        view.facts.damage.push_back(text);
      } else if (finding.kind == FindingKind::kLostClusters) {
        view.notes.push_back({"", text + ": not in the next image"});
      }
    }
    return true;
  }

  void TakeRecords(const VolumeIndex& index, FileSource& source) {
    std::uint64_t pathBytes = 0;
    std::uint64_t contentBytes = 0;
    std::uint64_t longest = 0;
    for (const EntryRecord& record : index.Records()) {
      pathBytes += record.pathLength;
      longest = std::max<std::uint64_t>(longest, record.pathLength);
      contentBytes += record.IsDirectory() ? 0 : record.size;
    }
    if (pathBytes > kMostPathBytes || longest > kLongestPath) {
      return Spoil(ImageFacts::State::kCutShort, "its directories are nested too deep");
    }
    left = view.facts.bytes;
    monitor.Begin(work, std::min(contentBytes, left));
    UsableNames names(index);
    std::string err;
    // The check does not look behind a cluster that it has met before; the index does.
    if (!names.Choose(source, err)) return Spoil(ImageFacts::State::kUnreadable, err);
    LongNames longNames(index, source);
    std::size_t longNamed = 0;
    for (std::size_t number = 0; number < index.Records().size(); ++number) {
      if (monitor.IsStopped()) view.result = DiskView::Result::kStopped;
      if (view.result != DiskView::Result::kComplete) return;
      if (!TakeRecord(number, index, names, source)) return;
      if (longNames.Has(index.Records()[number])) ++longNamed;
    }
    NoteLongNames(longNamed);
    NoteDropped();
  }

  void NoteLongNames(std::size_t count) {
    if (count == 0) return;
    view.notes.push_back({"", std::to_string(count) +
                                  (count == 1 ? " entry of the disk has a long name"
                                              : " entries of the disk have long names") +
                                  " beside the short one: not in the next image"});
  }

  // False: the image cannot be read any more.
  bool TakeRecord(std::size_t number, const VolumeIndex& index, const UsableNames& names,
                  FileSource& source) {
    const EntryRecord& record = index.Records()[number];
    const std::string* chosen = names.ChosenFor(number);
    // What the check tells of, and what nothing can stand for.
    if (!IsHostName(chosen != nullptr ? *chosen : record.Name())) return true;
    DiskItem item{.path = names.PathOf(number)};
    const std::string key = DiskKey(item.path);
    if (IsBelowDropped(record, names) || view.items.contains(key)) {
      ++dropped;
      return true;
    }
    DiskEntry entry{.slotOffset = record.dirEntryOffset, .firstCluster = record.firstCluster};
    if (!TakeSlot(source, item, entry)) return false;
    if (chosen != nullptr) {
      item.shortName = ShortNameOf(*chosen);
      view.notes.push_back({index.PathOf(record), kNoUsableName + *chosen + kInNextImage});
    }
    item.isDated = record.writeDate != 0;
    if (record.IsDirectory()) {
      item.type = EntryType::kFolder;
    } else {
      item.sharesClusters = report.Meets(record.firstCluster);
      Hash(record, index, item);
      if (!source.Failure().empty()) return false;
    }
    view.items.emplace(key, std::move(item));
    view.entries.emplace(key, entry);
    return true;
  }

  // Its directory, which may have had the name of a file.
  bool IsBelowDropped(const EntryRecord& record, const UsableNames& names) const {
    if (record.parent == VolumeIndex::kNoRecord) return false;
    const auto parent = view.items.find(DiskKey(names.PathOf(record.parent)));
    return parent == view.items.end() || parent->second.type != EntryType::kFolder;
  }

  void NoteDropped() {
    if (dropped == 0) return;
    view.notes.push_back(
        {"", std::to_string(dropped) +
                 (dropped == 1 ? " entry of the disk has" : " entries of the disk have") +
                 " the name of another one, or lie in one that has: not in the next image"});
  }

  bool TakeSlot(ByteSource& source, DiskItem& item, DiskEntry& entry) {
    std::string err;
    const std::uint8_t* slot = source.Read(entry.slotOffset, dir_entry::kSize, buffer, err);
    if (slot == nullptr) return false;
    item.shortName.assign(reinterpret_cast<const char*>(slot), dir_entry::kNameSize);
    std::copy_n(slot + dir_entry::kAttributes, entry.marks.size(), entry.marks.begin());
    return true;
  }

  // Sound files are never longer together than the image is: what shares clusters ends there.
  void Hash(const EntryRecord& record, const VolumeIndex& index, DiskItem& item) {
    item.content = {.hash = kEmptyHash, .size = record.size};
    item.isReadable = record.size <= left;
    if (record.size == 0 || !item.isReadable) return;
    left -= record.size;
    ContentReader reader = index.Open(record.firstCluster, record.size);
    item.isReadable = reader.Total() == record.size;
    const bool mayBeKept = item.isReadable && MayBeKept(item);
    std::vector<std::uint8_t> bytes;
    if (mayBeKept) bytes.reserve(record.size);
    std::span<const std::uint8_t> piece;
    std::string err;
    while (item.isReadable) {
      item.isReadable = reader.Next(piece, err);
      if (!item.isReadable) return;
      if (piece.empty()) break;
      item.content.hash = HashBytes(piece, item.content.hash);
      if (mayBeKept) bytes.insert(bytes.end(), piece.begin(), piece.end());
      monitor.Add(piece.size());
      if (monitor.IsStopped()) view.result = DiskView::Result::kStopped;
      if (view.result != DiskView::Result::kComplete) return;
    }
    if (mayBeKept && IsNews(item)) {
      keeping->kept.Keep(KeptContents::KeyOnDisk(DiskKey(item.path)), item.content,
                         std::move(bytes));
    }
  }

  const Content* KnownOf(const DiskItem& item) const {
    const auto known = keeping->known.find(DiskKey(item.path));
    return known == keeping->known.end() ? nullptr : &known->second;
  }

  bool IsNews(const DiskItem& item) const {
    const Content* known = KnownOf(item);
    return known == nullptr || *known != item.content;
  }

  // A large file of the size that it had is hardly ever another one, and not worth the copying.
  bool MayBeKept(const DiskItem& item) const {
    if (keeping == nullptr || !keeping->kept.HasRoomFor(item.content.size)) return false;
    const Content* known = KnownOf(item);
    return known == nullptr || known->size != item.content.size ||
           item.content.size <= kMostBytesCopiedInVain;
  }

  void NoteStart(const Fat16FsInfo& info) {
    if (info.partitionStartLba == kPartitionStart) return;
    view.notes.push_back({"", "the volume begins in sector " +
                                  std::to_string(info.partitionStartLba) + ": in sector " +
                                  std::to_string(kPartitionStart) + " of the next image"});
  }

  void NoteHidden(const VolumeIndex& index) {
    const std::size_t count = index.HiddenEntries().size();
    if (count == 0) return;
    view.notes.push_back(
        {"", std::to_string(count) + (count == 1 ? " entry" : " entries") +
                 " of the disk without a name that could be listed: not in the next image"});
  }

  const fs::path& image;
  const GuardedWork work;
  WorkMonitor& monitor;
  const DiskKeeping* const keeping;
  std::vector<std::uint8_t> buffer;
  std::uint64_t left = 0;   // bytes that sound files may still have
  std::size_t dropped = 0;  // entries
  CheckReport report;
  DiskView view;
};

}  // namespace

DiskView LookAtDisk(const fs::path& image, GuardedWork work, WorkMonitor& monitor,
                    const DiskKeeping* keeping) {
  return DiskLooker(image, work, monitor, keeping).Run();
}

struct ImageContents::Opened {
  explicit Opened(std::unique_ptr<FileSource> file) : source(std::move(file)), index(*source) {}

  std::unique_ptr<FileSource> source;
  VolumeIndex index;
};

ImageContents::ImageContents(const fs::path& image, const DiskView& diskView,
                             const KeptContents& keptContents)
    : path(image), view(diskView), kept(keptContents) {}

ImageContents::~ImageContents() = default;

Ending ImageContents::Open() {
  std::string err;
  if (opened) return {};
  auto source = FileSource::Open(path, err);
  if (!source) return Ending::Failed(err);
  opened = std::make_unique<Opened>(std::move(source));
  return opened->index.Parse(err) ? Ending{} : Ending::Busy(err);
}

Ending ImageContents::Read(const std::string& diskPath, const Sink& sink) {
  const std::string key = DiskKey(diskPath);
  const auto item = view.items.find(key);
  if (item == view.items.end()) return Ending::Busy(diskPath + " is not on the disk");
  if (const auto* bytes = kept.Find(KeptContents::KeyOnDisk(key), item->second.content)) {
    sink(*bytes);
    return {};
  }
  Ending ending = Open();
  if (!ending.IsDone()) return ending;
  ContentReader reader =
      opened->index.Open(view.entries.at(key).firstCluster, item->second.content.size);
  std::span<const std::uint8_t> piece;
  std::string err;
  for (;;) {
    if (!reader.Next(piece, err)) {
      return Ending::Failed(std::string(diskPath).append(": ").append(err));
    }
    if (piece.empty() || !sink(piece)) return {};
  }
}

}  // namespace quorbix::virtdisk::internal::guard
