#ifndef QUORBIX_VIRTDISK_TOOL_VOLUME_VIEW_H_
#define QUORBIX_VIRTDISK_TOOL_VOLUME_VIEW_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <quorbix/virtdisk/fat16_fs_image.h>

#include "browser/byte_source.h"

namespace quorbix::virtdisk::tool {

struct ClusterCounts {
  std::uint32_t used = 0;
  std::uint32_t free = 0;
  std::uint32_t bad = 0;  // marked so in the FAT; neither used nor free
};

// The clusters of a volume as its first FAT tells of them. Any image will do: no field of its boot
// sector is trusted, and what lies outside the image or the FAT does not exist here.
class VolumeView {
 public:
  // `bytes` are the image, or its beginning as far as the end of the first FAT when `imageBytes`
  // tells how long the image is.
  VolumeView(const Fat16FsInfo& info, std::span<const std::uint8_t> bytes);
  VolumeView(const Fat16FsInfo& info, std::span<const std::uint8_t> bytes,
             std::uint64_t imageBytes);

  // Takes the boot sector and the FAT from `source`. Nothing when they could not be read; `err`
  // says why.
  static std::optional<VolumeView> Read(const Fat16FsInfo& info, internal::ByteSource& source,
                                        std::string& err);

  // Numbered from 2: as many as the boot sector tells of, the image holds and the FAT
  // has words for.
  std::uint32_t ClusterCount() const { return clusterCount; }
  std::uint32_t ClusterBytes() const { return clusterBytes; }
  bool HasCluster(std::uint32_t cluster) const;
  std::uint16_t FatWord(std::uint32_t cluster) const;  // 0 for a cluster that does not exist
  ClusterCounts CountClusters() const;

  // In sectors: what lies in front of the root directory (partition table, boot sector, FATs), and
  // the root directory.
  std::uint64_t SystemSectors() const { return rootStart; }
  std::uint64_t RootSectors() const { return dataStart - rootStart; }

  // The serial number of the volume, where its boot sector says that it has one.
  std::optional<std::uint32_t> VolumeId() const { return volumeId; }

 private:
  VolumeView() = default;
  bool Load(const Fat16FsInfo& info, internal::ByteSource& source, std::uint64_t imageBytes,
            std::string& err);
  bool LoadVolumeId(std::uint64_t bootSector, internal::ByteSource& source, std::string& err);

  std::vector<std::uint8_t> words;  // the FAT's, as far as there are clusters
  std::optional<std::uint32_t> volumeId;
  std::uint64_t rootStart = 0;  // sector
  std::uint64_t dataStart = 0;  // sector
  std::uint32_t clusterBytes = 0;
  std::uint32_t clusterCount = 0;
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_VOLUME_VIEW_H_
