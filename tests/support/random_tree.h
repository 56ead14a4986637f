#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_RANDOM_TREE_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_RANDOM_TREE_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>

namespace quorbix::virtdisk::test {

struct TreeShape {
  std::uint32_t seed = 1;
  std::size_t directories = 20;
  std::size_t files = 80;
  std::size_t mostBytes = 20000;
  // Whether names may collide so that a short base gets blanks before its tail.
  bool innerBlanks = false;
  // Whether some names have a blank base.
  bool dotFiles = false;
};

// Makes a folder tree at `root`. Every file that is not empty begins with its own relative path and
// a line feed, so that it is known again under any other name.
void MakeRandomTree(const std::filesystem::path& root, const TreeShape& shape);

struct TreeSummary {
  std::map<std::string, std::string> contents;  // by the path in the first line
  std::size_t files = 0;                        // empty ones too
  std::size_t directories = 0;

  bool operator==(const TreeSummary&) const = default;
};

TreeSummary Summarize(const std::filesystem::path& root);

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_RANDOM_TREE_H_
