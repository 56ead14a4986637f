#ifndef QUORBIX_VIRTDISK_SYNC_CLUSTER_CHAIN_H_
#define QUORBIX_VIRTDISK_SYNC_CLUSTER_CHAIN_H_

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "common/fat_words.h"
#include "sync/fat_context.h"

namespace quorbix::virtdisk::internal {

// One bit for every number that a FAT word can hold.
using ClusterSet = std::bitset<65536>;

// The bytes of `cluster`; nothing when they do not lie wholly inside the image.
std::optional<std::span<const std::uint8_t>> ClusterBytes(const FatContext& context,
                                                          std::uint16_t cluster);

// The word of `cluster` in the first FAT; one beyond the image ends its chain.
std::uint16_t FatWord(const FatContext& context, std::uint16_t cluster);

// Calls `visit` with the bytes of each cluster of a chain until the chain ends or `visit` returns
// false. Returns false when the chain loops or leaves the image before that.
template <class Visit>
bool FollowChain(const FatContext& context, std::uint16_t start, Visit&& visit) {
  ClusterSet visited;
  for (std::uint16_t cluster = start; fat::LeadsToCluster(cluster);
       cluster = FatWord(context, cluster)) {
    if (visited.test(cluster)) return false;
    visited.set(cluster);
    const auto bytes = ClusterBytes(context, cluster);
    if (!bytes) return false;
    if (!visit(*bytes)) return true;
  }
  return true;
}

// Reads the chain that begins in cluster `start`, up to `limit` bytes; 0 is no limit. A `start`
// that leads to no cluster is an empty chain, and a chain that ends before `limit` is no failure.
// False: the chain loops, or leaves the image, before `limit` is reached.
[[nodiscard]] bool ReadClusterChain(const FatContext& context, std::uint16_t start,
                                    std::vector<std::uint8_t>& bytes, std::uint32_t limit);

// Tells whether chains end, and remembers what it has seen, so that all chains of a volume together
// cost one look at each FAT word.
class ChainChecker {
 public:
  explicit ChainChecker(const FatContext& fatContext) : context(fatContext) {}

  bool Ends(std::uint16_t start);

 private:
  const FatContext& context;
  ClusterSet seen;
  ClusterSet good;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_SYNC_CLUSTER_CHAIN_H_
