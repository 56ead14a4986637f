#include "guard/clock.h"

#include <algorithm>
#include <array>

namespace quorbix::virtdisk::internal::guard {
namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
// Half of what 64 bits hold, so that differences of two times fit as well: from 1823 to 2116. File
// systems know times beyond; two of these are the same one here.
constexpr std::int64_t kMostSeconds = (std::int64_t{1} << 62) / kNanosecondsPerSecond - 1;

}  // namespace

std::int64_t NowNanoseconds() {
  ::timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return ToNanoseconds(now);
}

std::int64_t ToNanoseconds(const ::timespec& time) {
  const std::int64_t seconds = std::clamp<std::int64_t>(time.tv_sec, -kMostSeconds, kMostSeconds);
  return seconds * kNanosecondsPerSecond + time.tv_nsec;
}

std::string LocalTimeText(std::int64_t nanoseconds) {
  const auto seconds = static_cast<std::time_t>(nanoseconds / kNanosecondsPerSecond);
  std::tm parts{};
  ::localtime_r(&seconds, &parts);
  std::array<char, 32> text{};
  const std::size_t size = std::strftime(text.data(), text.size(), "%Y-%m-%d %H.%M.%S", &parts);
  return {text.data(), size};
}

}  // namespace quorbix::virtdisk::internal::guard
