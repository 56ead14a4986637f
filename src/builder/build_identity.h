#ifndef QUORBIX_VIRTDISK_BUILDER_BUILD_IDENTITY_H_
#define QUORBIX_VIRTDISK_BUILDER_BUILD_IDENTITY_H_

#include <cstdint>
#include <filesystem>
#include <optional>

namespace quorbix::virtdisk::internal {

// What tells one build of an image from the next, across all builders and threads of the process:
// the volume id inside, and the modification time outside.

// The volume id of the build with the given sequence number, made at `nanoseconds` since the system
// clock's epoch. Never 0 for any sequence number that a process reaches.
std::uint32_t VolumeIdFor(std::uint32_t sequence, std::uint64_t nanoseconds);

// The volume id of the next build of this process.
std::uint32_t GenerateVolumeId();

// The stamp that follows `previous` at the time `now`: `now`, or 1 ms after `previous` when `now`
// is not later than that.
std::filesystem::file_time_type NextStamp(std::filesystem::file_time_type now,
                                          std::optional<std::filesystem::file_time_type> previous);

// Sets the modification time of a freshly built image so that whoever compares times sees it as
// newer than every image built before. Errors are ignored: the image itself is complete.
void StampOutputImageMtime(const std::filesystem::path& outputImage);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BUILDER_BUILD_IDENTITY_H_
