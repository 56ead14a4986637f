#ifndef QUORBIX_VIRTDISK_TESTS_CHECK_CHECK_FIXTURE_H_
#define QUORBIX_VIRTDISK_TESTS_CHECK_CHECK_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "browser/byte_source.h"
#include "check/check_volume.h"
#include "support/image_crafter.h"

namespace quorbix::virtdisk::internal {

inline CheckReport Checked(const std::vector<std::uint8_t>& image) {
  MemorySource source(image);
  CheckReport report;
  std::string err;
  EXPECT_TRUE(CheckVolume(source, report, err)) << err;
  return report;
}

inline CheckReport Checked(const test::ImageCrafter& image) { return Checked(image.Bytes()); }

// The findings as "PATH text", the volume's without a path. That crafted volumes are small goes
// without saying.
inline std::vector<std::string> Said(const CheckReport& report) {
  std::vector<std::string> lines;
  for (const Finding& finding : report.findings) {
    if (finding.kind == FindingKind::kFewClusters) continue;
    lines.push_back(finding.path + (finding.path.empty() ? "" : " ") + finding.text);
  }
  return lines;
}

template <class Image>
std::vector<std::string> Findings(const Image& image) {
  return Said(Checked(image));
}

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_TESTS_CHECK_CHECK_FIXTURE_H_
