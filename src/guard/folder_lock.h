#ifndef QUORBIX_VIRTDISK_GUARD_FOLDER_LOCK_H_
#define QUORBIX_VIRTDISK_GUARD_FOLDER_LOCK_H_

#include <filesystem>
#include <string>

#include "common/descriptor.h"

namespace quorbix::virtdisk::internal::guard {

// The lock of a folder of the host: it keeps out whoever works on the same folder and remembers it
// elsewhere. Nothing is written for it. The system takes it back when the process ends.
class FolderLock {
 public:
  // Holds the lock of what `folder` is now, and of no other. False: somebody else has it, and `err`
  // says who. A folder that is not there, may not be read, or lies on a file system that has no
  // such locks is worked on without.
  [[nodiscard]] bool Take(const std::filesystem::path& folder, std::string& err);
  // What Take would return; nothing is taken.
  [[nodiscard]] bool Look(const std::filesystem::path& folder, std::string& err) const;

 private:
  Descriptor locked;
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_FOLDER_LOCK_H_
