#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_SEARCH_EFFORT_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_SEARCH_EFFORT_H_

#include <cstdlib>

namespace quorbix::virtdisk::test {

// Whether long searches are to go through all that they could; otherwise they take a short form.
inline bool IsWholeSearch() { return std::getenv("WHOLE_SEARCH") != nullptr; }

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_SEARCH_EFFORT_H_
