#ifndef QUORBIX_VIRTDISK_CHECK_CHECK_VOLUME_H_
#define QUORBIX_VIRTDISK_CHECK_CHECK_VOLUME_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "browser/byte_source.h"

namespace quorbix::virtdisk::internal {

// What can be said against a volume. Where a kind has numbers, they are named behind it in the
// order of Finding::numbers.
enum class FindingKind : std::uint8_t {
  // The image and its partition table, whose entries are numbered from 1.
  kNoVolume,               // the readers find nothing to read
  kImageTooShort,          // byte where the volume ends, bytes that the image has
  kPartitionBeyondImage,   // entry, byte where it ends, bytes that the image has
  kPartitionsOverlap,      // entry, entry
  kOtherPartition,         // entry, type
  kVolumeBeyondPartition,  // sectors of the volume, sectors of the partition

  // The boot sector.
  kNoSignature,
  kFat12,  // clusters
  kFat32,
  kTakenForFat12,  // clusters; they are too few for FAT16, and nothing says that it is
  kFewClusters,    // clusters; other systems take the volume for FAT12, which says FAT16
  kManyClusters,   // clusters
  kNoSectorCount,
  kNoRoom,          // sectors in front of the clusters, sectors of the volume
  kOddClusterSize,  // sectors per cluster
  kFatTooShort,     // clusters that the FAT has words for, clusters

  // The FATs.
  kFatsDiffer,  // which copy, counted from 1, words that differ, the first cluster that they tell
                // of
  kMediaByte,   // the FAT's first word, the boot sector's media byte

  // Chains of clusters. Read from the start, a file gives the bytes in front of the break.
  kBadStart,           // first cluster
  kChainLoops,         // cluster that it comes back to
  kChainLeavesVolume,  // the word that no cluster has for its number, the last good cluster
  kChainHitsFree,      // the free cluster
  kChainHitsBad,       // the bad cluster
  kChainMeetsAnother,  // the first cluster that both have; `otherPath` came first
  kChainTooShort,      // bytes that the chain holds, bytes of the entry
  kChainTooLong,       // clusters of the chain, clusters that the entry needs
  kLostClusters,       // clusters, chains

  // Directories and their entries.
  kRootBeyondImage,
  kDirectoryWithSize,  // bytes
  kDirectoryWithoutChain,
  kDirectoryTooLong,  // slots that it has
  kNoDot,
  kNoDotDot,
  kDotElsewhere,     // cluster that it leads to, cluster of the directory
  kDotDotElsewhere,  // cluster that it leads to, cluster of the directory above (0: the root)
  kDuplicateName,    // entries of this name
  kUnusableName,
  kHiddenEntry,  // a blank base: in no listing
};
inline constexpr std::size_t kFindingKinds =
    static_cast<std::size_t>(FindingKind::kHiddenEntry) + 1;

// As programs read it, such as "chainLoops".
std::string_view KindName(FindingKind kind);

// Whether a kind is damage. The others are remarks: the library makes such volumes itself.
bool IsDamage(FindingKind kind);

struct Finding {
  FindingKind kind{};
  std::string path;  // of the entry in question; empty: the volume
  std::string otherPath;
  std::array<std::uint64_t, 3> numbers{};
  // What is wrong, for people: with a path, the end of a sentence that begins with it. May hold any
  // bytes that a name has.
  std::string text;
  bool isDamage = false;
};

struct VolumeCounts {
  std::uint64_t clusters = 0;  // in all: used, free and bad
  std::uint64_t usedClusters = 0;
  std::uint64_t freeClusters = 0;
  std::uint64_t badClusters = 0;
  std::uint64_t lostClusters = 0;  // of the used ones: those that belong to nothing
  std::uint64_t clusterBytes = 0;
  std::uint64_t files = 0;
  std::uint64_t directories = 0;    // without the root
  std::uint64_t hiddenEntries = 0;  // of both: those that no listing shows
};

struct CheckReport {
  // However damaged a volume is, no more of a kind are listed than this.
  static constexpr std::size_t kMostOfAKind = 1000;
  // Of a longer path only the end is given, behind "...".
  static constexpr std::size_t kMostPathBytes = 1024;

  std::vector<Finding> findings;
  std::array<std::uint64_t, kFindingKinds> found{};  // how many of each kind, listed or not
  VolumeCounts counts;
  // False: the volume could be looked at only in part, for a reason that is among the findings.
  bool isWhole = false;

  bool IsSound() const;  // no damage
  std::uint64_t Found(FindingKind kind) const { return found[static_cast<std::size_t>(kind)]; }
};

// Checks the FAT16 volume in `image`, the one that Fat16FsImage would read: partition table, boot
// sector, every copy of the FAT, and each chain, directory and entry; not the content of files.
//
// The image is not trusted. The work is bounded by its size, the memory by a few MiB and a report
// that is full. False: the image could not be read, and `err` says why.
[[nodiscard]] bool CheckVolume(ByteSource& image, CheckReport& report, std::string& err);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_CHECK_CHECK_VOLUME_H_
