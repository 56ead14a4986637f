#ifndef QUORBIX_VIRTDISK_GUARD_QUIET_SIDES_H_
#define QUORBIX_VIRTDISK_GUARD_QUIET_SIDES_H_

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "guard/facts.h"
#include "guard/sight.h"
#include "guard/state.h"

namespace quorbix::virtdisk::internal::guard {

// Both sides as they were when there was nothing to do: as long as every entry of the folder and
// the image have the same identities and times, there still is nothing to do. That is found out
// without any of the maps that a whole sight takes, also by the next process.
class QuietSides {
 public:
  // Nothing when the sides are no longer what `sight` saw, or when something was changed so lately
  // that its times cannot tell whether it was changed once more. `report` is of that sight.
  static std::optional<QuietSides> Take(const Places& places, const Sight& sight,
                                        const GuardedReport& report);

  // What Save has left beside the state. Nothing when there is none, or none that can be used.
  static std::optional<QuietSides> Load(const Places& places);

  // The next process can do without: a failure only makes it look at everything.
  void Save(const Places& places) const;

  bool AreStill(const Places& places) const;

  // Of a pass that has nothing to do.
  const GuardedReport& Report() const { return report; }

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
  static bool IsLeftOutAsBefore(const Entry& entry, const std::string& path, const HostView& host);
  static bool IsAsSeen(const Folder& folder, const Sight& sight, std::size_t& seen);
  std::string Format() const;
  bool Parse(std::string_view text);
  bool ParseLine(std::string_view text);
  bool ParseEntry(std::string_view kind, Line& line);

  Identity root{};
  std::vector<Folder> folders;
  Stamp imageStamp{};
  std::optional<Stamp> stateStamp{};
  GuardedReport report;
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_QUIET_SIDES_H_
