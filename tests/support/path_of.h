#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_PATH_OF_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_PATH_OF_H_

#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <string>

namespace quorbix::virtdisk::test {

// The path of an open file; empty when it has none. For functions that stand in front of the C
// library's: it opens nothing itself.
inline std::string PathOf(int file) {
  std::array<char, 4096> path{};
  const std::string link = "/proc/self/fd/" + std::to_string(file);
  const ssize_t length = ::readlink(link.c_str(), path.data(), path.size());
  return length < 0 ? "" : std::string(path.data(), static_cast<std::size_t>(length));
}

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_PATH_OF_H_
