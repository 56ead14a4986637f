#include "browser/content_reader.h"

#include <algorithm>

namespace quorbix::virtdisk::internal {

ContentReader::ContentReader(ByteSource& image, const ChainTable& chains, std::uint16_t start,
                             std::uint64_t limit)
    : source(image),
      table(chains),
      cluster(start),
      total(std::min(limit, chains.Length(start) * chains.ClusterBytes())),
      left(total) {}

bool ContentReader::Next(std::span<const std::uint8_t>& piece, std::string& err) {
  piece = {};
  if (!table.Check(cluster, err)) return false;
  if (left == 0) return true;
  const std::uint64_t offset = table.ClusterOffset(cluster);
  std::uint64_t bytes = table.ClusterBytes();
  std::uint16_t last = cluster;
  std::uint16_t next = table.Next(last);
  while (bytes + table.ClusterBytes() <= kMostPieceBytes && bytes < left && next == last + 1) {
    bytes += table.ClusterBytes();
    last = next;
    next = table.Next(last);
  }
  bytes = std::min(bytes, left);
  const std::uint8_t* data = source.Read(offset, static_cast<std::size_t>(bytes), buffer, err);
  if (data == nullptr) return false;
  piece = {data, static_cast<std::size_t>(bytes)};
  cluster = next;
  left -= bytes;
  return true;
}

}  // namespace quorbix::virtdisk::internal
