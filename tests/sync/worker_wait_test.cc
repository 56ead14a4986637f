// How the worker waits: for what deadline, against which wake-ups, and with which lock.

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>

#include "support/next_function.h"
#include "sync/folder_sync_manager.h"
#include "sync/wait_until.h"

namespace {

// The worker's waits as the system sees them.
std::atomic<int> waits = 0;
std::atomic<int> spuriousWakeUps = 0;  // still to come
std::atomic<std::int64_t> firstDeadline = 0;
std::atomic<std::int64_t> lastDeadline = 0;  // nanoseconds of the steady clock
std::atomic<pthread_mutex_t*> waitMutex = nullptr;

}  // namespace

// Stands in front of the C library's function for the whole program.
extern "C" int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                      clockid_t clock, const timespec* deadline) {
  using Function = int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
  static const auto next = quorbix::virtdisk::test::NextOf<Function>("pthread_cond_clockwait");
  lastDeadline = deadline->tv_sec * std::int64_t{1'000'000'000} + deadline->tv_nsec;
  if (waits++ == 0) firstDeadline = lastDeadline.load();
  waitMutex = mutex;
  if (spuriousWakeUps > 0 && spuriousWakeUps-- > 0) return 0;
  return next(condition, mutex, clock, deadline);
}

namespace quorbix::virtdisk::internal {
namespace {

using std::chrono::minutes;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;

class WorkerWait : public testing::Test {
 protected:
  WorkerWait() {
    waits = 0;
    spuriousWakeUps = 0;
    waitMutex = nullptr;
  }
};

TEST_F(WorkerWait, Deadline_IsTheIntervalFromNow) {
  FolderSyncManager manager([](const auto&, const auto&, SyncState&) {});
  const auto before = steady_clock::now();
  manager.Start("image", "host", 600'000);
  ASSERT_TRUE(WaitUntil([] { return waits > 0; }));
  const steady_clock::time_point deadline{nanoseconds(firstDeadline)};
  EXPECT_GE(deadline, before + minutes(10));
  EXPECT_LE(deadline, steady_clock::now() + minutes(10));
  manager.Stop();
}

TEST_F(WorkerWait, WakeUpForNothing_GoesBackToWaitingForTheSameDeadline) {
  std::atomic<int> passes = 0;
  FolderSyncManager manager([&](const auto&, const auto&, SyncState&) { ++passes; });
  spuriousWakeUps = 3;
  manager.Start("image", "host", 600'000);
  ASSERT_TRUE(WaitUntil([] { return waits > 3; }));
  EXPECT_EQ(lastDeadline, firstDeadline);
  EXPECT_EQ(passes, 0);
  manager.Stop();
}

TEST_F(WorkerWait, LockOfTheWait_IsHeldThroughThePass) {
  std::atomic<int> passes = 0;
  std::atomic<int> free = 0;
  FolderSyncManager manager([&](const auto&, const auto&, SyncState&) {
    // From another thread, for which a lock that this one holds is taken.
    std::thread([&] {
      if (::pthread_mutex_trylock(waitMutex) != 0) return;
      ++free;
      ::pthread_mutex_unlock(waitMutex);
    }).join();
    ++passes;
  });
  manager.Start("image", "host", 1);
  ASSERT_TRUE(WaitUntil([&] { return passes >= 3; }));
  manager.Stop();
  EXPECT_EQ(free, 0);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
