#ifndef QUORBIX_VIRTDISK_TOOL_EXTRACTED_FILE_H_
#define QUORBIX_VIRTDISK_TOOL_EXTRACTED_FILE_H_

#include <cstdint>
#include <filesystem>
#include <string>

#include "browser/content_reader.h"
#include "terminal/progress.h"

namespace quorbix::virtdisk::tool {

enum class ExtractionEnd {
  kWritten,
  kExists,      // something has that name already, and was left alone
  kUnreadable,  // the content could not be read
  kUnwritable,
  kShort,  // the content has fewer bytes than it should, and what exists was left as it is
};

// Writes what `content` reads into the new file `target`, and tells `progress` of the bytes. On
// failure `err` says why, and the file is gone again, as it is when a signal ends the program. Like
// any copy it is left to the system to write it out to the disk.
ExtractionEnd ExtractToNewFile(const std::filesystem::path& target,
                               internal::ContentReader& content, Progress& progress,
                               std::string& err);

// The same in place of a regular file or a symbolic link that may exist, which a failure leaves as
// it was, and so does a content of less than `size` bytes; the file is on the disk before it takes
// that place.
ExtractionEnd ExtractInPlaceOf(const std::filesystem::path& target,
                               internal::ContentReader& content, std::uint64_t size,
                               Progress& progress, std::string& err);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_EXTRACTED_FILE_H_
