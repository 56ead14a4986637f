#include "sync/folder_sync_manager.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/child_process.h"
#include "sync/wait_until.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using test::RunInChild;

constexpr unsigned int kNever = std::numeric_limits<unsigned int>::max();  // 49 days

std::string ThreadName() {
  std::array<char, 16> name{};
  ::pthread_getname_np(::pthread_self(), name.data(), name.size());
  return name.data();
}

bool OnWorker() { return ThreadName() == "fat-sync"; }

// Counts passes, and holds those of SyncNow or of the worker as long as it is told to.
class PassGate {
 public:
  void operator()(const fs::path&, const fs::path&, SyncState&) {
    const bool worker = OnWorker();
    // Outside the gate's own mutex, which would keep passes apart by itself.
    if (inside.exchange(true)) overlap = true;
    std::this_thread::yield();
    std::unique_lock lock(mutex);
    begins.push_back(std::chrono::steady_clock::now());
    ++(worker ? workerPasses : callerPasses);
    changed.notify_all();
    changed.wait(lock, [&] { return !(worker ? holdWorker : holdCaller); });
    ends.push_back(std::chrono::steady_clock::now());
    ++finished;
    inside = false;
    changed.notify_all();
  }

  template <class Condition>
  void Await(Condition&& condition) {
    std::unique_lock lock(mutex);
    ASSERT_TRUE(changed.wait_for(lock, kGenerousLimit, condition));
  }

  template <class Change>
  void Set(Change&& change) {
    const std::lock_guard lock(mutex);
    change();
    changed.notify_all();
  }

  std::mutex mutex;
  std::condition_variable changed;
  bool holdWorker = false;
  bool holdCaller = false;
  std::atomic<bool> inside = false;
  std::atomic<bool> overlap = false;
  std::vector<std::chrono::steady_clock::time_point> begins;
  std::vector<std::chrono::steady_clock::time_point> ends;
  int workerPasses = 0;
  int callerPasses = 0;
  int finished = 0;
};

class ManagerTest : public testing::Test {
 protected:
  PassGate gate;
  FolderSyncManager manager{std::ref(gate)};
};

TEST_F(ManagerTest, FreshManager_IsNotRunning) { EXPECT_FALSE(manager.IsRunning()); }

TEST_F(ManagerTest, Start_MakesItRun) {
  manager.Start("image", "host", 1000);
  EXPECT_TRUE(manager.IsRunning());
}

TEST_F(ManagerTest, StopWithoutStart_ReturnsAtOnce) {
  manager.Stop();
  EXPECT_FALSE(manager.IsRunning());
}

TEST_F(ManagerTest, Stop_EndsTheWorker) {
  manager.Start("image", "host", 0);
  gate.Await([&] { return gate.workerPasses > 0; });
  manager.Stop();
  EXPECT_FALSE(manager.IsRunning());
  const int passes = gate.workerPasses;
  EXPECT_EQ(gate.finished, passes);
  EXPECT_TRUE(WaitUntil([] { return CountThreads() == 1; }));
}

TEST_F(ManagerTest, StopTwice_IsHarmless) {
  manager.Start("image", "host", 0);
  manager.Stop();
  manager.Stop();
  EXPECT_FALSE(manager.IsRunning());
}

TEST_F(ManagerTest, StopDuringALongInterval_WakesTheWorker) {
  manager.Start("image", "host", kNever);
  ASSERT_TRUE(WaitUntil(WorkerSleeps));
  manager.Stop();
  EXPECT_EQ(gate.workerPasses, 0);
}

// The pass holds the worker's lock: a Stop that took it could not even ask before the end.
TEST_F(ManagerTest, StopDuringAPass_AsksAtOnceAndReturnsWhenItHasFinished) {
  gate.holdWorker = true;
  manager.Start("image", "host", 0);
  gate.Await([&] { return gate.workerPasses == 1; });
  std::atomic<bool> stopped = false;
  std::thread stopper([&] {
    manager.Stop();
    stopped = true;
  });
  EXPECT_TRUE(WaitUntil([&] { return !manager.IsRunning(); }));
  EXPECT_FALSE(stopped);
  gate.Set([&] { gate.holdWorker = false; });
  stopper.join();
  EXPECT_EQ(gate.workerPasses, 1);
  EXPECT_EQ(gate.finished, 1);
}

