#ifndef QUORBIX_VIRTDISK_TOOL_OUTPUT_PLACE_H_
#define QUORBIX_VIRTDISK_TOOL_OUTPUT_PLACE_H_

#include <cstdint>
#include <filesystem>
#include <string>

namespace quorbix::virtdisk::tool {

// What stands where an image is to be written.
enum class OutputKind {
  kNothing,     // or a folder that leads there is missing
  kDiskImage,   // a FAT16 volume and no other partition, or nothing but blank space
  kSharedDisk,  // a FAT16 volume beside other partitions
  kOtherFile,   // a regular file that is neither, or that cannot be read
  kFolder,
  kNoRegularFile  // a device, a pipe, a socket
};

OutputKind LookAtOutput(const std::filesystem::path& path);

// Whether both paths lead to one existing file.
bool IsSameFile(const std::filesystem::path& a, const std::filesystem::path& b);

// Whether both paths lead to one place, whether or not anything is there.
bool HaveSamePlace(const std::filesystem::path& a, const std::filesystem::path& b);

// Whether something is there that the process has no right to: R_OK to read it, W_OK to write it.
bool IsDenied(const std::filesystem::path& path, int access);

// Where a new image of `bytes` bytes could not be put in the place of `image` because of `error`,
// an errno: a sentence, behind a blank, that --in-place would do, or nothing.
std::string InPlaceHint(const std::filesystem::path& image, int error, std::uint64_t bytes);

// Whether a file at `path` is `folder`, or lies in it or below it, by their real places. Neither
// needs to exist.
bool LiesWithin(const std::filesystem::path& path, const std::filesystem::path& folder);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_OUTPUT_PLACE_H_
