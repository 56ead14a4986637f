#ifndef QUORBIX_VIRTDISK_CHECK_FAT_TABLE_H_
#define QUORBIX_VIRTDISK_CHECK_FAT_TABLE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "browser/byte_source.h"
#include "check/volume_claim.h"
#include "common/byte_order.h"
#include "fat16/volume_layout.h"
#include "quorbix/virtdisk/fat16_fs_image.h"

namespace quorbix::virtdisk::internal {

// The first FAT of a volume, as far as it tells of clusters of the volume that lie in the image.
class FatTable {
 public:
  explicit FatTable(const Fat16FsInfo& volumeInfo) : info(volumeInfo) {}

  // Reads the words of clusters 2 to `clusters` + 1, or as many as there are, and those of 0 and 1.
  // False: the image could not be read, and `err` says why.
  [[nodiscard]] bool Load(ByteSource& image, std::uint64_t clusters, std::string& err);

  bool HasReservedWords() const { return words.size() / fat::kWordBytes >= fat::kFirstCluster; }
  bool HasCluster(std::uint32_t cluster) const {
    return cluster >= fat::kFirstCluster && cluster < end;
  }
  std::uint32_t End() const { return end; }  // one above the last cluster, 2 at least
  std::uint16_t Word(std::uint32_t cluster) const {
    return LoadU16(words.data() + std::size_t{cluster} * fat::kWordBytes);
  }

  std::uint64_t ClusterBytes() const {
    return std::uint64_t{info.sectorsPerCluster} * info.bytesPerSector;
  }
  // In bytes from the start of the image.
  std::uint64_t ClusterOffset(std::uint32_t cluster) const;

  struct Difference {
    std::uint64_t words = 0;
    std::uint32_t first = 0;  // cluster
  };
  // Compares with the copy of this number, 0 being this one. What the image lacks does not differ.
  [[nodiscard]] bool Compare(ByteSource& image, unsigned copy, Difference& difference,
                             std::string& err) const;

 private:
  const Fat16FsInfo& info;
  std::vector<std::uint8_t> words;
  std::uint32_t end = fat::kFirstCluster;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_CHECK_FAT_TABLE_H_
