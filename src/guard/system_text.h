#ifndef QUORBIX_VIRTDISK_GUARD_SYSTEM_TEXT_H_
#define QUORBIX_VIRTDISK_GUARD_SYSTEM_TEXT_H_

#include <cerrno>
#include <string>
#include <system_error>

namespace quorbix::virtdisk::internal::guard {

// What the system says about the error in errno.
inline std::string SystemText() { return std::generic_category().message(errno); }

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_SYSTEM_TEXT_H_
