#include "browser/volume_walk.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "common/fail.h"
#include "common/fat_words.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::internal {
namespace {

constexpr std::string_view kDirectoryOutOfRange = "directory block out of range";

constexpr std::uint16_t kRootStart = 0;  // start cluster of the fixed root directory

bool IsFile(const std::uint8_t* slot) {
  return (slot[dir_entry::kAttributes] & dir_entry::kAttrDirectory) == 0 && !IsVolumeLabel(slot);
}

bool IsDotName(std::string_view name) { return name == "." || name == ".."; }

}  // namespace

VolumeIndex::Walk::Walk(VolumeIndex& volumeIndex, Hidden hiddenEntries, Broken brokenDirectories)
    : index(volumeIndex),
      collectsHidden(hiddenEntries != Hidden::kPassOver),
      collectsDots(hiddenEntries == Hidden::kCollectDotsToo),
      passesOverBroken(brokenDirectories == Broken::kPassOver),
      visited(std::size_t{1} << 16),
      slotsLeft(volumeIndex.image.Size() / dir_entry::kSize) {}

bool VolumeIndex::Walk::Run(std::string& err) {
  if (!OpenRoot(err)) return false;
  while (!open.empty()) {
    Slot slot{};
    const Step step = FindSlot(open.back(), slot, err);
    if (step == Step::kUnreadable) return false;
    if (step == Step::kTooManySlots) return Fail(err, kClusterLoop);
    if (step == Step::kEndOfDirectory) {
      open.pop_back();
      continue;
    }
    if (!AddEntry(slot, open.back().number)) continue;
    if (index.records.back().IsDirectory() && !OpenLastRecord(err)) return false;
  }
  return true;
}

bool VolumeIndex::Walk::OpenRoot(std::string& err) {
  const std::uint64_t imageBytes = index.image.Size();
  const std::uint64_t offset =
      std::uint64_t{index.info.rootDirStartSector} * index.info.bytesPerSector;
  const std::uint64_t bytes = std::uint64_t{index.info.rootDirSectors} * index.info.bytesPerSector;
  if (offset > imageBytes || bytes > imageBytes - offset) return Fail(err, kDirectoryOutOfRange);
  open.push_back({kNoRecord, kRootStart, offset, offset + bytes});
  return true;
}

bool VolumeIndex::Walk::OpenLastRecord(std::string& err) {
  const std::uint16_t start = index.records.back().firstCluster;
  if (!MayEnter(start)) return true;
  const auto number = static_cast<std::uint32_t>(index.records.size() - 1);
  if (index.chains.Check(start, err)) {
    open.push_back(DirectoryAt(start, number));
    return true;
  }
  if (!passesOverBroken) return false;
  err.clear();
  index.broken.push_back(number);
  return true;
}

// A directory without a cluster of its own stays empty. That includes first cluster 0: taken for
// the root, it would show the root again below each such entry, without end. One that is reached
// twice is entered once.
bool VolumeIndex::Walk::MayEnter(std::uint16_t start) {
  if (!fat::LeadsToCluster(start) || visited[start]) return false;
  visited[start] = true;
  return true;
}

// All clusters of a chain that passed the check lie inside the image.
VolumeIndex::Walk::Directory VolumeIndex::Walk::DirectoryAt(std::uint16_t start,
                                                            std::size_t number) const {
  const std::uint64_t offset = index.chains.ClusterOffset(start);
  return {static_cast<std::uint32_t>(number), start, offset, offset + index.chains.ClusterBytes()};
}

bool VolumeIndex::Walk::GoToNextCluster(Directory& directory) const {
  if (directory.cluster == kRootStart) return false;
  directory.cluster = index.chains.Next(directory.cluster);
  if (directory.cluster == ChainTable::kNoNextCluster) return false;
  directory.nextSlot = index.chains.ClusterOffset(directory.cluster);
  directory.blockEnd = directory.nextSlot + index.chains.ClusterBytes();
  return true;
}

VolumeIndex::Walk::Step VolumeIndex::Walk::FindSlot(Directory& directory, Slot& slot,
                                                    std::string& err) {
  while (directory.nextSlot != directory.blockEnd || GoToNextCluster(directory)) {
    if (slotsLeft == 0) return Step::kTooManySlots;
    --slotsLeft;
    slot = {SlotAt(directory.nextSlot, err), directory.nextSlot};
    if (slot.bytes == nullptr) return Step::kUnreadable;
    directory.nextSlot += dir_entry::kSize;
    if (slot.bytes[0] == dir_entry::kNeverUsed) {
      // The root ends here. A subdirectory deliberately does not: it goes on in its next cluster.
      directory.nextSlot = directory.blockEnd;
    } else if (!IsSkippedSlot(slot.bytes)) {
      return Step::kSlot;
    }
  }
  return Step::kEndOfDirectory;
}

