#include "builder/build_identity.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <system_error>

namespace quorbix::virtdisk::internal {
namespace fs = std::filesystem;

namespace {

constexpr std::uint32_t kSequenceSpread = 0x9E3779B9;  // 2^32 divided by the golden ratio
constexpr std::uint32_t kZeroReplacement = 0xDA7E1234;
constexpr std::chrono::milliseconds kStampStep{1};

fs::file_time_type TakeStamp() {
  static std::mutex lastStampMutex;
  static std::optional<fs::file_time_type> lastStamp;
  const std::lock_guard lock(lastStampMutex);
  lastStamp = NextStamp(fs::file_time_type::clock::now(), lastStamp);
  return *lastStamp;
}

}  // namespace

std::uint32_t VolumeIdFor(std::uint32_t sequence, std::uint64_t nanoseconds) {
  const std::uint32_t id = sequence * kSequenceSpread ^ static_cast<std::uint32_t>(nanoseconds);
  return id != 0 ? id : sequence ^ kZeroReplacement;
}

std::uint32_t GenerateVolumeId() {
  static std::atomic<std::uint32_t> seq{0};
  const std::uint32_t sequence = ++seq;
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch).count();
  return VolumeIdFor(sequence, static_cast<std::uint64_t>(nanoseconds));
}

fs::file_time_type NextStamp(fs::file_time_type now, std::optional<fs::file_time_type> previous) {
  if (!previous) return now;
  const fs::file_time_type earliest = *previous + kStampStep;
  return now > earliest ? now : earliest;
}

void StampOutputImageMtime(const fs::path& outputImage) {
  std::error_code ignored;
  fs::last_write_time(outputImage, TakeStamp(), ignored);
}

}  // namespace quorbix::virtdisk::internal
