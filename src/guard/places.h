#ifndef QUORBIX_VIRTDISK_GUARD_PLACES_H_
#define QUORBIX_VIRTDISK_GUARD_PLACES_H_

#include <filesystem>

#include "guard/facts.h"

namespace quorbix::virtdisk::internal::guard {

// Where the two sides and the state are. The image is the file itself, no link to it.
struct Places {
  std::filesystem::path image{};
  std::filesystem::path folder{};
  std::filesystem::path stateFolder{};
};

// The places that a caller's paths lead to; `stateFolder` may be empty.
Places FindPlaces(const std::filesystem::path& image, const std::filesystem::path& folder,
                  const std::filesystem::path& stateFolder);

// Which of them lies in which.
NestingFacts NestingOf(const Places& places);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_PLACES_H_
