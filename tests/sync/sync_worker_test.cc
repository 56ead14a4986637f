// The manager as an application sees it, with real passes on its own thread.

#include <gtest/gtest.h>

#include "quorbix/virtdisk/fat_image_builder.h"
#include "quorbix/virtdisk/folder_sync_manager.h"
#include "support/child_process.h"
#include "support/guest_editor.h"
#include "support/temp_folder.h"
#include "sync/wait_until.h"

namespace quorbix::virtdisk {
namespace {

namespace fs = std::filesystem;
using internal::CountDescriptors;
using internal::CountThreads;
using internal::WaitUntil;
using test::GuestEditor;
using test::RunInChild;
using test::TempFolder;

class SyncWorker : public testing::Test {
 protected:
  SyncWorker() {
    folder.File("host/A.TXT", "a").File("host/B.TXT", "b");
    EXPECT_TRUE(CreateFat16Builder()->Build(folder / "host", folder / "DISK.IMG", 128 * 1024));
  }

  void Start(unsigned int intervalMs) {
    manager->Start(folder / "DISK.IMG", folder / "host", intervalMs);
  }

  bool HostHas(const fs::path& rel, const std::string& content) const {
    return folder.Exists("host" / rel) && folder.Read("host" / rel) == content;
  }

  // The worker may be rewriting the image just now: one that makes no sense has nothing yet.
  bool ImageHas(const std::string& path, const std::string& content) const {
    try {
      const auto files = GuestEditor(folder / "DISK.IMG").Files();
      const auto found = files.find(path);
      return found != files.end() && found->second == content;
    } catch (const std::exception&) {
      return false;
    }
  }

  TempFolder folder;
  std::unique_ptr<IFolderSyncManager> manager = CreateFolderSyncManager();
};

TEST_F(SyncWorker, FreshManager_HasNoThreadAndIsNotRunning) {
  EXPECT_FALSE(manager->IsRunning());
  EXPECT_EQ(CountThreads(), 1u);
}

TEST_F(SyncWorker, SyncNowBeforeStart_DoesNothing) {
  manager->SyncNow();
  EXPECT_FALSE(manager->IsRunning());
}

// A change in the middle of the first pass counts as agreed; later ones only look.
TEST_F(SyncWorker, ChangeInTheImage_ArrivesOnTheHost) {
  Start(5);
  manager->SyncNow();
  GuestEditor guest(folder / "DISK.IMG");
  ASSERT_TRUE(guest.Write("A.TXT", "from the image"));
  guest.Save();
  EXPECT_TRUE(WaitUntil([&] { return HostHas("A.TXT", "from the image"); }));
}

TEST_F(SyncWorker, ChangeOnTheHost_ArrivesInTheImage) {
  Start(5);
  manager->SyncNow();
  folder.File("host/NEW.TXT", "from the host");
  EXPECT_TRUE(WaitUntil([&] { return ImageHas("NEW.TXT", "from the host"); }));
}

TEST_F(SyncWorker, SyncNow_SynchronisesOnTheCallersThread) {
  Start(5);
  manager->Stop();
  folder.File("host/NEW.TXT", "from the host");
  manager->SyncNow();
  EXPECT_TRUE(ImageHas("NEW.TXT", "from the host"));
}

TEST_F(SyncWorker, WorkerAndSyncNowAtOnce_EndInStep) {
  // Made before the first pass: a file that appears in the middle of one counts as agreed.
  for (int i = 0; i < 20; ++i) folder.File("host/N" + std::to_string(i) + ".TXT", "n");
  Start(0);
  for (int i = 0; i < 20; ++i) manager->SyncNow();
  manager->Stop();
  manager->SyncNow();
  EXPECT_EQ(GuestEditor(folder / "DISK.IMG").Files().size(), 22u);
}

TEST_F(SyncWorker, RestartedManager_MergesAnew) {
  Start(5);
  manager->Stop();
  manager->SyncNow();
  folder.Remove("host/A.TXT");
  Start(5);
  manager->Stop();
  manager->SyncNow();
  // Without an agreed state the deletion looks like a file that is new in the image.
  EXPECT_TRUE(HostHas("A.TXT", "a"));
}

TEST_F(SyncWorker, ManyCycles_LeaveNoThreadAndNoDescriptor) {
  const std::size_t threads = CountThreads();
  const std::size_t descriptors = CountDescriptors();
  for (unsigned int i = 0; i < 100; ++i) {
    Start(i % 2);
    manager->Stop();
  }
  EXPECT_TRUE(WaitUntil([&] { return CountThreads() == threads; }));
  EXPECT_EQ(CountDescriptors(), descriptors);
}

TEST_F(SyncWorker, ListingThatFails_LeavesSyncNowAsAnExceptionAndTheManagerUsable) {
  folder.File("host/LOCKED/C.TXT", "c");
  fs::permissions(folder / "host", fs::perms::all);
  fs::permissions(folder / "DISK.IMG", fs::perms::all);
  fs::permissions(folder / "host/LOCKED", fs::perms::none);
  const int status = RunInChild({.dropRoot = true}, [&] {
    Start(60'000);
    try {
      manager->SyncNow();
      return 1;
    } catch (const fs::filesystem_error& e) {
      if (e.code() != std::errc::permission_denied) return 2;
    }
    // The worker's lock is free as well, so that a second pass gets as far as the first.
    try {
      manager->SyncNow();
      return 3;
    } catch (const fs::filesystem_error&) {
    }
    return 0;
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace quorbix::virtdisk
