#ifndef QUORBIX_VIRTDISK_TESTS_BROWSER_AGREEMENT_H_
#define QUORBIX_VIRTDISK_TESTS_BROWSER_AGREEMENT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "quorbix/virtdisk/fat16_fs_image.h"

namespace quorbix::virtdisk::test {

bool SameInfo(const Fat16FsInfo& a, const Fat16FsInfo& b);

// Loads `image` into the library's browser and into PlainBrowser, asks both everything about up to
// `queries` of its entries, rewrites up to `rewrites` of its files, and returns the first
// difference in words; empty when there is none.
std::string FindDisagreement(const std::vector<std::uint8_t>& image, std::size_t queries,
                             std::size_t rewrites);

// What is wrong about an operation that returned `succeeded` with the message `err`, where `want`
// was the message to be expected, empty for a success; empty when nothing is.
std::string FindWrongOutcome(const std::string& operation, bool succeeded, const std::string& err,
                             const std::string& want);

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_BROWSER_AGREEMENT_H_
