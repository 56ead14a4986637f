#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_SHARING_FOLDER_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_SHARING_FOLDER_H_

#include <unistd.h>

#include <filesystem>
#include <string>

#include "support/child_process.h"
#include "support/sizes.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::test {

// A folder on a file system whose files can share their data: one of its own, in a file, which only
// the superuser may attach.
class SharingFolder {
 public:
  SharingFolder() : why(Attach()) {}
  ~SharingFolder() {
    if (Usable()) RunCommand({"umount", Path()});
  }
  SharingFolder(const SharingFolder&) = delete;
  SharingFolder& operator=(const SharingFolder&) = delete;

  bool Usable() const { return why.empty(); }
  const std::string& WhyNot() const { return why; }
  std::filesystem::path Path() const { return holder / "mounted"; }

 private:
  // Empty, or why there is none.
  std::string Attach() {
    if (::geteuid() != 0) return "only the superuser may attach a file system";
    const std::string disk = holder / "disk";
    holder.File("disk").Folder("mounted");
    std::filesystem::resize_file(disk, 320 * kMiB);  // the least that mkfs.xfs takes
    if (RunCommand({"mkfs.xfs", "-q", "-m", "reflink=1", disk}).status != 0) {
      return "mkfs.xfs is missing, or makes no XFS that shares: scripts/setup test installs it";
    }
    const CommandResult mounted = RunCommand({"mount", "-o", "loop", disk, Path()});
    return mounted.status == 0 ? "" : "no file can be attached as a disk: " + mounted.err;
  }

  TempFolder holder;
  std::string why;
};

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_SHARING_FOLDER_H_
