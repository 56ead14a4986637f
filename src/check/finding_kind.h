#ifndef QUORBIX_VIRTDISK_CHECK_FINDING_KIND_H_
#define QUORBIX_VIRTDISK_CHECK_FINDING_KIND_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace quorbix::virtdisk::internal {

// What can be said against a volume. Where a kind has numbers, they are named behind it in the
// order of Finding::numbers.
enum class FindingKind : std::uint8_t {
  // The partition table, whose entries are numbered from 1.
  kPartitionBeyondImage,   // entry, byte where it ends, bytes that the image has
  kPartitionsOverlap,      // entry, entry
  kOtherPartition,         // entry, type
  kVolumeBeyondPartition,  // sectors of the volume, sectors of the partition

  // The boot sector.
  kNoVolume,         // the readers find nothing to read
  kOtherSectorSize,  // bytes per sector, which the readers do not know
  kImageTooShort,    // byte where the volume ends, bytes that the image has
  kNoSignature,
  kFat12,  // clusters
  kFat32,
  kTakenForFat12,  // clusters; they are too few for FAT16, and nothing says that it is
  kFewClusters,    // clusters; other systems take the volume for FAT12, which says FAT16
  kManyClusters,   // clusters
  kNoSectorCount,
  kNoRoom,  // sectors in front of the clusters, sectors of the volume
  kBeyondSectorNumbers,
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
  kHiddenEntry,   // a blank base: in no listing
  kLeadingBlank,  // in front of a base that is not blank
  kOddLabel,      // byte that labels do not have, or do not begin with; 1: all are blanks, or 0
};
inline constexpr std::size_t kFindingKinds = static_cast<std::size_t>(FindingKind::kOddLabel) + 1;

// The part of a disk that a kind is about.
enum class CheckedPart : std::uint8_t {
  kPartitionTable,
  kBootSector,
  kFats,
  kChains,
  kDirectories,
  kNames
};

// As programs read it, such as "chainLoops".
std::string_view KindName(FindingKind kind);

CheckedPart PartOf(FindingKind kind);

// Whether a kind is damage. The others are remarks: the library makes such volumes itself.
bool IsDamage(FindingKind kind);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_CHECK_FINDING_KIND_H_
