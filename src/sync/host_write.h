#ifndef QUORBIX_VIRTDISK_SYNC_HOST_WRITE_H_
#define QUORBIX_VIRTDISK_SYNC_HOST_WRITE_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace quorbix::virtdisk::internal {

// Makes `bytes` the whole content of `target`, so that a reader sees the old file or the new one,
// never a part. Missing folders are created; the bytes go to a file named as the target plus
// ".quorbix_tmp", which then takes the target's name. A file that is replaced hands its permission
// bits on. A link, pipe, socket or device that has the temporary file's name is removed.
//
// On failure returns false and says why in `err`; the target keeps its content, except that it can
// be gone when it could not be replaced in one step. Bytes that could not be written, on a full
// disk for instance, leave the temporary file behind.
[[nodiscard]] bool WriteFileAtomically(const std::filesystem::path& target,
                                       const std::vector<std::uint8_t>& bytes, std::string& err);

// Removes every folder below `root` that holds nothing but empty folders, and never `root` itself.
// A link to a folder counts as an empty folder: the link goes, its target stays.
//
// Throws std::filesystem::filesystem_error when the listing fails half way.
void RemoveEmptyDirsRec(const std::filesystem::path& root);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_SYNC_HOST_WRITE_H_
