#ifndef QUORBIX_VIRTDISK_CHECK_TREE_CHECK_H_
#define QUORBIX_VIRTDISK_CHECK_TREE_CHECK_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "check/check_volume.h"
#include "check/cluster_claims.h"
#include "check/fat_table.h"
#include "check/finding_list.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::internal {

// Whether a slot's name has bytes that no system takes.
bool IsUnusableName(const std::uint8_t* slot);

// Looks at every directory and entry of a volume and gives the clusters to those who have them.
//
// A directory is read as far as its chain belongs to it alone, so each cluster is read once. Of the
// entries it keeps only those that own clusters: no more than there are clusters.
class TreeCheck {
 public:
  // What is given here has to outlive this.
  TreeCheck(ByteSource& imageSource, const Fat16FsInfo& volumeInfo, const FatTable& fatTable,
            FindingList& findingList, VolumeCounts& volumeCounts, const FoundClusters& clustersTold)
      : image(imageSource),
        info(volumeInfo),
        fat(fatTable),
        claims(fatTable),
        findings(findingList),
        counts(volumeCounts),
        foundClusters(clustersTold) {}

  // False: the image could not be read, and `err` says why.
  [[nodiscard]] bool Run(std::string& err);

  ClusterClaims::Lost CountLost() const { return claims.CountLost(); }
  const std::vector<bool>& Meetings() const { return meetings; }  // of CheckReport

 private:
  using RawName = std::array<std::uint8_t, dir_entry::kNameSize>;

  // An entry that owns clusters. Number 0 is the root, which needs none.
  struct Node {
    std::uint32_t parent = 0;
    std::uint16_t start = 0;
    bool isDirectory = false;
    bool isHidden = false;  // or below a hidden one
    std::uint32_t clusters = 0;
    RawName name{};
  };
  // The directory that is looked at.
  struct Place {
    std::uint32_t number = 0;  // of its node
    std::uint64_t slots = 0;   // so far
    bool hasDot = false;
    bool hasDotDot = false;
    std::vector<RawName> names;  // of its first kMostSlots entries
  };

  bool ReadDirectory(std::uint32_t number, std::string& err);
  bool ReadBlock(Place& place, std::uint64_t offset, std::uint64_t bytes, bool& ended,
                 std::string& err);
  void EndDirectory(Place& place);

  void CheckSlot(Place& place, const std::uint8_t* slot);
  void CheckLabel(const std::uint8_t* slot);
  bool TakeDotSlot(Place& place, std::uint64_t number, const std::uint8_t* slot);
  void CheckEntry(Place& place, const std::uint8_t* slot);
  void CheckChain(const Node& node, std::uint32_t size);
  void NoteMeeting(std::uint16_t firstCluster);
  void TellLength(const Node& node, std::uint64_t clusters, std::uint64_t size);
  void TellBreak(const Node& node, const ClusterClaims::Chain& chain);
  void TellDuplicates(Place& place);

  std::string PathOf(std::uint32_t number) const;
  std::string PathOf(const Node& node) const;

  ByteSource& image;
  const Fat16FsInfo& info;
  const FatTable& fat;
  ClusterClaims claims;
  FindingList& findings;
  VolumeCounts& counts;
  const FoundClusters& foundClusters;
  std::vector<Node> nodes;
  std::vector<bool> meetings;
  bool hasLabel = false;  // the root, so far: others do not count
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_CHECK_TREE_CHECK_H_
