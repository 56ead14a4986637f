#ifndef QUORBIX_VIRTDISK_BROWSER_VOLUME_INDEX_H_
#define QUORBIX_VIRTDISK_BROWSER_VOLUME_INDEX_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "browser/byte_source.h"
#include "browser/chain_table.h"
#include "browser/content_reader.h"
#include "browser/entry_record.h"
#include "browser/path_table.h"
#include "quorbix/virtdisk/fat16_fs_image.h"

namespace quorbix::virtdisk::internal {

// Everything there is to know about the FAT16 volume in an image, but for the content of its files:
// its description, a record for every file and directory, and where the clusters of each lie.
//
// Of the image it reads the boot sectors, the first FAT and the directories, and holds nothing of
// them but, where the image is no memory, the FAT's words. The image is not trusted: work and
// memory are bounded by its size. Paths, and what they find, are those of Fat16FsImage.
class VolumeIndex {
 public:
  static constexpr std::uint32_t kNoRecord = PathTable::kNoRecord;

  // What a parse does about slots that make no record since their base name is blank, as the
  // library's own builder gives them to files such as ".profile"; and about files of the root that
  // have the name "." or "..", which are no directory's names for itself.
  enum class Hidden { kPassOver, kCollect, kCollectDotsToo };

  // What a parse does at a directory whose chain leads out of the volume or never ends: it fails,
  // or goes on without what that directory holds.
  enum class Broken { kFail, kPassOver };

  // An index of nothing yet. `imageSource` has to outlive it.
  explicit VolumeIndex(ByteSource& imageSource) : image(imageSource) {}
  VolumeIndex(const VolumeIndex&) = delete;
  VolumeIndex& operator=(const VolumeIndex&) = delete;

  // Starts over and indexes the volume in the image. The hidden entries, if wanted, come beside the
  // records and change nothing about these.
  //
  // On failure returns false with a message of Fat16FsImage::LoadFromBytes in `err`, or of the
  // source when it could not be read; the description and the records are kept as far as they came.
  // What throws leaves the description that far, and of the index nothing but the root.
  [[nodiscard]] bool Parse(std::string& err, Hidden hiddenEntries = Hidden::kPassOver,
                           Broken brokenDirectories = Broken::kFail);

  const Fat16FsInfo& Info() const { return info; }
  const ChainTable& Chains() const { return chains; }

  // In walk order: a directory before what it holds.
  const std::vector<EntryRecord>& Records() const { return records; }

  // Those in the root and in directories with a record come in walk order; then those below each
  // hidden directory, which itself comes before them.
  const std::vector<HiddenEntry>& HiddenEntries() const { return hidden; }

  // False when some were left out: the walk failed, a hidden directory's chain is broken, or hidden
  // directories show more slots than the image has room for.
  bool HasAllHiddenEntries() const { return hiddenAreWhole; }

  // The records of those directories of which nothing is known, in walk order.
  const std::vector<std::uint32_t>& BrokenDirectories() const { return broken; }

  std::string PathOf(const EntryRecord& record) const;

  // As the operations of Fat16FsImage with these names.
  bool ListDirectory(const std::string& path, std::vector<Fat16FsEntry>& results,
                     std::string& err) const;
  bool Search(const std::string& query, std::vector<Fat16FsEntry>& results, std::string& err) const;

  // The first record in walk order whose path is `path`. Null when there is none or it is a
  // directory, with the message of Fat16FsImage::ReadFile in `err`, which may hold `path`.
  const EntryRecord* FindFile(const std::string& path, std::string& err) const;

  // Reads a file or a hidden entry by what its slot says, `limit` bytes at most. A chain that gives
  // fewer than the slot's size is no failure: the reader's Total() tells.
  ContentReader Open(std::uint16_t firstCluster, std::uint64_t limit) const {
    return {image, chains, firstCluster, limit};
  }

 private:
  class Walk;

  bool ParseOrThrow(std::string& err, Hidden hiddenEntries, Broken brokenDirectories);
  void Begin() noexcept;  // empty but for the root, and with the memory that is there
  void ReleaseSlack();
  void Release() noexcept;  // empty but for the root, and without memory

  std::size_t LongestPath() const;  // bytes

  ByteSource& image;
  Fat16FsInfo info;
  ChainTable chains;
  PathTable paths;
  std::vector<EntryRecord> records;
  std::vector<HiddenEntry> hidden;
  bool hiddenAreWhole = false;
  std::vector<std::uint32_t> broken;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BROWSER_VOLUME_INDEX_H_
