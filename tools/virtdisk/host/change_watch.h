#ifndef QUORBIX_VIRTDISK_TOOL_CHANGE_WATCH_H_
#define QUORBIX_VIRTDISK_TOOL_CHANGE_WATCH_H_

#include <filesystem>
#include <string>
#include <vector>

#include "common/descriptor.h"

namespace quorbix::virtdisk::tool {

// Asks the kernel to tell when something changes in a folder, at any depth, or about an image.
// Where that is a link, it is about the file behind it. The state of the two may lie in the folder:
// what changes there is no news.
class ChangeWatch {
 public:
  // On failure, for instance because too many folders are watched on the machine, returns false and
  // says why in `err`; what was watched before is watched no more.
  [[nodiscard]] bool Begin(const std::filesystem::path& folder, const std::filesystem::path& image,
                           const std::filesystem::path& stateFolder, std::string& err);

  // Can be read when something may have changed; -1: nothing is watched.
  int Descriptor() const { return watch ? watch.Get() : -1; }

  // Takes what the kernel has told so far. Whether any of it is about the folder or the image.
  bool TakeNews();

 private:
  int Add(const std::filesystem::path& folder) const;  // a watch; -1 with the cause in errno
  bool AddAllBelow(const std::filesystem::path& folder, const std::filesystem::path& stateFolder);
  bool IsNews(int folder, const char* name) const;

  internal::Descriptor watch;
  int imageFolder = -1;  // the watch of the folder that the image lies in
  std::vector<int> ownFolders;
  std::string imageName;
  int parentOfState = -1;  // the watch of the folder that the state lies in
  std::string stateName;
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_CHANGE_WATCH_H_
