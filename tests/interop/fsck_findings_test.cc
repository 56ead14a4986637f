#include "interop/fsck_findings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quorbix::virtdisk::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(FsckFindings, CleanReport_HasNone) {
  EXPECT_TRUE(
      ParseFsckReport("fsck.fat 4.2 (2021-01-31)\np.img: 2 files, 1/16222 clusters\n").IsEmpty());
}

TEST(FsckFindings, BadNamesAndLabels_AreToldApart) {
  const FsckFindings findings = ParseFsckReport(
      "fsck.fat 4.2 (2021-01-31)\n/SUB/.PRO\n"
      "  Bad short file name (.PRO).\n  Auto-renaming it.\n"
      "  Renamed to FSCK0000.000\n"
      "Volume label '' stored in root directory is not valid.\n"
      "  Auto-removing label.\n\nLeaving filesystem unchanged.\n");
  EXPECT_THAT(findings.badNames, ElementsAre("/SUB/.PRO"));
  EXPECT_TRUE(findings.hasBadLabel);
  EXPECT_THAT(findings.others, IsEmpty());
}

TEST(FsckFindings, AnyOtherLine_IsAFault) {
  EXPECT_THAT(
      ParseFsckReport("fsck.fat 4.2 (2021-01-31)\nFATs differ but appear to be intact.\n").others,
      ElementsAre("FATs differ but appear to be intact."));
}

}  // namespace
}  // namespace quorbix::virtdisk::test
