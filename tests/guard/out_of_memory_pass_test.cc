// A pass that gets no memory, at any of its requests for some, loses nothing, lets no exception out
// and says what was missing; the next one goes on.

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "guard/contents.h"
#include "guard/cut_off_pair.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"
#include "support/child_process.h"
#include "support/memory_folder.h"
#include "support/search_effort.h"
#include "support/temp_folder.h"
#include "support/watched_heap.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

constexpr long kAny = -1;
constexpr int kMostTries = 1000;
constexpr int kTriesInShort = 40;

enum Status { kWentThrough, kSaidSo, kSaidSomethingElse };

class OutOfMemoryPass : public PairToCutOff {
 protected:
  enum class Operation { kPass, kPreview };

  Status Run(Operation operation, long allocations, long failures) {
    const std::vector<GuardedHazard> accepted{GuardedHazard::kImageNotFat16};
    const int status = test::RunInChild({}, [&] {
      const auto sync = CreateGuardedFolderSync(Image(), Host(), options);
      test::AllowAllocations(allocations, failures);
      const GuardedReport report =
          operation == Operation::kPass ? sync->Pass(accepted) : sync->Preview(accepted);
      const bool hasFailed = test::HasFailedAllocation();
      test::AllowAllocations(kAny);
      if (!hasFailed) return kWentThrough;
      const bool says =
          report.outcome == GuardedOutcome::kFailed && report.message == "out of memory";
      return says ? kSaidSo : kSaidSomethingElse;
    });
    EXPECT_LE(status, kSaidSomethingElse);
    return static_cast<Status>(status);
  }

  long CountAllocations(Operation operation) {
    long most = 1;
    while (Run(operation, most, 1) != kWentThrough) {
      most *= 2;
      Begin();
    }
    return most;
  }

  static std::vector<long> SomeUpTo(long most) {
    std::mt19937 random(static_cast<unsigned>(GetParam().number));
    const int tries = test::IsWholeSearch() ? kMostTries : kTriesInShort;
    std::vector<long> some;
    for (int i = 0; i < tries; ++i) {
      some.push_back(static_cast<long>(random() % static_cast<unsigned long>(most)));
    }
    return some;
  }

  void EndAtAnyRequest(long failures) {
    Begin();
    const long most = CountAllocations(Operation::kPass);
    ASSERT_GE(most, 1000);
    int said = 0;
    for (const long allocations : SomeUpTo(most)) {
      SCOPED_TRACE("without memory after " + std::to_string(allocations) + " requests");
      Begin();
      if (Run(Operation::kPass, allocations, failures) == kSaidSo) ++said;
      ExpectMended();
      if (HasFailure()) return;
    }
    EXPECT_GE(said, test::IsWholeSearch() ? 300 : 10);
  }
};

TEST_P(OutOfMemoryPass, NoMemoryOnce_LosesNothingAndIsEndedByTheNext) { EndAtAnyRequest(1); }

TEST_P(OutOfMemoryPass, NoMemoryAnyMore_LosesNothingAndIsEndedByTheNext) {
  EndAtAnyRequest(1'000'000'000);
}

TEST_P(OutOfMemoryPass, PreviewWithoutMemory_SaysSoAndTouchesNothing) {
  Begin();
  const long most = CountAllocations(Operation::kPreview);
  int said = 0;
  for (const long allocations : SomeUpTo(most)) {
    if (Run(Operation::kPreview, allocations, 1'000'000'000) == kSaidSo) ++said;
  }
  EXPECT_GE(said, test::IsWholeSearch() ? 300 : 10);
  EXPECT_EQ(Sides(), before);
  ExpectMended();
}

TEST(OutOfMemoryRestore, AtAnyRequest_SaysSoAndLosesNothing) {
  const test::MemoryFolder memory = test::MemoryFolder::OrOnDisk();
  const std::filesystem::path state = memory.Path() / "state";
  const std::filesystem::path pass = state / "trash/2026-11-21_17.20.05";
  const std::filesystem::path target = memory.Path() / "host/a.txt";
  bool wentThrough = false;
  for (long allocations = 0; !wentThrough && !testing::Test::HasFailure(); ++allocations) {
    SCOPED_TRACE("without memory after " + std::to_string(allocations) + " requests");
    std::filesystem::remove_all(state);
    std::filesystem::create_directories(pass);
    std::filesystem::create_directories(target.parent_path());
    test::WriteWholeFile(pass / "manifest", "item 1 folder deleted a.txt\n");
    test::WriteWholeFile(pass / "1", "of the trash");
    test::WriteWholeFile(target, "there");
    std::string err;
    std::vector<TrashedItem> items;
    const std::string id = "2026-11-21_17.20.05/1";
    test::AllowAllocations(allocations);
    wentThrough = ListTrash(state, items, err) && RestoreTrashedOver(state, id, target, err);
    test::AllowAllocations(kAny);
    EXPECT_TRUE(wentThrough || err == "out of memory") << err;
    Contents after;
    AddFolder(target.parent_path(), after);
    AddTrash(state, after);
    ExpectAllIn({"there", "of the trash"}, after);
    const std::string now = test::ReadWholeFile(target);
    EXPECT_TRUE(now == "of the trash" || (!wentThrough && now == "there")) << now;
  }
}

INSTANTIATE_TEST_SUITE_P(Ways, OutOfMemoryPass,
                         testing::Values(Way{.number = 0, .name = "Renamed"},
                                         Way{.number = 1, .name = "InPlace", .inPlace = true}),
                         [](const auto& way) { return way.param.name; });

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
