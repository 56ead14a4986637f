#ifndef QUORBIX_VIRTDISK_BROWSER_CONTENT_READER_H_
#define QUORBIX_VIRTDISK_BROWSER_CONTENT_READER_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "browser/byte_source.h"
#include "browser/chain_table.h"

namespace quorbix::virtdisk::internal {

// Reads what lies in a chain of clusters piece by piece, clusters that lie side by side in one.
class ContentReader {
 public:
  // Longest piece, in bytes; no cluster is longer.
  static constexpr std::uint64_t kMostPieceBytes = std::uint64_t{256} * 1024;

  // Reads the chain that begins in `start`, `limit` bytes at most. `image` and `chains`, which
  // belong together, have to outlive the reader.
  ContentReader(ByteSource& image, const ChainTable& chains, std::uint16_t start,
                std::uint64_t limit);

  // How many bytes there will be in all: fewer than `limit` when the chain ends early, none when it
  // is empty or broken.
  std::uint64_t Total() const { return total; }

  // Puts the next bytes into `piece`, which stays good until the next call; empty at the end.
  //
  // On failure returns false and says why in `err`: the chain loops or leaves the image, which is
  // told before the first piece, or the image cannot be read.
  [[nodiscard]] bool Next(std::span<const std::uint8_t>& piece, std::string& err);

 private:
  ByteSource& source;
  const ChainTable& table;
  std::uint16_t cluster;  // where the next piece begins, as long as there is one
  std::uint64_t total;
  std::uint64_t left;
  std::vector<std::uint8_t> buffer;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BROWSER_CONTENT_READER_H_
