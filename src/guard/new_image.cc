#include "guard/new_image.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <limits>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "browser/byte_source.h"
#include "browser/volume_index.h"
#include "common/host_file.h"
#include "guard/disk_names.h"
#include "sync/hash_bytes.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

constexpr std::uint64_t kLargestFile = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t kBootCode = boot_sector::kFileSystemType + boot_sector::kFileSystemTypeSize;
constexpr std::size_t kReadAtOnce = std::size_t{4} << 20;

Ending FileChanged(const std::string& path) {
  return Ending::Busy(path + " has changed since it was looked at");
}

// The bytes of a chain, run after run.
class ChainWriter {
 public:
  ChainWriter(Fat16Image& filledImage, const Fat16Image::Chain& takenChain, std::uint32_t size)
      : image(filledImage), chain(takenChain), left(size) {}

  // The next bytes to be filled; empty when all are.
  std::span<std::uint8_t> Next(std::size_t most) {
    if (left == 0) return {};
    const auto bytes = image.RunBytes(chain.runs[run]).subspan(inRun);
    const auto part = bytes.first(std::min<std::size_t>({bytes.size(), left, most}));
    inRun += part.size();
    left -= static_cast<std::uint32_t>(part.size());
    if (part.size() == bytes.size()) {
      ++run;
      inRun = 0;
    }
    return part;
  }

 private:
  Fat16Image& image;
  const Fat16Image::Chain& chain;
  std::uint32_t left;
  std::size_t run = 0;
  std::size_t inRun = 0;
};

class ImageMaker {
 public:
  ImageMaker(const ImageParts& imageParts, Fat16Image& madeImage, std::string& suspectFile,
             WorkMonitor& workMonitor)
      : parts(imageParts), image(madeImage), suspect(suspectFile), monitor(workMonitor) {}

  Ending Run() {
    monitor.Begin(GuardedWork::kMakeDisk, ContentBytes());
    if (!image.Init(parts.old.facts.bytes, err)) return Ending::Failed(err);
    const auto bootLabel = Label(parts.old.boot, boot_sector::kVolumeLabel);
    image.WriteBootSector(bootLabel, parts.volumeId);
    if (!parts.old.rootLabel.empty()) image.SetVolumeLabel(parts.old.rootLabel);
    image.WriteMbr();
    KeepBootCode();
    Ending ending = AddEntries();
    if (ending.IsDone()) ending = KeepMarks();
    return ending;
  }

 private:
  static std::string Label(std::span<const std::uint8_t> sector, std::size_t offset) {
    return {reinterpret_cast<const char*>(sector.data()) + offset, boot_sector::kVolumeLabelSize};
  }

  std::uint64_t ContentBytes() const {
    std::uint64_t bytes = 0;
    for (const TreeEntry& entry : parts.tree) bytes += entry.content.size;
    return bytes;
  }

  void KeepBootCode() {
    const auto bytes = image.BytesToEdit();
    const auto keep = [](std::span<const std::uint8_t> from, std::span<std::uint8_t> to,
                         std::size_t begin, std::size_t end) {
      std::copy(from.begin() + static_cast<std::ptrdiff_t>(begin),
                from.begin() + static_cast<std::ptrdiff_t>(end),
                to.begin() + static_cast<std::ptrdiff_t>(begin));
    };
    keep(parts.old.masterBoot, bytes, 0, mbr::kPartitionTable);
    const auto boot = bytes.subspan(std::size_t{kPartitionStart} * kSectorBytes);
    keep(parts.old.boot, boot, boot_sector::kJump, boot_sector::kBytesPerSector);
    keep(parts.old.boot, boot, boot_sector::kVolumeLabel, boot_sector::kFileSystemType);
    keep(parts.old.boot, boot, kBootCode, boot_sector::kSignature);
  }

  // Directory by directory, so that what lies in the root comes first in the clusters as well.
  Ending AddEntries() {
    std::map<std::string, std::vector<const TreeEntry*>> byDirectory;
    for (const TreeEntry& entry : parts.tree) {
      byDirectory[ParentOf(DiskKey(entry.disk))].push_back(&entry);
    }
    std::vector<std::pair<std::string, std::uint32_t>> directories{
        {"", Fat16Image::kRootDirectory}};
    for (std::size_t i = 0; i < directories.size(); ++i) {
      const auto [key, cluster] = directories[i];
      std::vector<const TreeEntry*>& entries = byDirectory[key];
      std::stable_sort(entries.begin(), entries.end(), [&](const auto* a, const auto* b) {
        return SlotBefore(*a) < SlotBefore(*b);
      });
      for (const TreeEntry* entry : entries) {
        if (monitor.IsStopped()) return Ending::Stopped();
        std::uint32_t added = 0;
        Ending ending = Add(*entry, cluster, added);
        if (!ending.IsDone()) return ending;
        if (entry->type == EntryType::kFolder) {
          directories.emplace_back(DiskKey(entry->disk), added);
        }
      }
    }
    return {};
  }

  std::uint64_t SlotBefore(const TreeEntry& entry) const {
    const auto before = parts.old.entries.find(DiskKey(entry.disk));
    return before == parts.old.entries.end() ? std::numeric_limits<std::uint64_t>::max()
                                             : before->second.slotOffset;
  }

  Ending Add(const TreeEntry& entry, std::uint32_t directory, std::uint32_t& added) {
    const std::string shortName = ShortNameFor(entry);
    if (entry.type == EntryType::kFolder) {
      added = image.AddDirectory(directory, shortName, err);
    } else if (entry.content.size == 0) {
      added = image.AddFile(directory, shortName, nullptr, 0, err);
    } else {
      return AddContent(entry, directory, shortName);
    }
    return added != 0 ? Ending{} : Ending::Failed(err);
  }

