#include "check/cluster_claims.h"

#include "common/fat_words.h"

namespace quorbix::virtdisk::internal {

ClusterClaims::Chain ClusterClaims::Take(std::uint16_t start, Owner owner) {
  Chain chain;
  for (std::uint16_t cluster = start;; cluster = fat.Word(cluster)) {
    if (chain.clusters > 0 && fat::IsEndOfChain(cluster)) return chain;
    chain.at = cluster;
    if (!fat.HasCluster(cluster)) {
      chain.end = chain.clusters == 0 ? End::kBadStart : End::kOutside;
      return chain;
    }
    if (owners[cluster] != kNobody) {
      chain.end = owners[cluster] == owner ? End::kLoop : End::kTaken;
      chain.other = owners[cluster];
      return chain;
    }
    const std::uint16_t word = fat.Word(cluster);
    if (fat::IsFree(word) || fat::IsBad(word)) {
      chain.end = fat::IsFree(word) ? End::kFree : End::kBad;
      return chain;
    }
    owners[cluster] = owner;
    chain.last = cluster;
    ++chain.clusters;
  }
}

bool ClusterClaims::IsLost(std::uint32_t cluster) const {
  const std::uint16_t word = fat.Word(cluster);
  return owners[cluster] == kNobody && !fat::IsFree(word) && !fat::IsBad(word);
}

void ClusterClaims::MarkRest(std::uint32_t cluster, std::vector<bool>& counted) const {
  while (fat.HasCluster(cluster) && IsLost(cluster) && !counted[cluster]) {
    counted[cluster] = true;
    cluster = fat.Word(cluster);
  }
}

// A chain has a cluster that no lost one leads to, or else it is a ring.
ClusterClaims::Lost ClusterClaims::CountLost() const {
  std::vector<bool> isLedTo(owners.size());
  Lost lost;
  for (std::uint32_t cluster = fat::kFirstCluster; cluster < fat.End(); ++cluster) {
    if (!IsLost(cluster)) continue;
    ++lost.clusters;
    if (fat.HasCluster(fat.Word(cluster))) isLedTo[fat.Word(cluster)] = true;
  }
  std::vector<bool> counted(owners.size());
  for (const bool wantsRings : {false, true}) {
    for (std::uint32_t cluster = fat::kFirstCluster; cluster < fat.End(); ++cluster) {
      if (!IsLost(cluster) || counted[cluster] || (isLedTo[cluster] && !wantsRings)) continue;
      ++lost.chains;
      MarkRest(cluster, counted);
    }
  }
  return lost;
}

}  // namespace quorbix::virtdisk::internal
