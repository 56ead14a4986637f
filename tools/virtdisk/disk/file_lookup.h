#ifndef QUORBIX_VIRTDISK_TOOL_FILE_LOOKUP_H_
#define QUORBIX_VIRTDISK_TOOL_FILE_LOOKUP_H_

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include <quorbix/virtdisk/fat16_fs_image.h>

#include "disk/opened_image.h"
#include "terminal/console.h"

namespace quorbix::virtdisk::tool {

// The file at `path` in the form in which listings show it. Without one the console is told.
std::optional<Fat16FsEntry> FindFile(Console& console, const OpenedImage& image,
                                     const std::string& path,
                                     const std::filesystem::path& imagePath, bool hiddenToo);

// How much of a file there is to read: less than its size when its chain of clusters ends early.
std::uint64_t BytesThere(const OpenedImage& image, const Fat16FsEntry& file);

// What to do about a file of an image that could not be found or read, by the library's message.
std::string HintFor(const std::string& message, const std::string& path,
                    const std::filesystem::path& image);

// Of a file that gave fewer bytes than its entry says.
std::string ShortText(const Fat16FsEntry& entry, std::uint64_t got);
inline constexpr char kShortHint[] =
    "Its chain of clusters ends early; `virtdisk verify` tells more.";

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_FILE_LOOKUP_H_
