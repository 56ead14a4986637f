#ifndef QUORBIX_VIRTDISK_COMMON_FAIL_H_
#define QUORBIX_VIRTDISK_COMMON_FAIL_H_

#include <string>
#include <string_view>

namespace quorbix::virtdisk::internal {

// Puts `message` into `err` and returns false, so that a failing branch is one line.
inline bool Fail(std::string& err, std::string_view message) {
  err = message;
  return false;
}

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_COMMON_FAIL_H_
