#include "support/clock_ahead.h"

#include <time.h>

#include "support/next_function.h"

namespace quorbix::virtdisk::test {

int secondsAhead = 0;

}  // namespace quorbix::virtdisk::test

// Stands in front of the C library's function for the whole program.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  using namespace quorbix::virtdisk::test;
  const int result = NextOf<int(clockid_t, timespec*)>("clock_gettime")(clock, time);
  if (clock == CLOCK_REALTIME) time->tv_sec += secondsAhead;
  return result;
}
