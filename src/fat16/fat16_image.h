#ifndef QUORBIX_VIRTDISK_FAT16_FAT16_IMAGE_H_
#define QUORBIX_VIRTDISK_FAT16_FAT16_IMAGE_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "fat16/geometry.h"
#include "fat16/zeroed_bytes.h"

namespace quorbix::virtdisk::internal {

// A FAT16 disk image under construction, held in memory and written to a host file in one piece.
//
// Used once: Init, SeedClusterAllocator, WriteBootSector, SetVolumeLabel, WriteMbr, any number of
// AddDirectory and AddFile, SaveToFile. After a failed Init nothing else may be called. Operations
// that fail put a message into `err` and leave it alone when they succeed. Clusters taken by a
// failed AddFile or AddDirectory are not given back: the image is to be abandoned then.
//
// A directory is named by its first cluster, the root by kRootDirectory. Short names are the eleven
// characters that ToFat83Name makes; shorter ones are padded with blanks.
class Fat16Image {
 public:
  static constexpr std::uint32_t kRootDirectory = 0;
  static constexpr std::uint16_t kEmptyFileAdded = 0xFFFF;

  // Lays out an empty volume in an image of `sizeBytes` bytes, rounded down to whole sectors. Fails
  // with the messages of ComputeGeometry, before anything is allocated.
  [[nodiscard]] bool Init(std::uint64_t sizeBytes, std::string& err);

  // The label is cut to 11 bytes, its ASCII letters are upper-cased, and it is padded with blanks.
  void WriteBootSector(std::string_view label, std::uint32_t volumeId);
  // Puts the label entry into the root; does nothing when the root is full.
  void SetVolumeLabel(std::string_view label);
  void WriteMbr();

  // Makes the search for free clusters begin at (seed mod cluster count) + 2.
  void SeedClusterAllocator(std::uint32_t seed);

  // Takes the next free cluster, as the end of a chain of its own. Returns 0 when none is left.
  [[nodiscard]] std::uint16_t AllocCluster();

  // Returns the offset, from the start of the image, of the first free slot of a directory; a
  // subdirectory that is full grows by a cluster. Returns -1 on failure, with
  //   "Root directory is full"
  //   "Disk full, cannot extend directory"
  [[nodiscard]] std::int64_t FindFreeDirSlot(std::uint32_t dirCluster, std::string& err);

  // Writes the data, then the entry. Returns the first cluster, or kEmptyFileAdded for a file of
  // size 0. Returns 0 on failure, with
  //   "Disk full"
  //   "Disk full while writing file"
  // or a message of FindFreeDirSlot.
  [[nodiscard]] std::uint16_t AddFile(std::uint32_t parentCluster, std::string_view shortName,
                                      const std::uint8_t* data, std::uint32_t size,
                                      std::string& err);

  // A file's content can also be put where it belongs without a copy: TakeChain, then the bytes of
  // every run, then AddTakenFile. A chain that no file comes to use after all is given back, and
  // leaves no trace.
  struct ClusterRun {
    std::uint16_t first = 0;
    std::uint32_t count = 0;
  };
  struct Chain {
    std::vector<ClusterRun> runs;  // in the file's order
    std::uint16_t hintBefore = 0;
  };
  // Takes the clusters that AddFile would take for `size` bytes, which are not 0. Nothing, with
  // nothing taken, when there are not as many.
  [[nodiscard]] std::optional<Chain> TakeChain(std::uint32_t size);
  std::span<std::uint8_t> RunBytes(const ClusterRun& run);  // zeros, until written
  // The chain must be the one taken last.
  void GiveBack(const Chain& chain);
  // As AddFile, once the data is in place.
  [[nodiscard]] std::uint16_t AddTakenFile(std::uint32_t parentCluster, std::string_view shortName,
                                           const Chain& chain, std::uint32_t size,
                                           std::string& err);

  // Returns the new directory's first cluster. Returns 0 on failure, with "Disk full" or a message
  // of FindFreeDirSlot.
  [[nodiscard]] std::uint16_t AddDirectory(std::uint32_t parentCluster, std::string_view shortName,
                                           std::string& err);

  // Truncates or creates `outputPath` and writes the image. True only when the system has accepted
  // every byte; a failed write can leave a truncated file. Fails with
  //   "Cannot open output image: " + path
  //   "Write failed for: " + path
  [[nodiscard]] bool SaveToFile(const std::filesystem::path& outputPath, std::string& err) const;

  // Writes the image to an open file, from where that stands. `goesOn` is told the size of every
  // piece that has been written. False when the system did not take every byte, with the cause in
  // errno, or when `goesOn` said no.
  [[nodiscard]] bool WriteTo(int file, const std::function<bool(std::size_t)>& goesOn) const;

  std::span<const std::uint8_t> Bytes() const { return bytes.Span(); }
  // For what an image carries beside its files: boot code, the dates of entries.
  std::span<std::uint8_t> BytesToEdit() { return {bytes.data(), bytes.size()}; }
  // Worth its time before all of Bytes() is handed to the system.
  void PrepareToRead() const { bytes.PrepareToRead(); }
  const Geometry& Layout() const { return geometry; }

  // What all clusters together hold, those in use included.
  std::uint64_t DataBytes() const { return geometry.clusterCount * ClusterBytes(); }

 private:
  // Where the search for a free slot goes on: everything before it is in use, for good, since
  // nothing is ever deleted from an image under construction.
  struct SlotCursor {
    std::uint32_t cluster = 0;
    std::uint32_t slot = 0;
  };

  std::uint8_t* At(std::uint64_t offset) { return bytes.data() + offset; }
  std::uint64_t ClusterBytes() const;
  std::uint64_t ClusterOffset(std::uint32_t cluster) const;
  std::uint16_t FatWord(std::uint32_t cluster) const;
  void SetFatWord(std::uint32_t cluster, std::uint16_t word);
  std::uint16_t FirstFreeCluster(std::uint32_t from, std::uint32_t to) const;
  std::uint16_t LinkNewCluster(std::uint32_t lastOfChain);
  bool SkipUsedSlots(std::uint64_t firstSlotOffset, std::uint64_t slotCount,
                     std::uint32_t& slot) const;
  std::int64_t FindRootSlot(std::string& err);
  std::int64_t FindSubdirectorySlot(std::uint32_t dirCluster, std::string& err);
  std::uint16_t WriteFileData(const std::uint8_t* data, std::uint32_t size, std::string& err);
  void PreferHugePages(const ClusterRun& run);
  std::uint16_t WriteFileEntry(std::uint32_t parentCluster, std::string_view shortName,
                               std::uint16_t firstCluster, std::uint32_t size, std::string& err);

  // A cluster that was not taken yet is all zeros, so that none needs filling: none is used twice,
  // and what is given back is zeroed.
  ZeroedBytes bytes;
  Geometry geometry;
  std::uint16_t nextClusterHint = 2;
  std::uint32_t takenClusters = 0;
  std::unordered_map<std::uint32_t, SlotCursor> slotCursors;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_FAT16_FAT16_IMAGE_H_
