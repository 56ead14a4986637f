#ifndef QUORBIX_VIRTDISK_CHECK_CLUSTER_CLAIMS_H_
#define QUORBIX_VIRTDISK_CHECK_CLUSTER_CLAIMS_H_

#include <cstdint>
#include <limits>
#include <vector>

#include "check/fat_table.h"

namespace quorbix::virtdisk::internal {

// Which cluster belongs to whom: to the one whose chain took it first.
class ClusterClaims {
 public:
  using Owner = std::uint32_t;
  static constexpr Owner kNobody = std::numeric_limits<Owner>::max();

  enum class End {
    kMarked,  // as it should be
    kBadStart,
    kLoop,
    kOutside,
    kFree,
    kBad,
    kTaken,
  };
  struct Chain {
    End end = End::kMarked;
    std::uint32_t clusters = 0;  // that now belong to the owner
    std::uint32_t last = 0;      // of those
    std::uint32_t at = 0;        // where the chain would go on; what that is, `end` tells
    Owner other = kNobody;       // whom that belongs to
  };

  // `fatTable` has to outlive this.
  explicit ClusterClaims(const FatTable& fatTable) : fat(fatTable), owners(fat.End(), kNobody) {}

  // Gives the chain that begins in `start` to `owner` as far as nobody has it. An owner takes one
  // chain.
  Chain Take(std::uint16_t start, Owner owner);

  struct Lost {
    std::uint64_t clusters = 0;
    std::uint64_t chains = 0;
  };
  Lost CountLost() const;  // in use, and nobody's

 private:
  bool IsLost(std::uint32_t cluster) const;
  void MarkRest(std::uint32_t cluster, std::vector<bool>& counted) const;

  const FatTable& fat;
  std::vector<Owner> owners;  // by cluster
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_CHECK_CLUSTER_CLAIMS_H_
