#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "browser/fat16_fs_image_impl.h"
#include "browser/path_text.h"
#include "common/byte_order.h"
#include "common/fail.h"
#include "common/fat_words.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk {
namespace {

using internal::Fail;
using internal::LoadU16;
using internal::LoadU32;
namespace dir_entry = internal::dir_entry;
namespace fat = internal::fat;

constexpr std::string_view kDirectoryOutOfRange = "directory block out of range";
constexpr std::string_view kClusterLoop = "cluster loop detected";
constexpr std::string_view kClusterOutOfRange = "cluster offset out of range";

// Values of chainLengths that are no length. The longest chain takes each cluster from 2 to 0xFFF7
// once, which stays below them.
constexpr std::uint16_t kNotMeasured = 0;
constexpr std::uint16_t kBeingMeasured = 0xFFFD;
constexpr std::uint16_t kLoops = 0xFFFE;
constexpr std::uint16_t kLeavesImage = 0xFFFF;
static_assert(fat::kFirstEndOfChain - fat::kFirstCluster < kBeingMeasured);

constexpr bool IsBroken(std::uint16_t length) { return length == kLoops || length == kLeavesImage; }

constexpr std::uint16_t kNoNextCluster = 0;  // what NextCluster says at the end of a chain
constexpr std::uint16_t kRootStart = 0;      // start cluster of the fixed root directory

bool IsSkipped(const std::uint8_t* slot) {
  return slot[0] == dir_entry::kDeleted ||
         (slot[dir_entry::kAttributes] & dir_entry::kAttrLongName) == dir_entry::kAttrLongName;
}

bool IsVolumeLabel(std::uint8_t attributes) {
  return (attributes & (dir_entry::kAttrVolumeLabel | dir_entry::kAttrDirectory)) ==
         dir_entry::kAttrVolumeLabel;
}

// Empty for a slot without a base name, which is no entry.
std::string NameOf(const std::uint8_t* slot) {
  std::string name =
      internal::TrimPaddedAscii(slot + dir_entry::kBaseName, dir_entry::kBaseNameSize);
  const std::string extension =
      internal::TrimPaddedAscii(slot + dir_entry::kExtension, dir_entry::kExtensionSize);
  if (!name.empty() && !extension.empty()) name.append(".").append(extension);
  return name;
}

}  // namespace

Fat16FsEntry Fat16FsImage::Impl::EntryRecord::Entry(std::string path) const {
  Fat16FsEntry entry;
  entry.name = Name();
  entry.path = std::move(path);
  entry.isDirectory = IsDirectory();
  entry.attributes = attributes;
  entry.size = size;
  entry.firstCluster = firstCluster;
  entry.writeTime = writeTime;
  entry.writeDate = writeDate;
  return entry;
}

// Where the walk stands in one directory: at a slot of a block of slots that lie side by side,
// which is a cluster or the whole root region.
struct Fat16FsImage::Impl::OpenDirectory {
  std::uint32_t record;
  std::uint16_t cluster;   // kRootStart: the root region
  std::uint64_t nextSlot;  // byte offset in the image
  std::uint64_t blockEnd;  // byte offset in the image
};

bool Fat16FsImage::Impl::WalkDirectory(std::string& err) {
  err.clear();
  std::vector<OpenDirectory> open;
  if (!OpenRoot(open, err)) return false;
  std::vector<bool> visited(std::size_t{1} << 16);  // start clusters of the directories met
  // Chains that run into each other show their slots once for each directory. Without a bound on
  // all visits the index of a small image could grow quadratically.
  std::uint64_t slotsLeft = image.size() / dir_entry::kSize;
  while (!open.empty()) {
    OpenDirectory& directory = open.back();
    if (directory.nextSlot == directory.blockEnd) {
      if (!GoToNextCluster(directory)) open.pop_back();
      continue;
    }
    if (slotsLeft == 0) return Fail(err, kClusterLoop);
    --slotsLeft;
    const std::uint64_t slotOffset = directory.nextSlot;
    const std::uint8_t* slot = &image[slotOffset];
    directory.nextSlot += dir_entry::kSize;
    if (slot[0] == dir_entry::kNeverUsed) {
      // The root ends here. A subdirectory deliberately does not: it goes on in its next cluster.
      directory.nextSlot = directory.blockEnd;
      continue;
    }
    if (IsSkipped(slot) || !AddEntry(slot, slotOffset, directory.record)) continue;
    if (index.back().IsDirectory() && !OpenLastRecord(open, visited, err)) return false;
  }
  return true;
}

