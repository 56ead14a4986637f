#ifndef QUORBIX_VIRTDISK_TOOL_OUTPUT_PLACE_H_
#define QUORBIX_VIRTDISK_TOOL_OUTPUT_PLACE_H_

#include <filesystem>

namespace quorbix::virtdisk::tool {

// What stands where an image is to be written.
enum class OutputKind {
  kNothing,    // or a folder that leads there is missing
  kDiskImage,  // a FAT16 volume, or nothing but blank space
  kOtherFile,  // a regular file that is neither, or that cannot be read
  kFolder,
  kNoRegularFile  // a device, a pipe, a socket
};

OutputKind LookAtOutput(const std::filesystem::path& path);

// Where `path` leads, through symbolic links at its end, whether or not anything is there.
std::filesystem::path FollowLinks(std::filesystem::path path);

// Whether something is there that the process may not read, or not write to.
bool IsReadProtected(const std::filesystem::path& path);
bool IsWriteProtected(const std::filesystem::path& path);

// Whether a file at `path` lies in `folder` or below it, by their real places.
bool LiesWithin(const std::filesystem::path& path, const std::filesystem::path& folder);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_OUTPUT_PLACE_H_
