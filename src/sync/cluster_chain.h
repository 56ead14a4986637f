#ifndef QUORBIX_VIRTDISK_SYNC_CLUSTER_CHAIN_H_
#define QUORBIX_VIRTDISK_SYNC_CLUSTER_CHAIN_H_

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "sync/fat_context.h"

namespace quorbix::virtdisk::internal {

// One bit for every number that a FAT word can hold.
using ClusterSet = std::bitset<65536>;

// The bytes of `cluster`; nothing when they do not lie wholly inside the image.
std::optional<std::span<const std::uint8_t>> ClusterBytes(const FatContext& context,
                                                          std::uint16_t cluster);

// The word of `cluster` in the first FAT; one beyond the image ends its chain.
std::uint16_t FatWord(const FatContext& context, std::uint16_t cluster);

// The bytes of a chain in its order, in pieces that lie in the image as they stand: clusters that
// follow each other there come as one.
class ChainPieces {
 public:
  // A `start` that leads to no cluster is an empty chain.
  ChainPieces(const FatContext& fatContext, std::uint16_t start)
      : context(fatContext), cluster(start) {}

  // The next piece. It goes no cluster further than `wantedBytes`, which is not 0, takes it, and is
  // empty where the chain has ended or is broken.
  std::span<const std::uint8_t> Next(std::uint64_t wantedBytes);

  // Whether the chain loops, or leaves the image, right after what was given so far.
  bool IsBroken() const { return broken; }

 private:
  const FatContext& context;
  std::uint16_t cluster;  // not given yet
  ClusterSet visited;
  bool broken = false;
};

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
