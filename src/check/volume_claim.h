#ifndef QUORBIX_VIRTDISK_CHECK_VOLUME_CLAIM_H_
#define QUORBIX_VIRTDISK_CHECK_VOLUME_CLAIM_H_

#include <cstdint>

#include "quorbix/virtdisk/fat16_fs_image.h"

namespace quorbix::virtdisk::internal {

// Which kind of FAT a volume is, as far as its boot sector tells.
enum class VolumeClaim {
  kFat16,
  kSmallFat16,  // says FAT16, with fewer clusters than other systems want for that
  kFat12,       // says FAT12
  kFat32,       // says FAT32
  kTooFew,      // fewer clusters than FAT16 has, and says nothing
};

// Whether the sectors in front of the clusters lie beyond what 32-bit numbers of sectors tell, as
// those of a partition at the end of 2 TiB can: the description has wrong places for them then.
bool IsBeyondSectorNumbers(const Fat16FsInfo& info);

// As the boot sector counts them; 0 when it leaves no room for any.
std::uint64_t ClaimedClusters(const Fat16FsInfo& info);

// FAT32 is told by its text, or by what it keeps at 0: the sectors per FAT and the root's entries.
VolumeClaim ClaimOf(const Fat16FsInfo& info);

// Whether the readers, to which every FAT has words of 16 bits, would give wrong content.
constexpr bool WouldBeMisread(VolumeClaim claim) {
  return claim != VolumeClaim::kFat16 && claim != VolumeClaim::kSmallFat16;
}

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_CHECK_VOLUME_CLAIM_H_
