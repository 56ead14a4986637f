#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_CHILD_PROCESS_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_CHILD_PROCESS_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quorbix::virtdisk::test {

// What a child process gives up before it runs its body.
struct ChildLimits {
  bool dropRoot = false;  // becomes the user "nobody"
  std::optional<std::uint64_t> fileSizeLimit =
      std::nullopt;  // bytes; writing beyond fails with EFBIG
  std::optional<std::uint64_t> openFileLimit = std::nullopt;      // descriptors
  std::optional<std::uint64_t> addressSpaceLimit = std::nullopt;  // bytes; not under a sanitizer
};

// Runs `body` in a forked child under `limits` and returns the body's result (0 to 255), or 256
// plus the signal's number when one ended the child. The parent's threads do not exist in the
// child.
int RunInChild(const ChildLimits& limits, const std::function<int()>& body);

struct CommandResult {
  int status = 0;  // exit status, or 256 plus the signal's number
  std::string out;
  std::string err;
};

// Runs a program, looked up on the PATH and in the system's sbin folders, with `arguments` and no
// shell in between; waits for it and returns all that it printed. Status 127: no such program.
CommandResult RunCommand(const std::vector<std::string>& arguments);

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_CHILD_PROCESS_H_