bool Fat16FsImage::Impl::OpenRoot(std::vector<OpenDirectory>& open, std::string& err) const {
  const std::uint64_t offset = std::uint64_t{info.rootDirStartSector} * info.bytesPerSector;
  const std::uint64_t bytes = std::uint64_t{info.rootDirSectors} * info.bytesPerSector;
  if (offset > image.size() || bytes > image.size() - offset) {
    return Fail(err, kDirectoryOutOfRange);
  }
  open.push_back({kNoRecord, kRootStart, offset, offset + bytes});
  return true;
}

// A directory without a cluster of its own stays empty. That includes first cluster 0: taken for
// the root, it would show the root again below each such entry, without end.
bool Fat16FsImage::Impl::OpenLastRecord(std::vector<OpenDirectory>& open,
                                        std::vector<bool>& visited, std::string& err) const {
  const std::uint16_t start = index.back().firstCluster;
  if (!fat::LeadsToCluster(start) || visited[start]) return true;
  visited[start] = true;
  if (!CheckChain(start, err)) return false;
  // All clusters of a chain that passed the check lie inside the image.
  const std::uint64_t offset = ClusterOffset(start);
  open.push_back(
      {static_cast<std::uint32_t>(index.size() - 1), start, offset, offset + ClusterBytes()});
  return true;
}

bool Fat16FsImage::Impl::GoToNextCluster(OpenDirectory& directory) const {
  if (directory.cluster == kRootStart) return false;
  directory.cluster = NextCluster(directory.cluster);
  if (directory.cluster == kNoNextCluster) return false;
  directory.nextSlot = ClusterOffset(directory.cluster);
  directory.blockEnd = directory.nextSlot + ClusterBytes();
  return true;
}

bool Fat16FsImage::Impl::AddEntry(const std::uint8_t* slot, std::uint64_t slotOffset,
                                  std::uint32_t parent) {
  const std::string name = NameOf(slot);
  if (name.empty() || name == "." || name == "..") return false;
  EntryRecord record;
  record.attributes = slot[dir_entry::kAttributes];
  if (IsVolumeLabel(record.attributes)) {
    // In any directory, and with the dot of a file's name: both are meant.
    if (info.volumeLabel.empty()) info.volumeLabel = name;
    return false;
  }
  std::copy(name.begin(), name.end(), record.name.begin());
  record.nameLength = static_cast<std::uint8_t>(name.size());
  record.writeTime = LoadU16(slot + dir_entry::kWriteTime);
  record.writeDate = LoadU16(slot + dir_entry::kWriteDate);
  record.firstCluster = LoadU16(slot + dir_entry::kFirstCluster);
  record.size = LoadU32(slot + dir_entry::kFileSize);
  record.parent = parent;
  record.dirEntryOffset = slotOffset;
  record.allocatedBytes = MeasuredLength(record.firstCluster) * ClusterBytes();
  RegisterPath(record);
  index.push_back(record);
  return true;
}

void Fat16FsImage::Impl::RegisterPath(EntryRecord& record) {
  const bool inRoot = record.parent == kNoRecord;
  record.parentKey = inRoot ? internal::PathKeys::kRoot : index[record.parent].pathKey;
  record.pathLength = (inRoot ? 0 : index[record.parent].pathLength) + 1 + record.nameLength;
  record.pathKey = paths.Add(record.parentKey, record.Name(), record.IsDirectory(),
                             static_cast<std::uint32_t>(index.size()));
}

// Every cluster has one successor, so each is followed once, whatever number of entries lead to it.
void Fat16FsImage::Impl::MeasureChains() {
  const std::uint64_t dataOffset = ClusterOffset(fat::kFirstCluster);
  const std::uint64_t dataBytes = image.size() - std::min<std::uint64_t>(dataOffset, image.size());
  const std::uint64_t end = std::min<std::uint64_t>(fat::kFirstCluster + dataBytes / ClusterBytes(),
                                                    fat::kFirstEndOfChain);
  chainLengths.assign(static_cast<std::size_t>(end), kNotMeasured);
  for (std::size_t start = fat::kFirstCluster; start < chainLengths.size(); ++start) {
    MeasureChain(static_cast<std::uint16_t>(start));
  }
}

