#ifndef QUORBIX_VIRTDISK_FAT_IMAGE_BUILDER_H_
#define QUORBIX_VIRTDISK_FAT_IMAGE_BUILDER_H_

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "quorbix/virtdisk/export.h"

namespace quorbix::virtdisk {

// Makes a partitioned FAT16 disk image from a folder on the host.
//
// A builder may be used for any number of builds, one after another. One builder serves one thread
// at a time; different builders may build at the same time.
class QUORBIX_VIRTDISK_EXPORT IFatImageBuilder {
 public:
  virtual ~IFatImageBuilder() = default;

  // Writes to `outputImage` a disk image whose volume holds the files and folders of
  // `sourceFolder` under 8.3 short names.
  //
  // `sizeBytes` is the size of the whole image file in bytes, from 65,536 to about 4 GiB; it is
  // rounded down to a multiple of 512. Nothing is sized automatically: see MeasureFolderSize.
  // The volume label is the last component of `sourceFolder`, cut to 11 bytes and upper-cased;
  // a path that ends in a separator gives a blank label. A label whose first byte is 0xE5 marks its
  // own entry as deleted, so that the first entry of the root takes its place; the boot sector
  // keeps it. Entries keep the order in which the host lists them; symbolic links are followed.
  // Images carry no file times.
  //
  // True: the image file is written completely, and its modification time is later, by 1 ms or
  // more, than that of any image this process built before (where the system lets the process set
  // it, which it does not for another user's file). LastError is then empty, except when an empty
  // file had to be dropped because its folder could take no further entry.
  //
  // False: LastError says why, with one of
  //   "Source folder does not exist: " + path
  //   "Source path is not a directory: " + path
  //   "Image too small (minimum 64 KB)"
  //   "Image too small to hold FAT16 metadata"
  //   "Volume too large for FAT16 (max ~2 GB)"
  //   "Root directory is full"                  the root takes 512 entries, the label included
  //   "Disk full, cannot extend directory"
  //   "Disk full"
  //   "Disk full while writing file"
  //   "Cannot open output image: " + path
  //   "Write failed for: " + path
  // The output is opened only when the whole tree is in memory, so every failure but the last
  // leaves an existing file at `outputImage` as it was. "Write failed for: " can leave a truncated
  // file behind. An existing output is truncated and written in place: it keeps its inode, its
  // links and its mode.
  //
  // Entries that cannot be copied do not fail a build; SkippedFiles lists them.
  //
  // Throws std::filesystem::filesystem_error when the status of `sourceFolder` cannot be queried
  // for another reason than that it is missing (no permission on a parent, say), and
  // std::bad_alloc. The image is held in memory whole, together with the largest file.
  virtual bool Build(const std::filesystem::path& sourceFolder,
                     const std::filesystem::path& outputImage, std::uint64_t sizeBytes) = 0;

  // Returns the sum of the sizes, in bytes, of all regular files below `folder`.
  //
  // A link to a regular file adds the size of its target; a link to a folder is not followed.
  // What cannot be read adds nothing, and a folder that cannot be opened gives 0. The sum has no
  // allowance for whole clusters, directories or allocation tables: an image needs more. No
  // error of the file system leaves this function.
  virtual std::uint64_t MeasureFolderSize(const std::filesystem::path& folder) const = 0;

  // Returns the message of the most recent Build, empty when it had nothing to say.
  virtual std::string LastError() const = 0;

  // Returns the entries that the most recent Build could not copy, in the order it met them; after
  // a failed build, those met up to the failure. Each is the entry's host path, a blank and a
  // reason in brackets:
  //   "[name not representable in 8.3]"   the short name and its tails "~1" to "~99" are all taken
  //   "[stat: " + system message + "]"
  //   "[transient read error — file may have changed]"   the file could not be read to its end
  //   "[dir-iter: " + system message + "]"               the folder could not be listed (further)
  // Pipes, sockets, devices and links that lead nowhere are passed over without being listed.
  virtual std::vector<std::string> SkippedFiles() const = 0;
};

// Returns a new builder, owned by the caller.
[[nodiscard]] QUORBIX_VIRTDISK_EXPORT std::unique_ptr<IFatImageBuilder> CreateFat16Builder();

}  // namespace quorbix::virtdisk

#endif  // QUORBIX_VIRTDISK_FAT_IMAGE_BUILDER_H_
