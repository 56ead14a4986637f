#ifndef QUORBIX_VIRTDISK_GUARD_WRITERS_H_
#define QUORBIX_VIRTDISK_GUARD_WRITERS_H_

#include <filesystem>
#include <string>

namespace quorbix::virtdisk::internal::guard {

// Who has a file open for writing: "process 1234", "another process", or nothing when nobody has,
// or nobody can be seen to.
std::string FindWriter(const std::filesystem::path& file);

// That of an image, as a text; empty when nobody has it open for writing.
std::string ImageInUseText(const std::filesystem::path& image);

// Whether somebody has the file `name` of an open folder open for writing, as far as a lease tells:
// where there are none, or for files of others, nobody seems to have. Of a link: no.
bool IsOpenForWriting(int folder, const std::string& name);

// What is to be said then of the file at `path`.
std::string HasOpenText(const std::string& path);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_WRITERS_H_
