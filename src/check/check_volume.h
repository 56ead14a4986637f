#ifndef QUORBIX_VIRTDISK_CHECK_CHECK_VOLUME_H_
#define QUORBIX_VIRTDISK_CHECK_CHECK_VOLUME_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "browser/byte_source.h"
#include "check/finding_kind.h"

namespace quorbix::virtdisk::internal {

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
  // Whether the volume lies in a partition; where it does not, nothing was asked of a table.
  bool isPartitioned = false;
  // False: the volume could be looked at only in part, for a reason that is among the findings.
  bool isWhole = false;
  // By first cluster: the chains that meet another one, and those that they meet. However many
  // there are, all are here; empty without any.
  std::vector<bool> meetings;

  bool IsSound() const;  // no damage
  std::uint64_t Found(FindingKind kind) const { return found[static_cast<std::size_t>(kind)]; }
  bool Meets(std::uint16_t firstCluster) const {
    return firstCluster < meetings.size() && meetings[firstCluster];
  }
};

// Told that some more of the clusters in use were found to belong to an entry, and how many are in
// use in all; of those that are lost it is never told.
using FoundClusters = std::function<void(std::uint64_t more, std::uint64_t inUse)>;

// Checks the FAT16 volume in `image`, the one that Fat16FsImage would read: partition table, boot
// sector, every copy of the FAT, and each chain, directory and entry; not the content of files.
//
// The image is not trusted. The work is bounded by its size, the memory by a few MiB and a report
// that is full. False: the image could not be read, and `err` says why.
[[nodiscard]] bool CheckVolume(ByteSource& image, CheckReport& report, std::string& err,
                               const FoundClusters& foundClusters = {});

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_CHECK_CHECK_VOLUME_H_
