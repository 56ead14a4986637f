#ifndef QUORBIX_VIRTDISK_COMMON_FILE_RIGHTS_H_
#define QUORBIX_VIRTDISK_COMMON_FILE_RIGHTS_H_

#include <sys/stat.h>

#include <filesystem>

namespace quorbix::virtdisk::internal {

// Gives the new file `file` the owner of the file `old`, which it is to replace, where the process
// may give it away, and the mode, the access control list and the user's extended attributes of it.
// `status` is what is known of `old`, or of what it leads to, with the mode that it is to have.
//
// Nobody may do more to the new file than to the old one: where it has another group, or the list
// cannot be set, the group has no more rights than others, or none. False: errno says why.
[[nodiscard]] bool TakeOverRights(int file, const std::filesystem::path& old,
                                  const struct ::stat& status);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_COMMON_FILE_RIGHTS_H_
