#include "host/stop_signals.h"

#include <time.h>

#include <algorithm>
#include <cerrno>

namespace quorbix::virtdisk::tool {
namespace {

using Clock = std::chrono::steady_clock;

::timespec Until(Clock::time_point deadline) {
  const auto left = std::max(deadline - Clock::now(), Clock::duration::zero());
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
  const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(left - seconds);
  return {static_cast<::time_t>(seconds.count()), static_cast<long>(rest.count())};
}

}  // namespace

StopSignals::StopSignals() {
  ::sigemptyset(&watched);
  ::sigaddset(&watched, SIGINT);
  ::sigaddset(&watched, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &watched, &before);
}

StopSignals::~StopSignals() {
  // Asked to end, the process ends by itself: a second request must not meet it on its way out.
  const ::timespec now{};
  while (arrived && ::sigtimedwait(&watched, nullptr, &now) > 0) {
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

bool StopSignals::WaitFor(std::chrono::milliseconds time) {
  const Clock::time_point deadline = Clock::now() + time;
  while (!arrived) {
    const ::timespec left = Until(deadline);
    if (::sigtimedwait(&watched, nullptr, &left) > 0) {
      arrived = true;
    } else if (errno != EINTR) {
      break;
    }
  }
  return arrived;
}

}  // namespace quorbix::virtdisk::tool
