#ifndef QUORBIX_VIRTDISK_TESTS_GUARD_REFUSALS_H_
#define QUORBIX_VIRTDISK_TESTS_GUARD_REFUSALS_H_

#include <cstddef>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "guard/guarded_pair.h"

// The program that links refusals.cc has functions of its own in front of those of the C library,
// for the C++ library as well.

namespace quorbix::virtdisk::test {

// Is asked before each call: the error with which it fails, or 0. Its own calls are not asked
// about. "open" is an openat that makes nothing.
using Answer = std::function<int(std::string_view call, const std::string& path)>;
extern Answer answer;
extern std::string locksOfTheSystem;  // a file that is read in place of /proc/locks; empty: itself
extern std::set<std::size_t> flippedBytes;  // offsets in new images: the lowest bit is another one
extern bool sharesFiles;                    // whether the file system has FICLONE
extern int shared;

}  // namespace quorbix::virtdisk::test

namespace quorbix::virtdisk::internal::guard {

class RefusedCall : public GuardedPair {
 protected:
  ~RefusedCall() override {
    test::answer = nullptr;
    test::locksOfTheSystem.clear();
    test::flippedBytes.clear();
    test::sharesFiles = false;
    test::shared = 0;
  }

  static std::vector<std::string> NamesIn(const std::filesystem::path& place) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(place)) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  bool IsOfHost(const std::string& path) const {
    return path == Host() || path.starts_with(Host().string() + '/');
  }
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_TESTS_GUARD_REFUSALS_H_
