#ifndef QUORBIX_VIRTDISK_CHECK_FINDING_LIST_H_
#define QUORBIX_VIRTDISK_CHECK_FINDING_LIST_H_

#include <array>
#include <cstdint>
#include <string>

#include "check/check_volume.h"

namespace quorbix::virtdisk::internal {

// Fills a report, within its bounds.
class FindingList {
 public:
  using Numbers = std::array<std::uint64_t, 3>;

  explicit FindingList(CheckReport& checkReport) : report(checkReport) {}

  // About the volume.
  void Add(FindingKind kind, Numbers numbers = {});

  // About the entry whose path `path` gives when it is asked; it is not once the kind's list is
  // full.
  template <class Path>
  void AddFor(const Path& path, FindingKind kind, Numbers numbers = {}) {
    AddFor(
        path, [] { return std::string(); }, kind, numbers);
  }
  template <class Path, class OtherPath>
  void AddFor(const Path& path, const OtherPath& otherPath, FindingKind kind, Numbers numbers) {
    if (!Count(kind)) return;
    Append({kind, path(), otherPath(), numbers, {}, false});
  }

 private:
  bool Count(FindingKind kind);  // false: there is no room for one more
  void Append(Finding finding);

  CheckReport& report;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_CHECK_FINDING_LIST_H_
