#ifndef QUORBIX_VIRTDISK_BROWSER_CHAIN_TABLE_H_
#define QUORBIX_VIRTDISK_BROWSER_CHAIN_TABLE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "browser/byte_source.h"
#include "quorbix/virtdisk/fat16_fs_image.h"

namespace quorbix::virtdisk::internal {

inline constexpr std::string_view kClusterLoop = "cluster loop detected";

// Where the clusters of a volume lie and how its first FAT chains them, every chain followed once
// beforehand.
//
// A chain is given by the cluster it starts in. A start that leads to no cluster is an empty chain.
class ChainTable {
 public:
  static constexpr std::uint16_t kNoNextCluster = 0;

  ChainTable() = default;
  ChainTable(ChainTable&&) noexcept = default;
  ChainTable& operator=(ChainTable&&) noexcept = default;

  // Forgets every chain and keeps the memory.
  void Clear() noexcept;

  // Measures the chains of the volume that `info` describes. Of the FAT it takes the words of the
  // clusters whose data lies inside the image, 131,056 bytes at most. `image` has to outlive this.
  //
  // False: the FAT could not be read, and `err` says why; no chain is known then.
  [[nodiscard]] bool Measure(ByteSource& image, const Fat16FsInfo& info, std::string& err);

  // Whether the chain ends; when not, `err` says whether it loops or leaves the image.
  bool Check(std::uint16_t start, std::string& err) const;

  // In clusters; 0 when the chain is empty or broken.
  std::uint64_t Length(std::uint16_t start) const;

  // Fills `chain` with the clusters of a chain in order. On failure as Check, and `chain` is empty.
  bool Collect(std::uint16_t start, std::vector<std::uint16_t>& chain, std::string& err) const;

  // The cluster after `cluster`, which lies inside the image, or kNoNextCluster.
  std::uint16_t Next(std::uint16_t cluster) const;

  std::uint64_t ClusterBytes() const { return clusterBytes; }
  // In bytes from the start of the image.
  std::uint64_t ClusterOffset(std::uint16_t cluster) const;

  void ReleaseSlack();

 private:
  bool TakeWords(ByteSource& image, std::uint64_t fatOffset, std::string& err);
  void MeasureChain(std::uint16_t start);

  std::uint64_t dataOffset = 0;  // of cluster 2, in bytes from the start of the image
  std::uint64_t clusterBytes = 0;

  const std::uint8_t* words = nullptr;  // of the FAT: the image's own bytes, or `buffer`
  std::size_t wordsBytes = 0;
  std::vector<std::uint8_t> buffer;

  // What following the FAT from each cluster comes to: a number of clusters, or a mark for a broken
  // chain. Its size is the first cluster whose data ends beyond the image, 0xFFF8 at most.
  std::vector<std::uint16_t> lengths;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BROWSER_CHAIN_TABLE_H_
