#ifndef QUORBIX_VIRTDISK_TESTS_SYNC_WAIT_UNTIL_H_
#define QUORBIX_VIRTDISK_TESTS_SYNC_WAIT_UNTIL_H_

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

namespace quorbix::virtdisk::internal {

inline constexpr std::chrono::seconds kGenerousLimit{60};

// Looks at a condition that nobody announces until it holds. False after the generous limit.
template <class Condition>
bool WaitUntil(Condition&& condition) {
  const auto limit = std::chrono::steady_clock::now() + kGenerousLimit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

inline std::size_t CountEntries(const char* folder) {
  const std::filesystem::directory_iterator entries(folder);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

// ThreadSanitizer keeps a thread of its own, from the first one on that the process starts.
inline std::size_t CountThreads() {
#if defined(__SANITIZE_THREAD__)
  static const bool hasIt = [] {
    std::thread([] {}).join();
    return WaitUntil([] { return CountEntries("/proc/self/task") == 2; });
  }();
  return CountEntries("/proc/self/task") - (hasIt ? 1 : 0);
#else
  return CountEntries("/proc/self/task");
#endif
}

inline std::size_t CountDescriptors() { return CountEntries("/proc/self/fd"); }

// Whether a thread named "fat-sync" waits in the system: from its naming on it does so only between
// passes.
inline bool WorkerSleeps() {
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream in(task.path() / "stat");
    std::string stat;
    std::getline(in, stat);
    if (stat.find("(fat-sync) S") != std::string::npos) return true;
  }
  return false;
}

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_TESTS_SYNC_WAIT_UNTIL_H_