const std::uint8_t* VolumeIndex::Walk::SlotAt(std::uint64_t offset, std::string& err) {
  const std::uint64_t inSector = offset % kSectorBytes;
  if (window == nullptr || offset - inSector != windowOffset) {
    windowOffset = offset - inSector;
    window = index.image.Read(windowOffset, kSectorBytes, buffer, err);
    if (window == nullptr) return nullptr;
  }
  return window + inSector;
}

bool VolumeIndex::Walk::AddEntry(const Slot& slot, std::uint32_t parent) {
  const std::string name = SlotName(slot.bytes);
  if (name.empty()) {
    if (collectsHidden && !IsVolumeLabel(slot.bytes)) AddHidden(slot, parent, kNoRecord);
    return false;
  }
  if (IsDotName(name)) {
    if (collectsDots && parent == kNoRecord && IsFile(slot.bytes)) {
      AddHidden(slot, kNoRecord, kNoRecord);
    }
    return false;
  }
  if (IsVolumeLabel(slot.bytes)) {
    // In any directory, and with the dot of a file's name: both are meant.
    if (index.info.volumeLabel.empty()) index.info.volumeLabel = name;
    return false;
  }
  AddRecord(slot, name, parent);
  return true;
}

void VolumeIndex::Walk::AddRecord(const Slot& slot, const std::string& name, std::uint32_t parent) {
  EntryRecord record;
  DecodeSlot(slot.bytes, record);
  std::copy(name.begin(), name.end(), record.name.begin());
  record.nameLength = static_cast<std::uint8_t>(name.size());
  record.dirEntryOffset = slot.offset;
  record.allocatedBytes = index.chains.Length(record.firstCluster) * index.chains.ClusterBytes();
  record.parent = parent;
  record.pathLength = 1 + std::uint32_t{record.nameLength};
  if (parent != kNoRecord) {
    record.parentKey = index.records[parent].pathKey;
    record.pathLength += index.records[parent].pathLength;
  }
  record.pathKey = index.paths.Add(record.parentKey, name, record.IsDirectory(),
                                   static_cast<std::uint32_t>(index.records.size()));
  index.records.push_back(record);
}

void VolumeIndex::Walk::AddHidden(const Slot& slot, std::uint32_t parent,
                                  std::uint32_t hiddenParent) {
  HiddenEntry entry;
  DecodeSlot(slot.bytes, entry);
  entry.parent = parent;
  entry.hiddenParent = hiddenParent;
  entry.dirEntryOffset = slot.offset;
  entry.allocatedBytes = index.chains.Length(entry.firstCluster) * index.chains.ClusterBytes();
  index.hidden.push_back(entry);
}

// After the walk over the records, so that a directory that is reached both ways has a record, and
// with the visits that are left. What is found is looked into in its turn.
bool VolumeIndex::Walk::CollectBelowHidden(std::string& err) {
  bool areWhole = true;
  for (std::size_t i = 0; i < index.hidden.size(); ++i) {
    const std::uint16_t start = index.hidden[i].firstCluster;
    if (!index.hidden[i].IsDirectory() || !MayEnter(start)) continue;
    std::string ignored;
    if (!index.chains.Check(start, ignored)) {
      areWhole = false;
      continue;
    }
    const Step step = CollectIn(DirectoryAt(start, i), err);
    if (step == Step::kUnreadable) return false;
    if (step == Step::kTooManySlots) return true;
  }
  index.hiddenAreWhole = areWhole;
  return true;
}

VolumeIndex::Walk::Step VolumeIndex::Walk::CollectIn(Directory directory, std::string& err) {
  Slot slot{};
  Step step = FindSlot(directory, slot, err);
  while (step == Step::kSlot) {
    const bool isEntry = !IsVolumeLabel(slot.bytes) && !IsDotName(SlotName(slot.bytes));
    if (isEntry) AddHidden(slot, kNoRecord, directory.number);
    step = FindSlot(directory, slot, err);
  }
  return step;
}

}  // namespace quorbix::virtdisk::internal
