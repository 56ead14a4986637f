// Bringing something back over what is there, killed or refused at any of its calls.

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>

#include "guard/contents.h"
#include "guard/cut_off.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"
#include "support/child_process.h"
#include "support/memory_folder.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

namespace fs = std::filesystem;
using test::Die;

constexpr int kToTheEnd = 1'000'000;

// A file of the trash in the place of another one, with and without a file system that can exchange
// names, and where the trash cannot have a second name for it.
struct Restoration {
  const char* name;
  bool canExchange = true;
  bool canLink = true;
};

class CutOffRestore : public testing::TestWithParam<Restoration> {
 protected:
  void Begin() {
    fs::remove_all(Root());
    fs::create_directories(Root() / "state/trash/2026-11-21_17.20.05");
    const fs::path trash = Root() / "state/trash/2026-11-21_17.20.05";
    test::WriteWholeFile(trash / "manifest", "item 1 folder deleted a.txt\n");
    test::WriteWholeFile(trash / "1", "of the trash");
    fs::create_directories(Root() / "host");
    test::WriteWholeFile(Target(), "there");
  }

  // Whether it ended before the call at which something was to happen.
  bool RestoreToTheEnd(int calls, const std::function<int()>& atCall) {
    const int status = test::RunInChild({}, [&] {
      test::callsBeforeTheEnd = calls;
      test::atThatCall = atCall;
      test::canExchange = GetParam().canExchange;
      test::canLink = GetParam().canLink;
      static_cast<void>(Restore());
      return test::callsBeforeTheEnd >= 0 ? 0 : 1;
    });
    EXPECT_TRUE(status == 0 || status == 1 || status == 256 + SIGKILL) << status;
    return status == 0;
  }

  bool Restore() const {
    std::string ignored;
    return RestoreTrashedOver(Root() / "state", "2026-11-21_17.20.05/1", Target(), ignored);
  }

  int EndAtEveryCall(const std::function<int()>& atCall) {
    countsOpenings = true;
    int calls = 0;
    for (bool ended = false; !ended && !HasFailure(); ++calls) {
      SCOPED_TRACE("at call " + std::to_string(calls));
      Begin();
      ended = RestoreToTheEnd(calls, atCall);
      const std::string now = test::ReadWholeFile(Target());
      EXPECT_TRUE(now == "there" || now == "of the trash") << now;
      EXPECT_TRUE(!ended || now == "of the trash");
      ExpectNothingGone(now);
      RestoreToTheEnd(kToTheEnd, atCall);
      EXPECT_EQ(test::ReadWholeFile(Target()), "of the trash");
      ExpectNothingGone(now);
    }
    return calls;
  }

  // What is left beside the file can be deleted, as the docs say.
  void ExpectNothingGone(const std::string& now) {
    for (const auto& entry : fs::directory_iterator(Root() / "host")) {
      if (entry.path() != Target()) fs::remove(entry.path());
    }
    Contents after{now};
    AddFolder(Root() / "host", after);
    AddTrash(Root() / "state", after);
    ExpectAllIn({"there", "of the trash"}, after);
  }

  fs::path Root() const { return memory.Path() / "restore"; }
  fs::path Target() const { return Root() / "host/a.txt"; }

  test::MemoryFolder memory = test::MemoryFolder::OrOnDisk();
};

TEST_P(CutOffRestore, KilledAtAnyCall_LosesNothing) { EXPECT_GE(EndAtEveryCall(Die), 20); }

TEST_P(CutOffRestore, FullDiskAtAnyCall_LosesNothing) {
  EXPECT_GE(EndAtEveryCall([] { return ENOSPC; }), 20);
}

TEST_P(CutOffRestore, NoPermissionAtAnyCall_LosesNothing) {
  EXPECT_GE(EndAtEveryCall([] { return EACCES; }), 20);
}

INSTANTIATE_TEST_SUITE_P(Ways, CutOffRestore,
                         testing::Values(Restoration{.name = "Exchanged"},
                                         Restoration{.name = "WithoutExchange",
                                                     .canExchange = false},
                                         Restoration{.name = "WithoutLinks", .canLink = false}),
                         [](const auto& way) { return way.param.name; });

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
