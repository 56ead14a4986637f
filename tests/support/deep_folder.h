#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_DEEP_FOLDER_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_DEEP_FOLDER_H_

#include <filesystem>

namespace quorbix::virtdisk::test {

// Folders named "d", nested `levels` deep below `root`, as deep as it may be: deeper than a path
// can name. They are removed with their owner.
class DeepFolder {
 public:
  DeepFolder(const std::filesystem::path& root, int levels);
  ~DeepFolder();
  DeepFolder(const DeepFolder&) = delete;
  DeepFolder& operator=(const DeepFolder&) = delete;

 private:
  std::filesystem::path top;
};

// "d/d/d" for 3 levels.
std::filesystem::path DeepPath(int levels);

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_DEEP_FOLDER_H_
