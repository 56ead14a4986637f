#include "browser/entry_record.h"

#include <utility>

#include "browser/path_text.h"
#include "common/byte_order.h"

namespace quorbix::virtdisk::internal {
namespace {

template <class Entry>
void DecodeSharedFields(const std::uint8_t* slot, Entry& entry) {
  entry.attributes = slot[dir_entry::kAttributes];
  entry.writeTime = LoadU16(slot + dir_entry::kWriteTime);
  entry.writeDate = LoadU16(slot + dir_entry::kWriteDate);
  entry.firstCluster = LoadU16(slot + dir_entry::kFirstCluster);
  entry.size = LoadU32(slot + dir_entry::kFileSize);
}

}  // namespace

Fat16FsEntry EntryRecord::Entry(std::string path) const {
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

bool IsSkippedSlot(const std::uint8_t* slot) {
  return slot[0] == dir_entry::kDeleted ||
         (slot[dir_entry::kAttributes] & dir_entry::kAttrLongName) == dir_entry::kAttrLongName;
}

bool IsVolumeLabel(const std::uint8_t* slot) {
  return (slot[dir_entry::kAttributes] &
          (dir_entry::kAttrVolumeLabel | dir_entry::kAttrDirectory)) == dir_entry::kAttrVolumeLabel;
}

std::string SlotName(const std::uint8_t* slot) {
  std::string name = TrimPaddedAscii(slot + dir_entry::kBaseName, dir_entry::kBaseNameSize);
  const std::string extension =
      TrimPaddedAscii(slot + dir_entry::kExtension, dir_entry::kExtensionSize);
  if (!name.empty() && !extension.empty()) name.append(".").append(extension);
  return name;
}

void DecodeSlot(const std::uint8_t* slot, EntryRecord& record) { DecodeSharedFields(slot, record); }

void DecodeSlot(const std::uint8_t* slot, HiddenEntry& entry) {
  DecodeSharedFields(slot, entry);
  std::copy_n(slot + dir_entry::kBaseName, dir_entry::kNameSize, entry.rawName.begin());
}

}  // namespace quorbix::virtdisk::internal