  // As the machine has stored it, where it has.
  std::string ShortNameFor(const TreeEntry& entry) const {
    const auto before = parts.old.items.find(DiskKey(entry.disk));
    return before != parts.old.items.end() ? before->second.shortName
                                           : ShortNameOf(NameOf(entry.disk));
  }

  Ending AddContent(const TreeEntry& entry, std::uint32_t directory, const std::string& shortName) {
    if (entry.content.size > kLargestFile) return Ending::Failed(entry.host + " is too large");
    const auto size = static_cast<std::uint32_t>(entry.content.size);
    const auto chain = image.TakeChain(size);
    if (!chain) return Ending::Failed("the disk is full");
    ChainWriter writer(image, *chain, size);
    Ending ending =
        entry.isFromOldImage ? FillFromDisk(entry, writer) : FillFromHost(entry, writer);
    if (!ending.IsDone()) return ending;
    const bool added = image.AddTakenFile(directory, shortName, *chain, size, err) != 0;
    return added ? Ending{} : Ending::Failed(err);
  }

  Ending FillFromHost(const TreeEntry& entry, ChainWriter& writer) {
    if (const auto* bytes = parts.kept.Find(entry.host, entry.content)) {
      monitor.Add(bytes->size());
      Fill(*bytes, writer);
      return {};
    }
    const Descriptor file = OpenOnHost(entry.host);
    if (!file && (errno == ENOENT || errno == ENOTDIR || errno == EWOULDBLOCK)) {
      return FileChanged(entry.host);
    }
    if (!file) return Cannot("read", entry.host);
    std::uint64_t hash = kEmptyHash;
    for (auto part = writer.Next(kReadAtOnce); !part.empty(); part = writer.Next(kReadAtOnce)) {
      const std::ptrdiff_t got = ReadFully(file.Get(), part);
      if (got < 0) return Cannot("read", entry.host);
      if (static_cast<std::size_t>(got) < part.size()) return HostChanged(entry.host);
      hash = HashBytes(part, hash);
      monitor.Add(part.size());
      if (monitor.IsStopped()) return Ending::Stopped();
    }
    std::array<std::uint8_t, 1> beyond{};
    const bool isSame = hash == entry.content.hash && ReadFully(file.Get(), beyond) == 0;
    return isSame ? Ending{} : HostChanged(entry.host);
  }

  Descriptor OpenOnHost(const std::string& path) const {
    struct ::stat status;
    Descriptor file = OpenRegularFileNow(AT_FDCWD, (parts.folder / path).c_str(), status);
    if (file || errno != ENAMETOOLONG) return file;
    const Descriptor folder = OpenFolderBelow(parts.folder.c_str(), ParentOf(path));
    return folder ? OpenRegularFileNow(folder.Get(), NameOf(path).c_str(), status) : Descriptor();
  }

  Ending HostChanged(const std::string& path) {
    suspect = path;
    return FileChanged(path);
  }

  Ending FillFromDisk(const TreeEntry& entry, ChainWriter& writer) {
    std::uint64_t hash = kEmptyHash;
    Ending ending = parts.oldContents.Read(entry.disk, [&](std::span<const std::uint8_t> bytes) {
      hash = HashBytes(bytes, hash);
      monitor.Add(bytes.size());
      return Fill(bytes, writer) && !monitor.IsStopped();
    });
    if (monitor.IsStopped()) return Ending::Stopped();
    if (!ending.IsDone()) return ending;
    return hash == entry.content.hash ? Ending{} : FileChanged("the image");
  }

  // False: there is no room left for some of it.
  static bool Fill(std::span<const std::uint8_t> bytes, ChainWriter& writer) {
    while (!bytes.empty()) {
      const auto part = writer.Next(bytes.size());
      if (part.empty()) return false;
      std::copy_n(bytes.begin(), part.size(), part.begin());
      bytes = bytes.subspan(part.size());
    }
    return true;
  }

  // The writer knows no attributes and no times: they are put where it has made the entries.
  Ending KeepMarks() {
    MemorySource source(image.Bytes());
    VolumeIndex index(source);
    if (!index.Parse(err)) return Ending::Failed(err);
    std::map<std::string, const TreeEntry*> planned;
    for (const TreeEntry& entry : parts.tree) planned.emplace(DiskKey(entry.disk), &entry);
    for (const EntryRecord& record : index.Records()) {
      const std::string key = DiskKey(std::string_view(index.PathOf(record)).substr(1));
      const auto before = parts.old.items.find(key);
      const auto now = planned.find(key);
      if (before == parts.old.items.end() || now == planned.end()) continue;
      const TreeEntry& entry = *now->second;
      if (before->second.type != entry.type || before->second.content != entry.content ||
          !before->second.isReadable) {
        continue;
      }
      const SlotMarks& marks = parts.old.entries.at(key).marks;
      std::copy(marks.begin(), marks.end(),
                image.BytesToEdit().begin() +
                    static_cast<std::ptrdiff_t>(record.dirEntryOffset + dir_entry::kAttributes));
    }
    return {};
  }

  const ImageParts& parts;
  Fat16Image& image;
  std::string& suspect;
  WorkMonitor& monitor;
  std::string err;
};

}  // namespace

Ending MakeImage(const ImageParts& parts, Fat16Image& image, std::string& suspect,
                 WorkMonitor& monitor) {
  suspect.clear();
  return ImageMaker(parts, image, suspect, monitor).Run();
}

}  // namespace quorbix::virtdisk::internal::guard
