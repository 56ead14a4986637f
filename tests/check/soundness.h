#ifndef QUORBIX_VIRTDISK_TESTS_CHECK_SOUNDNESS_H_
#define QUORBIX_VIRTDISK_TESTS_CHECK_SOUNDNESS_H_

#include <cstdint>
#include <string>
#include <vector>

namespace quorbix::virtdisk::test {

// Checks a volume and holds the report against what a reader gets: of a volume that is sound every
// file can be read whole, and the numbers of any report go together. Empty when they do, else what
// does not; `sound` is what the report says.
std::string FindFalseReport(const std::vector<std::uint8_t>& image, bool& sound);

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_CHECK_SOUNDNESS_H_
