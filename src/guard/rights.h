#ifndef QUORBIX_VIRTDISK_GUARD_RIGHTS_H_
#define QUORBIX_VIRTDISK_GUARD_RIGHTS_H_

#include <filesystem>
#include <string>

namespace quorbix::virtdisk::internal::guard {

// What this process may do, as far as modes and owners tell it beforehand.

// Whether it may make, rename and delete entries of a folder.
bool MayChange(const std::filesystem::path& folder);

bool MayWrite(const std::filesystem::path& file);

// Whether it may rename and delete an entry that is there. `folder` is a descriptor, or AT_FDCWD
// with a path as `name`.
bool MayTakeAway(int folder, const std::string& name);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_RIGHTS_H_
