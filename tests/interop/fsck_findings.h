#ifndef QUORBIX_VIRTDISK_TESTS_INTEROP_FSCK_FINDINGS_H_
#define QUORBIX_VIRTDISK_TESTS_INTEROP_FSCK_FINDINGS_H_

#include <string>
#include <vector>

namespace quorbix::virtdisk::test {

// The lines of a report of `fsck.fat -n` that find fault with the volume, without the two findings
// that our images are meant to give: a short name whose base is blank (".profile" on the host), and
// a label that is blank or holds characters that other tools would not write.
std::vector<std::string> UnexpectedFindings(const std::string& report);

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_INTEROP_FSCK_FINDINGS_H_
