#ifndef QUORBIX_VIRTDISK_GUARD_USABLE_NAMES_H_
#define QUORBIX_VIRTDISK_GUARD_USABLE_NAMES_H_

#include <cstddef>
#include <string>
#include <unordered_map>

#include "browser/byte_source.h"
#include "browser/volume_index.h"

namespace quorbix::virtdisk::internal::guard {

// The names that the entries of a damaged disk go by: their own, or, for one that no system takes,
// one that its directory has not.
class UsableNames {
 public:
  explicit UsableNames(const VolumeIndex& volumeIndex) : index(volumeIndex) {}

  // Without this all of them go by their own. False: the image could not be read, and `err` says
  // why.
  [[nodiscard]] bool Choose(ByteSource& source, std::string& err);

  // Null when it is its own. Numbers are those of the index's records.
  const std::string* ChosenFor(std::size_t record) const;

  std::string PathOf(std::size_t record) const;  // relative to the root

 private:
  const VolumeIndex& index;
  std::unordered_map<std::size_t, std::string> chosen;  // by record
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_USABLE_NAMES_H_
