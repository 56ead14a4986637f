// Files on which another process holds a lease, as file servers do for their clients: who opens
// them would have to wait, for 45 s at most.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "guard/guarded_pair.h"
#include "support/kept_lease.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using enum GuardedOutcome;

class LeasedFile : public GuardedPair {
 protected:
  void SetUp() override {
    folder.File("host/a.txt", "a").File("host/b.txt", "b");
    BuildAndAgree();
    begin = std::chrono::steady_clock::now();
  }
  ~LeasedFile() override {
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
  }

  std::chrono::steady_clock::time_point begin;
};

TEST_F(LeasedFile, OfTheFolder_IsNotWaitedForButLeftForTheNextPass) {
  folder.File("host/a.txt", "edited");
  {
    const test::KeptLease lease(Host() / "a.txt");
    if (!lease.Holds()) GTEST_SKIP() << "this file system has no leases";
    const GuardedReport report = Sync()->Pass();
    EXPECT_EQ(report.outcome, kNotNow);
    EXPECT_EQ(report.message, "a.txt is being written just now");
    EXPECT_TRUE(lease.WaitUntilAsked());
  }
  EXPECT_EQ(Pass().outcome, kDone);
}

// It is read while the image is made, since nothing has changed in it.
TEST_F(LeasedFile, OfTheFolderThatIsOnlyCopied_IsNotWaitedForEither) {
  folder.File("host/a.txt", "edited");
  {
    const test::KeptLease lease(Host() / "b.txt");
    if (!lease.Holds()) GTEST_SKIP() << "this file system has no leases";
    EXPECT_EQ(Sync()->Pass().outcome, kNotNow);
  }
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnDisk().at("A.TXT"), "edited");
}

TEST_F(LeasedFile, TheImage_IsNotWaitedFor) {
  folder.File("host/a.txt", "edited");
  for (const bool inPlace : {false, true}) {
    options.inPlace = inPlace;
    const test::KeptLease lease(Image());
    if (!lease.Holds()) GTEST_SKIP() << "this file system has no leases";
    EXPECT_EQ(Sync()->Pass().outcome, kNotNow);
  }
  EXPECT_EQ(Pass().outcome, kDone);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
