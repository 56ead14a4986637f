// A machine on which the kernel does not tell of changes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/inotify.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

#include "support/guest_editor.h"
#include "support/temp_folder.h"
#include "tools/built_program.h"
#include "tools/program_run.h"

// Stands in front of the C library's function for the whole program.
extern "C" int inotify_init1(int /*flags*/) noexcept {
  errno = EMFILE;
  return -1;
}

namespace quorbix::virtdisk::test {
namespace {

TEST(SyncWithoutWatches, LooksEveryFiveSecondsAndSaysSo) {
  TempFolder folder;
  folder.File("DISK/A.TXT", "a");
  const std::string image = (folder / "disk.img").string();
  const std::string disk = (folder / "DISK").string();
  ASSERT_EQ(RunVirtdisk({"build", disk, image}).status, 0);
  ProgramRun run;
  std::thread sync([&] { run = RunVirtdisk({"sync", image, disk, "--settle", "0"}); });
  EXPECT_TRUE(WaitFor([&] { return folder.Exists("disk.img.sync/state"); }));
  const auto began = std::chrono::steady_clock::now();
  folder.File("DISK/A.TXT", "edited");
  EXPECT_TRUE(WaitFor([&] { return GuestEditor(image).Files().at("A.TXT") == "edited"; }));
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(8));
  ::pthread_kill(sync.native_handle(), SIGTERM);
  sync.join();
  EXPECT_EQ(run.status, 128 + SIGTERM);
  EXPECT_EQ(run.err,
            "Keeping " + image + " and " + disk + " in step; Ctrl-C ends it.\n" +
                "virtdisk: warning: the kernel does not tell of changes (Too many open files): "
                "looking every 5 s\n");
}

}  // namespace
}  // namespace quorbix::virtdisk::test
