#ifndef QUORBIX_VIRTDISK_BROWSER_ENTRY_RECORD_H_
#define QUORBIX_VIRTDISK_BROWSER_ENTRY_RECORD_H_

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "browser/path_keys.h"
#include "browser/path_table.h"
#include "fat16/volume_layout.h"
#include "quorbix/virtdisk/fat16_fs_image.h"

namespace quorbix::virtdisk::internal {

// What the index keeps of one file or directory.
//
// Its path is not stored but put together from the names up to the root: in a volume of deeply
// nested directories the paths' lengths add up quadratically.
struct EntryRecord {
  std::array<char, PathKeys::kMaxComponent> name{};
  std::uint8_t nameLength = 0;
  std::uint8_t attributes = 0;
  std::uint16_t firstCluster = 0;
  std::uint16_t writeTime = 0;
  std::uint16_t writeDate = 0;
  std::uint32_t size = 0;  // bytes, as stored
  std::uint32_t parent =
      PathTable::kNoRecord;      // the directory's place in the index; none: the root
  std::uint32_t pathLength = 0;  // bytes
  PathTable::Key pathKey = PathKeys::kRoot;
  PathTable::Key parentKey = PathKeys::kRoot;
  std::uint64_t dirEntryOffset = 0;  // of the 32-byte slot, from the start of the image
  std::uint64_t allocatedBytes = 0;  // of the cluster chain; 0 when it is empty or broken

  Fat16FsEntry Entry(std::string path) const;
  std::string_view Name() const { return {name.data(), nameLength}; }
  bool IsDirectory() const { return (attributes & dir_entry::kAttrDirectory) != 0; }

  // Bytes that a rewrite may give the file: no more than its chain holds and its size field can
  // say.
  std::uint64_t MostContent() const { return std::min<std::uint64_t>(allocatedBytes, 0xFFFFFFFF); }
};

// A slot without a base name, which makes no record, or any slot below a directory that has none.
struct HiddenEntry {
  std::array<char, dir_entry::kNameSize> rawName{};  // as stored, blanks and all
  std::uint8_t attributes = 0;
  std::uint16_t firstCluster = 0;
  std::uint16_t writeTime = 0;
  std::uint16_t writeDate = 0;
  std::uint32_t size = 0;  // bytes, as stored
  // Where it lies: in the directory of this record, or in this hidden one, or, with neither, in the
  // root.
  std::uint32_t parent = PathTable::kNoRecord;
  std::uint32_t hiddenParent = PathTable::kNoRecord;
  std::uint64_t dirEntryOffset = 0;  // of the 32-byte slot, from the start of the image
  std::uint64_t allocatedBytes = 0;  // of the cluster chain; 0 when it is empty or broken

  bool IsDirectory() const { return (attributes & dir_entry::kAttrDirectory) != 0; }
};

// What a 32-byte directory slot says.
bool IsSkippedSlot(const std::uint8_t* slot);  // deleted, or part of a long name
bool IsVolumeLabel(const std::uint8_t* slot);
std::string SlotName(const std::uint8_t* slot);  // empty for a slot without a base name

// Take over the fields of `slot`; the others are left as they are.
void DecodeSlot(const std::uint8_t* slot, EntryRecord& record);  // but for the name
void DecodeSlot(const std::uint8_t* slot, HiddenEntry& entry);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BROWSER_ENTRY_RECORD_H_
