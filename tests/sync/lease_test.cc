// Files under another process's lease: whoever opens them waits until the lease is given back.

#include <gtest/gtest.h>

#include "support/lease_holder.h"
#include "sync/host_scan.h"
#include "sync/host_write.h"
#include "sync/synced_disk.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::GuestEditor;
using test::LeaseHolder;

using LeasedFile = SyncedDisk;

#define NEED_LEASE(holder) \
  if (!(holder).Holds()) GTEST_SKIP() << "this file system has no leases"

TEST_F(LeasedFile, Scan_WaitsAndTakesIt) {
  folder.File("host/A.TXT", "a").File("host/B.TXT", "b");
  LeaseHolder holder(Host() / "A.TXT");
  NEED_LEASE(holder);
  HostSnapshot snapshot;
  std::string error;

  ScanHostFiles(Host(), snapshot, error);

  EXPECT_TRUE(holder.WasAsked());
  EXPECT_EQ(snapshot.files.size(), 2u);
  EXPECT_TRUE(VersionsOf(snapshot).contains("a.txt"));
}

TEST_F(LeasedFile, IdlePass_WaitsAndTakesNothingForDeleted) {
  folder.File("host/A.TXT", "a");
  BuildAndAgree();
  const auto image = test::ReadBytes(Image());
  LeaseHolder holder(Host() / "A.TXT");
  NEED_LEASE(holder);

  Pass();

  EXPECT_TRUE(holder.WasAsked());
  EXPECT_EQ(test::ReadBytes(Image()), image);
  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", "a"}}));
}

TEST_F(LeasedFile, PassThatRebuilds_CarriesIt) {
  folder.File("host/A.TXT", "a").File("host/B.TXT", "b");
  BuildAndAgree();
  folder.File("host/B.TXT", "new");
  LeaseHolder holder(Host() / "A.TXT");
  NEED_LEASE(holder);

  Pass();

  EXPECT_TRUE(holder.WasAsked());
  EXPECT_EQ(InImage(), (FileTree{{"A.TXT", "a"}, {"B.TXT", "new"}}));
}

TEST_F(LeasedFile, PassThatCopiesToTheHost_ReplacesIt) {
  folder.File("host/A.TXT", "a");
  BuildAndAgree();
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Write("A.TXT", "new"));
  guest.Save();
  LeaseHolder holder(Host() / "A.TXT");
  NEED_LEASE(holder);

  Pass();

  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", "new"}}));
}

TEST_F(LeasedFile, InTheTemporarysPlace_IsWaitedForAndTruncated) {
  folder.File("host/A.TXT.quorbix_tmp", "an old temporary");
  LeaseHolder holder(Host() / "A.TXT.quorbix_tmp");
  NEED_LEASE(holder);
  std::string err;

  EXPECT_TRUE(WriteFileAtomically(Host() / "A.TXT", {'n', 'e', 'w'}, err)) << err;

  EXPECT_TRUE(holder.WasAsked());
  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", "new"}}));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
