#include "interop/fsck_findings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quorbix::virtdisk::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(FsckFindings, CleanReport_HasNone) {
  EXPECT_THAT(UnexpectedFindings("fsck.fat 4.2 (2021-01-31)\np.img: 2 files, 1/16222 clusters\n"),
              IsEmpty());
}

TEST(FsckFindings, BlankBaseAndOddLabel_AreExpected) {
  EXPECT_THAT(UnexpectedFindings("fsck.fat 4.2 (2021-01-31)\n/SUB/.PRO\n"
                                 "  Bad short file name (.PRO).\n  Auto-renaming it.\n"
                                 "  Renamed to FSCK0000.000\n"
                                 "Volume label '' stored in root directory is not valid.\n"
                                 "  Auto-removing label.\n\nLeaving filesystem unchanged.\n"),
              IsEmpty());
}

TEST(FsckFindings, OtherBadNames_AreNot) {
  EXPECT_THAT(UnexpectedFindings("/A B.PRO\n  Bad short file name (A B.PRO).\n"),
              ElementsAre("/A B.PRO", "  Bad short file name (A B.PRO)."));
}

TEST(FsckFindings, AnyOtherLine_IsNot) {
  EXPECT_THAT(
      UnexpectedFindings("fsck.fat 4.2 (2021-01-31)\nFATs differ but appear to be intact.\n"),
      ElementsAre("FATs differ but appear to be intact."));
}

}  // namespace
}  // namespace quorbix::virtdisk::test
