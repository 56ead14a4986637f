#include "host/stop_flag.h"

#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

#include "terminal/exit_status.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::array<int, 3> kStopSignals{SIGINT, SIGTERM, SIGHUP};

std::atomic<bool> flag{false};
std::atomic<int> arrived{0};  // the first signal's number
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

void Note(int signal) {
  int none = 0;
  arrived.compare_exchange_strong(none, signal);
  flag = true;
}

::sigset_t FlagSet() {
  ::sigset_t set;
  ::sigemptyset(&set);
  for (const int signal : kStopSignals) ::sigaddset(&set, signal);
  return set;
}

}  // namespace

StopFlag::StopFlag() {
  flag = false;
  arrived = 0;
  struct ::sigaction action {};
  action.sa_handler = Note;
  for (std::size_t i = 0; i < kStopSignals.size(); ++i) {
    ::sigaction(kStopSignals[i], nullptr, &before[i]);
    if (before[i].sa_handler != SIG_IGN) ::sigaction(kStopSignals[i], &action, nullptr);
  }
}

StopFlag::~StopFlag() {
  for (std::size_t i = 0; i < kStopSignals.size(); ++i) {
    ::sigaction(kStopSignals[i], &before[i], nullptr);
  }
}

const std::atomic<bool>& StopFlag::Flag() { return flag; }

int StopFlag::ExitStatus() { return arrived == 0 ? 0 : kEndedBySignal + arrived; }

bool StopFlag::WaitFor(int other, std::chrono::milliseconds time) {
  const auto deadline = std::chrono::steady_clock::now() + time;
  // A signal that comes between the look at the flag and the wait has to end the wait.
  const ::sigset_t held = FlagSet();
  ::sigset_t usual;
  ::pthread_sigmask(SIG_BLOCK, &held, &usual);
  bool readable = false;
  while (!flag && !readable) {
    const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) break;
    constexpr long kBillion = 1'000'000'000;
    const ::timespec wait{static_cast<::time_t>(left.count() / kBillion), left.count() % kBillion};
    ::pollfd watched{other, POLLIN, 0};
    readable = ::ppoll(&watched, 1, &wait, &usual) > 0;
  }
  ::pthread_sigmask(SIG_SETMASK, &usual, nullptr);
  return readable && !flag;
}

}  // namespace quorbix::virtdisk::tool
