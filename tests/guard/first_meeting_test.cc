// What a first meeting looks at behind links that take no part.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <string_view>

#include "guard/refusals.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

namespace fs = std::filesystem;
using namespace test;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;
using enum GuardedOutcome;

class FirstMeetingTest : public RefusedCall {
 protected:
  // The paths that were opened behind "outside".
  std::set<std::string> OpenedOutside() {
    std::set<std::string> opened;
    answer = [&](std::string_view call, const std::string& path) {
      const std::string real = fs::weakly_canonical(path);
      if (call == "open" && real.starts_with(outside.Path().string())) opened.insert(real);
      return 0;
    };
    EXPECT_EQ(Sync()->Pass().outcome, kNothingToDo);
    answer = nullptr;
    return opened;
  }

  TempFolder outside;
};

TEST_F(FirstMeetingTest, LinkToAFolderThatTheDiskDoesNotHave_IsNotFollowed) {
  folder.File("host/a.txt", "a");
  BuildImage();
  outside.File("deep/b.txt", "b");
  fs::create_directory_symlink(outside.Path(), Host() / "link");
  EXPECT_THAT(OpenedOutside(), IsEmpty());
}

TEST_F(FirstMeetingTest, LinkToAFolderThatTheDiskHas_IsLookedAtAsFarAsTheDiskGoes) {
  folder.File("host/a.txt", "a");
  outside.File("deep/b.txt", "b").File("c.txt", "c");
  fs::create_directory_symlink(outside.Path(), Host() / "link");
  BuildImage();
  outside.File("new/d.txt", "d").File("c2.txt", "c");
  const std::set<std::string> opened = OpenedOutside();
  EXPECT_THAT(opened, Contains((outside / "deep/b.txt").string()));
  EXPECT_THAT(opened, Not(Contains((outside / "new").string())));
  EXPECT_THAT(opened, Not(Contains((outside / "c2.txt").string())));
}

// Its size is 0 to the system, and there is no end to it.
TEST_F(FirstMeetingTest, LinkToWhatTheSystemMakesUp_IsNotRead) {
  folder.File("host/a.txt", "a");
  BuildImage();
  fs::create_symlink("/proc/self/pagemap", Host() / "pages");
  fs::create_symlink("/proc/self/pagemap", Host() / "a");
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
