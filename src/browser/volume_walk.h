#ifndef QUORBIX_VIRTDISK_BROWSER_VOLUME_WALK_H_
#define QUORBIX_VIRTDISK_BROWSER_VOLUME_WALK_H_

#include <cstdint>
#include <string>
#include <vector>

#include "browser/volume_index.h"

namespace quorbix::virtdisk::internal {

// Fills an index whose chains are measured: depth first in slot order, without recursion.
class VolumeIndex::Walk {
 public:
  Walk(VolumeIndex& volumeIndex, Hidden hiddenEntries, Broken brokenDirectories);

  // Indexes the whole tree. On failure returns false, and `err` says why.
  bool Run(std::string& err);

  // Collects what lies below the hidden directories that Run met. False: the image could not be
  // read, and `err` says why.
  bool CollectBelowHidden(std::string& err);

 private:
  // Where the walk stands in one directory: at a slot of a block of slots that lie side by side,
  // which is a cluster or the whole root region.
  struct Directory {
    std::uint32_t number;    // of its record, or of its hidden entry
    std::uint16_t cluster;   // kRootStart: the root region
    std::uint64_t nextSlot;  // byte offset in the image
    std::uint64_t blockEnd;  // byte offset in the image
  };
  struct Slot {
    const std::uint8_t* bytes;  // until the next one is looked for
    std::uint64_t offset;
  };
  enum class Step { kSlot, kEndOfDirectory, kTooManySlots, kUnreadable };

  bool OpenRoot(std::string& err);
  bool OpenLastRecord(std::string& err);
  bool MayEnter(std::uint16_t start);
  Directory DirectoryAt(std::uint16_t start, std::size_t number) const;
  bool GoToNextCluster(Directory& directory) const;  // false: that was the last one

  // Goes on to the next slot that is used and belongs to no long name.
  Step FindSlot(Directory& directory, Slot& slot, std::string& err);
  const std::uint8_t* SlotAt(std::uint64_t offset, std::string& err);

  // True when it appended a record.
  bool AddEntry(const Slot& slot, std::uint32_t parent);
  void AddRecord(const Slot& slot, const std::string& name, std::uint32_t parent);
  void AddHidden(const Slot& slot, std::uint32_t parent, std::uint32_t hiddenParent);
  Step CollectIn(Directory directory, std::string& err);

  VolumeIndex& index;
  bool collectsHidden;
  bool collectsDots;  // of the root
  bool passesOverBroken;
  std::vector<Directory> open;
  std::vector<bool> visited;  // start clusters of the directories met
  // Chains that run into each other show their slots once for each directory. Without a bound on
  // all visits the index of a small image could grow quadratically.
  std::uint64_t slotsLeft;

  // The sector that was looked at last. Blocks are whole sectors, so that it lies inside the image.
  const std::uint8_t* window = nullptr;
  std::uint64_t windowOffset = 0;
  std::vector<std::uint8_t> buffer;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BROWSER_VOLUME_WALK_H_
