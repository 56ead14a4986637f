#ifndef QUORBIX_VIRTDISK_CHECK_FINDING_TEXT_H_
#define QUORBIX_VIRTDISK_CHECK_FINDING_TEXT_H_

#include <string>

#include "check/check_volume.h"

namespace quorbix::virtdisk::internal {

// The text of a finding, from its other fields.
std::string DescribeFinding(const Finding& finding);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_CHECK_FINDING_TEXT_H_