TEST_F(ManagerTest, Start_RunsNoPassBeforeTheInterval) {
  manager.Start("image", "host", kNever);
  ASSERT_TRUE(WaitUntil(WorkerSleeps));
  manager.Stop();
  EXPECT_EQ(gate.finished, 0);
}

TEST_F(ManagerTest, ZeroInterval_RunsPassAfterPass) {
  manager.Start("image", "host", 0);
  gate.Await([&] { return gate.workerPasses >= 100; });
}

TEST_F(ManagerTest, Interval_InMillisecondsPassesBeforeEachPass) {
  const auto start = std::chrono::steady_clock::now();
  manager.Start("image", "host", 30);
  gate.Await([&] { return gate.finished >= 5; });
  manager.Stop();
  EXPECT_GE(gate.begins[0] - start, std::chrono::milliseconds(30));
  for (std::size_t i = 1; i < gate.ends.size(); ++i) {
    EXPECT_GE(gate.begins[i] - gate.ends[i - 1], std::chrono::milliseconds(30));
  }
  EXPECT_LT(gate.ends[4] - start, std::chrono::seconds(20));
}

TEST_F(ManagerTest, StartAfterStop_RunsAgain) {
  manager.Start("image", "host", 0);
  manager.Stop();
  const int before = gate.workerPasses;
  manager.Start("image", "host", 0);
  EXPECT_TRUE(manager.IsRunning());
  gate.Await([&] { return gate.workerPasses > before; });
}

TEST_F(ManagerTest, StartTwice_EndsTheFirstWorker) {
  manager.Start("image", "host", 0);
  manager.Start("image", "host", 0);
  EXPECT_TRUE(manager.IsRunning());
  gate.Await([&] { return gate.workerPasses > 0; });
  EXPECT_TRUE(WaitUntil([] { return CountThreads() == 2; }));
}

TEST_F(ManagerTest, SyncNow_RunsOnTheCallersThreadWithoutAWorker) {
  manager.SyncNow();
  EXPECT_EQ(gate.callerPasses, 1);
}

TEST_F(ManagerTest, SyncNow_RunsBesideASleepingWorker) {
  manager.Start("image", "host", kNever);
  ASSERT_TRUE(WaitUntil(WorkerSleeps));
  manager.SyncNow();
  EXPECT_EQ(gate.callerPasses, 1);
  EXPECT_TRUE(manager.IsRunning());
}

TEST_F(ManagerTest, SyncNowAfterStop_StillWorks) {
  manager.Start("image", "host", 0);
  manager.Stop();
  manager.SyncNow();
  EXPECT_EQ(gate.callerPasses, 1);
}

TEST_F(ManagerTest, SyncNowDuringAPassOfTheWorker_WaitsAndRunsItsOwn) {
  gate.holdWorker = true;
  manager.Start("image", "host", 0);
  gate.Await([&] { return gate.workerPasses == 1; });
  std::thread caller([&] { manager.SyncNow(); });
  gate.Set([&] { gate.holdWorker = false; });
  caller.join();
  manager.Stop();
  EXPECT_EQ(gate.callerPasses, 1);
  EXPECT_FALSE(gate.overlap);
}

TEST_F(ManagerTest, CycleDuringASyncNow_IsSkippedAndNotPostponed) {
  manager.Start("image", "host", 0);
  gate.Await([&] { return gate.workerPasses > 0; });
  gate.Set([&] { gate.holdCaller = true; });
  std::thread caller([&] { manager.SyncNow(); });
  gate.Await([&] { return gate.callerPasses == 1; });
  const int before = gate.workerPasses;
  // Without a pause between cycles, this is time for many; none may run, now or later.
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  manager.Stop();  // a worker that queued for the mutex would hang here
  EXPECT_EQ(gate.workerPasses, before);
  gate.Set([&] { gate.holdCaller = false; });
  caller.join();
  EXPECT_FALSE(gate.overlap);
}

