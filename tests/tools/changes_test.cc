#include "commands/changes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace quorbix::virtdisk::tool {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> Changes(const Listing& before, const Listing& after) {
  std::vector<std::string> lines;
  for (const Change& change : Compare(before, after)) {
    lines.push_back(change.path + " " + Describe(change.kind));
  }
  return lines;
}

TEST(Compare, EqualListings_HaveNoChanges) {
  EXPECT_THAT(Changes({{"A", {1, 2}}}, {{"A", {1, 2}}}), IsEmpty());
  EXPECT_THAT(Changes({}, {}), IsEmpty());
}

TEST(Compare, NewFile_IsNew) {
  EXPECT_THAT(Changes({{"B", {}}}, {{"A", {}}, {"B", {}}, {"C", {}}}),
              ElementsAre("A new", "C new"));
}

TEST(Compare, MissingFile_IsDeleted) {
  EXPECT_THAT(Changes({{"A", {}}, {"B", {}}, {"C", {}}}, {{"B", {}}}),
              ElementsAre("A deleted", "C deleted"));
}

TEST(Compare, OtherSizeOrContent_IsChanged) {
  EXPECT_THAT(Changes({{"A", {1, 2}}, {"B", {1, 2}}}, {{"A", {2, 2}}, {"B", {1, 3}}}),
              ElementsAre("A changed", "B changed"));
}

TEST(Compare, Renaming_IsADeletionAndANewFile) {
  EXPECT_THAT(Changes({{"A", {1, 2}}}, {{"B", {1, 2}}}), ElementsAre("A deleted", "B new"));
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
