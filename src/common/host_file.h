#ifndef QUORBIX_VIRTDISK_COMMON_HOST_FILE_H_
#define QUORBIX_VIRTDISK_COMMON_HOST_FILE_H_

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string_view>

#include "common/descriptor.h"

namespace quorbix::virtdisk::internal {

// Files of the host. They may change their kind, their size and their existence at any moment, and
// failures leave their cause in errno.

// Where `path` leads, through symbolic links at its end, whether or not anything is there.
std::filesystem::path FollowLinks(std::filesystem::path path);

// Opens `path` with the flags of open(2), and waits where that waits. Programs that the process
// starts do not inherit what is opened here.
Descriptor OpenHostPath(const char* path, int flags, ::mode_t newFileMode = 0666);

// Opens what should be a file. Never waits for the other end of a pipe that took its place, but
// does wait for another process that holds a lease on the file, as file servers do for their
// clients, to give it back.
Descriptor OpenHostFile(const char* path, int flags, ::mode_t newFileMode = 0666);

// The same without waiting for a lease either: nothing then, and EWOULDBLOCK in errno. Whoever
// holds it has been asked to give it back.
Descriptor OpenHostFileNow(const char* path, int flags);

// The same as OpenHostFile for reading, and nothing unless it is a regular file; `status` is what
// it is when opened.
Descriptor OpenRegularFile(const char* path, struct ::stat& status);

// The same for an entry `name` of an open folder.
Descriptor OpenRegularFileIn(int folder, const char* name, struct ::stat& status);

// The same without waiting for a lease.
Descriptor OpenRegularFileNow(int folder, const char* name, struct ::stat& status);

// Opens the folder at `path` below `root` to be listed: one element after the other, so that no
// link leads anywhere else, and that a path may be longer than the system takes at once.
Descriptor OpenFolderBelow(const char* root, std::string_view path);

// Reads until `buffer` is full or the file ends. Returns how much was read, or -1 on failure.
std::ptrdiff_t ReadFully(int file, std::span<std::uint8_t> buffer);

// False: the system did not take all of `bytes`.
[[nodiscard]] bool WriteFully(int file, std::span<const std::uint8_t> bytes);

// Whether `path` leads to the very file or folder that is open.
bool IsOpenAt(int file, const std::filesystem::path& path);

// Writes a folder's entries out to the disk, so that what was renamed in it stays so.
[[nodiscard]] bool FlushFolder(const std::filesystem::path& folder);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_COMMON_HOST_FILE_H_
