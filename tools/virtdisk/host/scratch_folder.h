#ifndef QUORBIX_VIRTDISK_TOOL_SCRATCH_FOLDER_H_
#define QUORBIX_VIRTDISK_TOOL_SCRATCH_FOLDER_H_

#include <sys/types.h>

#include <filesystem>
#include <string>

#include "common/descriptor.h"

namespace quorbix::virtdisk::tool {

// A folder of its own among the system's temporary ones, gone with the object, and with the process
// however that ends: a second process waits for it. For a process without other threads.
class ScratchFolder {
 public:
  ScratchFolder() = default;
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  // "virtdisk-demo-" gives /tmp/virtdisk-demo-a1B2c3. With `keeps` the folder stays. On failure
  // returns false and says why in `err`.
  [[nodiscard]] bool Make(const std::string& beginning, bool keeps, std::string& err);

  const std::filesystem::path& Path() const { return path; }

 private:
  std::string MakeByRemover(const std::string& name);  // empty on failure

  std::filesystem::path path;
  bool isKept = false;
  internal::Descriptor life;  // the remover's other end: closed when this process is no more
  ::pid_t remover = -1;
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_SCRATCH_FOLDER_H_
