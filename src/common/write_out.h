#ifndef QUORBIX_VIRTDISK_COMMON_WRITE_OUT_H_
#define QUORBIX_VIRTDISK_COMMON_WRITE_OUT_H_

#include <cstdint>

namespace quorbix::virtdisk::internal {

// Has the system write an open file out to the disk while it is being written, from `begin` to
// `end` just now: so little is left for the flush at its end, which no signal interrupts. Where the
// file system cannot do it, that takes longer. Keeps errno.
void WriteOutSoon(int file, std::uint64_t begin, std::uint64_t end);

// The same for all of it, once nothing more comes.
void WriteRestOutSoon(int file);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_COMMON_WRITE_OUT_H_
