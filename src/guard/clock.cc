#include "guard/clock.h"

#include <array>

namespace quorbix::virtdisk::internal::guard {

std::int64_t NowNanoseconds() {
  ::timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return ToNanoseconds(now);
}

std::int64_t ToNanoseconds(const ::timespec& time) {
  return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

std::string LocalTimeText(std::int64_t nanoseconds) {
  const auto seconds = static_cast<std::time_t>(nanoseconds / 1'000'000'000);
  std::tm parts{};
  ::localtime_r(&seconds, &parts);
  std::array<char, 32> text{};
  const std::size_t size = std::strftime(text.data(), text.size(), "%Y-%m-%d %H.%M.%S", &parts);
  return {text.data(), size};
}

}  // namespace quorbix::virtdisk::internal::guard
