#ifndef QUORBIX_VIRTDISK_GUARD_WRITERS_H_
#define QUORBIX_VIRTDISK_GUARD_WRITERS_H_

#include <filesystem>
#include <string>

namespace quorbix::virtdisk::internal::guard {

// Who has a file open for writing: "process 1234", "another process", or nothing when nobody has,
// or nobody can be seen to.
std::string FindWriter(const std::filesystem::path& file);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_WRITERS_H_
