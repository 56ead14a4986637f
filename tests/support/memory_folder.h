#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_MEMORY_FOLDER_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_MEMORY_FOLDER_H_

#include <stdlib.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace quorbix::virtdisk::test {

// A folder of its own on the machine's memory file system, where there is one: it is quick, and
// holds times that others do not.
class MemoryFolder {
 public:
  MemoryFolder() { MakeIn("/dev/shm"); }

  // For what only wants to be quick.
  static MemoryFolder OrOnDisk() { return MemoryFolder(std::filesystem::temp_directory_path()); }

  ~MemoryFolder() {
    std::error_code ignored;
    if (Usable()) std::filesystem::remove_all(root, ignored);
  }
  MemoryFolder(const MemoryFolder&) = delete;
  MemoryFolder& operator=(const MemoryFolder&) = delete;

  bool Usable() const { return !root.empty(); }
  const std::filesystem::path& Path() const { return root; }

 private:
  explicit MemoryFolder(const std::filesystem::path& otherwise) {
    MakeIn("/dev/shm");
    if (!Usable()) MakeIn(otherwise);
  }

  void MakeIn(const std::filesystem::path& folder) {
    std::string name = folder / "virtdisk-test-XXXXXX";
    if (::mkdtemp(name.data()) != nullptr) root = name;
  }

  std::filesystem::path root;
};

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_MEMORY_FOLDER_H_
