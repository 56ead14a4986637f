#ifndef QUORBIX_VIRTDISK_BROWSER_FAT16_FS_IMAGE_IMPL_H_
#define QUORBIX_VIRTDISK_BROWSER_FAT16_FS_IMAGE_IMPL_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "browser/path_keys.h"
#include "browser/path_table.h"
#include "fat16/volume_layout.h"
#include "quorbix/virtdisk/fat16_fs_image.h"

namespace quorbix::virtdisk {

struct Fat16FsImage::Impl {
  static constexpr std::uint32_t kNoRecord = internal::PathTable::kNoRecord;

  // One file or directory. Its path is not stored but put together from the names up to the root:
  // in a volume of deeply nested directories the paths' lengths add up quadratically.
  struct EntryRecord {
    std::array<char, internal::PathKeys::kMaxComponent> name{};
    std::uint8_t nameLength = 0;
    std::uint8_t attributes = 0;
    std::uint16_t firstCluster = 0;
    std::uint16_t writeTime = 0;
    std::uint16_t writeDate = 0;
    std::uint32_t size = 0;
    std::uint32_t parent = kNoRecord;  // the directory's place in the index; none: the root
    std::uint32_t pathLength = 0;      // bytes
    internal::PathKeys::Key pathKey = 0;
    internal::PathKeys::Key parentKey = 0;
    std::uint64_t dirEntryOffset = 0;  // of the 32-byte slot, from the start of the image
    std::uint64_t allocatedBytes = 0;  // of the cluster chain; 0 when it is empty or broken

    Fat16FsEntry Entry(std::string path) const;
    std::string_view Name() const { return {name.data(), nameLength}; }
    bool IsDirectory() const { return (attributes & internal::dir_entry::kAttrDirectory) != 0; }
  };

  bool Parse(std::string& err);

  // Indexes the whole tree, depth first in slot order, without recursion.
  bool WalkDirectory(std::string& err);
  // Decodes one slot of the directory record `parent`; true when it appended a record.
  bool AddEntry(const std::uint8_t* slot, std::uint64_t slotOffset, std::uint32_t parent);

  // A start that leads to no cluster is an empty chain.
  bool CollectClusterChain(std::uint16_t start, std::vector<std::uint16_t>& chain,
                           std::string& err) const;
  // At most `limit` bytes; 0 means the whole chain.
  bool ReadClusterChain(std::uint16_t start, std::vector<std::uint8_t>& content,
                        std::uint32_t limit, std::string& err) const;

  void WriteClusterChain(const std::vector<std::uint16_t>& chain,
                         const std::vector<std::uint8_t>& content);  // and zeros after it

  // The first record in index order whose path has this key.
  const EntryRecord* FindRecord(const std::string& path) const;
  std::string PathOf(const EntryRecord& record) const;
  std::size_t LongestPath() const;  // bytes

  std::uint64_t ClusterBytes() const;
  std::uint64_t ClusterOffset(std::uint16_t cluster) const;  // from the start of the image

  std::vector<std::uint8_t> image;
  Fat16FsInfo info;
  std::vector<EntryRecord> index;  // in walk order: a directory before what it holds

  internal::PathTable paths;

  // What following the FAT from each cluster comes to: a number of clusters, or a mark for a broken
  // chain. Its size is the first cluster whose data ends beyond the image, 0xFFF8 at most.
  std::vector<std::uint16_t> chainLengths;

 private:
  bool ParseOrThrow(std::string& err);
  void BeginIndex() noexcept;  // empty but for the root, and with the memory that is there
  void ReleaseSlack();
  void ReleaseIndex() noexcept;  // empty but for the root, and without memory
  bool LocateVolume(std::string& err);
  void ReadBootSector();
  bool HasUsableGeometry() const;
  void DeriveGeometry();

  struct OpenDirectory;
  bool OpenRoot(std::vector<OpenDirectory>& open, std::string& err) const;
  bool OpenLastRecord(std::vector<OpenDirectory>& open, std::vector<bool>& visited,
                      std::string& err) const;
  bool GoToNextCluster(OpenDirectory& directory) const;  // false: that was the last one

  void MeasureChains();
  void MeasureChain(std::uint16_t start);
  bool CheckChain(std::uint16_t start, std::string& err) const;
  std::uint64_t MeasuredLength(std::uint16_t start) const;  // clusters; 0 when empty or broken
  std::uint16_t NextCluster(std::uint16_t cluster) const;   // 0 at the end of the chain
  void RegisterPath(EntryRecord& record);
};

}  // namespace quorbix::virtdisk

#endif  // QUORBIX_VIRTDISK_BROWSER_FAT16_FS_IMAGE_IMPL_H_