void Fat16FsImage::Impl::MeasureChain(std::uint16_t start) {
  std::uint16_t unmeasured = 0;  // clusters from `start` on that have no length yet
  std::uint16_t rest = 0;        // what the chain after them comes to
  for (std::uint16_t cluster = start; cluster != kNoNextCluster; cluster = NextCluster(cluster)) {
    if (cluster >= chainLengths.size()) {
      rest = kLeavesImage;
      break;
    }
    if (chainLengths[cluster] != kNotMeasured) {
      rest = chainLengths[cluster] == kBeingMeasured ? kLoops : chainLengths[cluster];
      break;
    }
    chainLengths[cluster] = kBeingMeasured;
    ++unmeasured;
  }
  for (std::uint16_t cluster = start; unmeasured > 0; --unmeasured) {
    const int length = rest + unmeasured;
    chainLengths[cluster] = IsBroken(rest) ? rest : static_cast<std::uint16_t>(length);
    cluster = NextCluster(cluster);
  }
}

std::uint16_t Fat16FsImage::Impl::NextCluster(std::uint16_t cluster) const {
  const std::uint64_t wordOffset = std::uint64_t{info.fatStartSector} * info.bytesPerSector +
                                   std::uint64_t{cluster} * fat::kWordBytes;
  if (wordOffset + 1 >= image.size()) return kNoNextCluster;
  const std::uint16_t word = LoadU16(&image[wordOffset]);
  return fat::LeadsToCluster(word) ? word : kNoNextCluster;
}

bool Fat16FsImage::Impl::CheckChain(std::uint16_t start, std::string& err) const {
  if (!fat::LeadsToCluster(start)) return true;
  if (start >= chainLengths.size() || chainLengths[start] == kLeavesImage) {
    return Fail(err, kClusterOutOfRange);
  }
  return chainLengths[start] != kLoops || Fail(err, kClusterLoop);
}

std::uint64_t Fat16FsImage::Impl::MeasuredLength(std::uint16_t start) const {
  if (start < fat::kFirstCluster || start >= chainLengths.size()) return 0;
  return IsBroken(chainLengths[start]) ? 0 : chainLengths[start];
}

bool Fat16FsImage::Impl::CollectClusterChain(std::uint16_t start, std::vector<std::uint16_t>& chain,
                                             std::string& err) const {
  chain.clear();
  err.clear();
  if (!CheckChain(start, err)) return false;
  chain.resize(static_cast<std::size_t>(MeasuredLength(start)));
  for (std::uint16_t& cluster : chain) {
    cluster = start;
    start = NextCluster(start);
  }
  return true;
}

const Fat16FsImage::Impl::EntryRecord* Fat16FsImage::Impl::FindRecord(
    const std::string& path) const {
  const std::uint32_t record = paths.FindRecord(internal::NormalizePath(path));
  return record == kNoRecord ? nullptr : &index[record];
}

std::string Fat16FsImage::Impl::PathOf(const EntryRecord& record) const {
  std::string path(record.pathLength, '/');
  const EntryRecord* part = &record;
  std::size_t end = path.size();
  while (true) {
    end -= part->nameLength;
    path.replace(end, part->nameLength, part->Name());
    --end;  // the separator
    if (part->parent == kNoRecord) return path;
    part = &index[part->parent];
  }
}

std::size_t Fat16FsImage::Impl::LongestPath() const {
  std::size_t longest = 0;
  for (const EntryRecord& record : index) {
    longest = std::max<std::size_t>(longest, record.pathLength);
  }
  return longest;
}

std::uint64_t Fat16FsImage::Impl::ClusterBytes() const {
  return std::uint64_t{info.sectorsPerCluster} * info.bytesPerSector;
}

std::uint64_t Fat16FsImage::Impl::ClusterOffset(std::uint16_t cluster) const {
  const std::uint64_t sector =
      std::uint64_t{info.dataStartSector} +
      (std::uint64_t{cluster} - fat::kFirstCluster) * info.sectorsPerCluster;
  return sector * info.bytesPerSector;
}

}  // namespace quorbix::virtdisk
