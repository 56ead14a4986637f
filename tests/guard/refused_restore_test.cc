// Bringing back what somebody is in the way of.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "guard/refusals.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using namespace test;
using testing::ElementsAre;
using testing::HasSubstr;
using enum GuardedOutcome;

class RefusedRestore : public RefusedCall {
 protected:
  void SetUp() override {
    folder.File("host/a.txt", "old");
    BuildAndAgree();
    GuestWrites("A.TXT", "new");
    ASSERT_EQ(Pass().outcome, kDone);
    std::vector<TrashedItem> items;
    ASSERT_TRUE(ListTrash(StateFolder(), items, err)) << err;
    ASSERT_EQ(items.size(), 1u);
    id = items[0].id;
  }

  bool Restore() {
    const bool done = RestoreTrashed(StateFolder(), id, folder / "made/deep/old.txt", err);
    answer = nullptr;
    return done;
  }

  // Just before it is made.
  static void Precede(const std::string& place, const std::function<void()>& other,
                      const Answer& otherwise = {}) {
    answer = [=](std::string_view call, const std::string& path) {
      if (call == "mkdir" && path == place) other();
      return otherwise ? otherwise(call, path) : 0;
    };
  }

  std::string id;
  std::string err;
};

TEST_F(RefusedRestore, FolderThatSomebodyElseMakesMeanwhile_IsUsed) {
  Precede(folder / "made", [&] { folder.File("made/theirs", "t"); });
  EXPECT_TRUE(Restore()) << err;
  EXPECT_EQ(folder.Files("made"), (FileTree{{"deep/old.txt", "old"}, {"theirs", "t"}}));
}

TEST_F(RefusedRestore, FolderThatSomebodyElseMakesMeanwhile_IsNotTakenAwayAgain) {
  Precede(
      folder / "made", [&] { folder.Folder("made"); },
      [](std::string_view call, const std::string&) { return call == "openat" ? ENOSPC : 0; });
  EXPECT_FALSE(Restore());
  EXPECT_THAT(err, HasSubstr("No space left on device"));
  EXPECT_TRUE(folder.Exists("made"));
  EXPECT_FALSE(folder.Exists("made/deep"));
}

TEST_F(RefusedRestore, FileThatSomebodyElsePutsInTheWay_Stays) {
  Precede(folder / "made/deep", [&] { folder.File("made/deep", "theirs"); });
  EXPECT_FALSE(Restore());
  EXPECT_THAT(err, HasSubstr("Not a directory"));
  EXPECT_EQ(folder.Read("made/deep"), "theirs");
  EXPECT_THAT(NamesIn(folder / "made"), ElementsAre("deep"));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
