#ifndef QUORBIX_VIRTDISK_TESTS_INTEROP_FSCK_FINDINGS_H_
#define QUORBIX_VIRTDISK_TESTS_INTEROP_FSCK_FINDINGS_H_

#include <string>
#include <vector>

namespace quorbix::virtdisk::test {

// What a report of `fsck.fat -n` says against a volume.
struct FsckFindings {
  std::vector<std::string> badNames;  // the paths, as it prints them
  bool hasBadLabel = false;           // in the root
  std::vector<std::string> others;    // every other line that finds fault

  bool IsEmpty() const { return badNames.empty() && !hasBadLabel && others.empty(); }
};

FsckFindings ParseFsckReport(const std::string& report);

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_INTEROP_FSCK_FINDINGS_H_
