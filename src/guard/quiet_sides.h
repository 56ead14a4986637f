#ifndef QUORBIX_VIRTDISK_GUARD_QUIET_SIDES_H_
#define QUORBIX_VIRTDISK_GUARD_QUIET_SIDES_H_

#include <optional>
#include <string>
#include <vector>

#include "guard/facts.h"
#include "guard/sight.h"
#include "guard/state.h"

namespace quorbix::virtdisk::internal::guard {

// Both sides as they were when there was nothing to do: as long as every entry of the folder and
// the image have the same identities and times, there still is nothing to do. That is found out
// without any of the maps that a whole sight takes.
class QuietSides {
 public:
  // Nothing when the sides are no longer what `sight` saw, or when something was changed so lately
  // that its times cannot tell whether it was changed once more.
  static std::optional<QuietSides> Take(const Places& places, const Sight& sight);

  bool AreStill() const;

 private:
  struct Entry {
    std::string name;
    bool isFolder = false;  // whose times do not matter: what it holds is looked at, or is left out
    Stamp stamp{};
    std::optional<Stamp> target{};  // of a link
  };
  struct Folder {
    std::string path;  // relative
    std::vector<Entry> entries;
  };

  static std::optional<Folder> List(const std::filesystem::path& root, const std::string& path);
  static bool IsAsSeen(const Folder& folder, const Sight& sight, std::size_t& seen);

  std::filesystem::path root;
  std::vector<Folder> folders;
  std::filesystem::path image;
  Stamp imageStamp{};
  std::filesystem::path state;
  std::optional<Stamp> stateStamp{};
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_QUIET_SIDES_H_
