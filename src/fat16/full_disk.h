#ifndef QUORBIX_VIRTDISK_FAT16_FULL_DISK_H_
#define QUORBIX_VIRTDISK_FAT16_FULL_DISK_H_

namespace quorbix::virtdisk::internal {

// What an image under construction says when it can take no more, in bytes or without them.
inline constexpr char kRootFull[] = "Root directory is full";
inline constexpr char kCannotExtend[] = "Disk full, cannot extend directory";
inline constexpr char kDiskFull[] = "Disk full";
inline constexpr char kDiskFullInFile[] = "Disk full while writing file";

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_FAT16_FULL_DISK_H_