TEST_F(ManagerTest, SyncNowFromSeveralThreads_NeverOverlaps) {
  manager.Start("image", "host", 0);
  std::vector<std::thread> callers;
  for (int i = 0; i < 4; ++i) {
    callers.emplace_back([&] {
      for (int j = 0; j < 50; ++j) manager.SyncNow();
    });
  }
  for (std::thread& caller : callers) caller.join();
  manager.Stop();
  EXPECT_EQ(gate.callerPasses, 200);
  EXPECT_FALSE(gate.overlap);
}

TEST(FolderSyncManager, Destruction_EndsARunningWorker) {
  PassGate gate;
  {
    FolderSyncManager manager{std::ref(gate)};
    manager.Start("image", "host", 0);
    gate.Await([&] { return gate.workerPasses > 0; });
  }
  EXPECT_EQ(gate.finished, gate.workerPasses);
  EXPECT_TRUE(WaitUntil([] { return CountThreads() == 1; }));
}

TEST(FolderSyncManager, Pass_GetsThePathsOfStart) {
  fs::path image;
  fs::path host;
  FolderSyncManager manager([&](const fs::path& i, const fs::path& h, SyncState&) {
    image = i;
    host = h;
  });
  manager.SyncNow();
  EXPECT_EQ(image, "");
  EXPECT_EQ(host, "");
  manager.Start("./a/../disk.img", "host/", kNever);
  ASSERT_TRUE(WaitUntil(WorkerSleeps));
  manager.SyncNow();
  EXPECT_EQ(image.native(), "./a/../disk.img");
  EXPECT_EQ(host.native(), "host/");
}

TEST(FolderSyncManager, Start_ForgetsTheAgreedState) {
  std::vector<SyncState> seen;
  FolderSyncManager manager([&](const fs::path&, const fs::path&, SyncState& state) {
    seen.push_back(state);
    state = {.baseline = {{"a", {}}},
             .lastImageWriteTime = fs::file_time_type::max(),
             .lastImageSize = 1,
             .lastHostSignature = 2};
  });
  manager.SyncNow();
  manager.SyncNow();
  manager.Start("image", "host", kNever);
  ASSERT_TRUE(WaitUntil(WorkerSleeps));
  manager.SyncNow();
  ASSERT_EQ(seen.size(), 3u);
  EXPECT_EQ(seen[1].lastImageSize, 1u);  // kept from pass to pass
  for (const std::size_t fresh : {0u, 2u}) {
    EXPECT_TRUE(seen[fresh].baseline.empty());
    EXPECT_EQ(seen[fresh].lastImageWriteTime, fs::file_time_type::min());
    EXPECT_EQ(seen[fresh].lastImageSize, 0u);
    EXPECT_EQ(seen[fresh].lastHostSignature, 0u);
  }
}

TEST(FolderSyncManager, ExceptionOfSyncNow_ReachesTheCallerWithTheLockReleased) {
  int passes = 0;
  FolderSyncManager manager([&](const fs::path&, const fs::path&, SyncState&) {
    if (++passes == 1) throw std::runtime_error("first");
  });
  EXPECT_THROW(manager.SyncNow(), std::runtime_error);
  manager.SyncNow();
  EXPECT_EQ(passes, 2);
}

TEST(FolderSyncManager, ExceptionOnTheWorker_EndsTheProcess) {
  const int status = RunInChild({}, [] {
    FolderSyncManager manager([](const fs::path&, const fs::path&, SyncState&) {
      throw std::runtime_error("meant to end this child process");
    });
    manager.Start("image", "host", 0);
    while (true) ::pause();
    return 0;
  });
  EXPECT_EQ(status, 256 + SIGABRT);
}

TEST(FolderSyncManager, FiveHundredCycles_LeaveNoThreadAndNoDescriptor) {
  const std::size_t threads = CountThreads();
  const std::size_t descriptors = CountDescriptors();
  PassGate gate;
  FolderSyncManager manager{std::ref(gate)};
  for (unsigned int i = 0; i < 500; ++i) {
    manager.Start("image", "host", i % 2);
    manager.Stop();
  }
  EXPECT_TRUE(WaitUntil([&] { return CountThreads() == threads; }));
  EXPECT_EQ(CountDescriptors(), descriptors);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
