#include "sync/cluster_chain.h"

#include <algorithm>
#include <limits>

#include "common/byte_order.h"
#include "common/fat_words.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::internal {

std::optional<std::span<const std::uint8_t>> ClusterBytes(const FatContext& context,
                                                          std::uint16_t cluster) {
  const std::uint64_t size =
      std::uint64_t{context.sectorsPerCluster} * std::uint64_t{context.bytesPerSector};
  const std::uint64_t sector =
      std::uint64_t{cluster - fat::kFirstCluster} * context.sectorsPerCluster +
      context.dataStartSector;
  const std::uint64_t offset = sector * context.bytesPerSector;
  if (offset > context.image.size() || size > context.image.size() - offset) return std::nullopt;
  return context.image.Span().subspan(offset, size);
}

std::uint16_t FatWord(const FatContext& context, std::uint16_t cluster) {
  const std::uint64_t offset = std::uint64_t{context.fatStartSector} * context.bytesPerSector +
                               std::uint64_t{cluster} * fat::kWordBytes;
  if (offset + 1 >= context.image.size()) return fat::kEndOfChain;
  return LoadU16(&context.image[offset]);
}

std::span<const std::uint8_t> ChainPieces::Next(std::uint64_t wantedBytes) {
  std::span<const std::uint8_t> piece;
  while (piece.size() < wantedBytes && fat::LeadsToCluster(cluster)) {
    const auto bytes = ClusterBytes(context, cluster);
    broken = !bytes || visited.test(cluster);
    if (broken) break;
    if (piece.empty()) piece = bytes->first(0);
    if (bytes->data() != piece.data() + piece.size()) break;
    piece = {piece.data(), piece.size() + bytes->size()};
    visited.set(cluster);
    cluster = FatWord(context, cluster);
  }
  return piece;
}

bool ReadClusterChain(const FatContext& context, std::uint16_t start,
                      std::vector<std::uint8_t>& bytes, std::uint32_t limit) {
  bytes.clear();
  ChainPieces chain(context, start);
  const std::uint64_t most = limit == 0 ? std::numeric_limits<std::uint64_t>::max() : limit;
  while (bytes.size() < most) {
    const auto piece = chain.Next(most - bytes.size());
    if (piece.empty()) return !chain.IsBroken();
    const auto part = piece.first(std::min<std::uint64_t>(piece.size(), most - bytes.size()));
    bytes.insert(bytes.end(), part.begin(), part.end());
  }
  return true;
}

bool ChainChecker::Ends(std::uint16_t start) {
  std::vector<std::uint16_t> newlySeen;
  std::uint16_t cluster = start;
  while (fat::LeadsToCluster(cluster) && !seen.test(cluster)) {
    seen.set(cluster);
    if (!ClusterBytes(context, cluster)) return false;
    newlySeen.push_back(cluster);
    cluster = FatWord(context, cluster);
  }
  // A cluster that was seen and is not known to be good is on a bad chain, or is one of
  // `newlySeen`: a loop.
  if (fat::LeadsToCluster(cluster) && !good.test(cluster)) return false;
  for (const std::uint16_t member : newlySeen) good.set(member);
  return true;
}

}  // namespace quorbix::virtdisk::internal
