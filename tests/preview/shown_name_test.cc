#include "preview/shown_name.h"

#include <gtest/gtest.h>

namespace quorbix::virtdisk::internal {
namespace {

TEST(ShownName, BaseAndExtension_ArePartedByADot) {
  EXPECT_EQ(ShownName("README  TXT"), "README.TXT");
  EXPECT_EQ(ShownName("ABCDEFGHIJK"), "ABCDEFGH.IJK");
  EXPECT_EQ(ShownName("A       B  "), "A.B");
}

TEST(ShownName, BlankExtension_HasNoDot) { EXPECT_EQ(ShownName("MAKEFILE   "), "MAKEFILE"); }

TEST(ShownName, BlanksBeforeATail_Stay) { EXPECT_EQ(ShownName("AB    ~1TXT"), "AB    ~1.TXT"); }

TEST(ShownName, BlankBase_IsTheExtensionBehindItsDot) {
  EXPECT_EQ(ShownName("        PRO"), ".PRO");
  EXPECT_TRUE(HasBlankBase("        PRO"));
  EXPECT_FALSE(HasBlankBase("      ~1PRO"));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
