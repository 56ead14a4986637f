#ifndef QUORBIX_VIRTDISK_TOOL_FAILURE_TALLY_H_
#define QUORBIX_VIRTDISK_TOOL_FAILURE_TALLY_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <tuple>

#include "terminal/console.h"

namespace quorbix::virtdisk::tool {

// Failures that have the same reason. Where there are many, the rest is told as
// "ACTION 3 more: REASON", so neither holds the name of one of them.
struct FailureSort {
  std::string action;
  std::string reason;

  bool operator<(const FailureSort& other) const {
    return std::tie(action, reason) < std::tie(other.action, other.reason);
  }
};

// Tells the console of failures, of the first ten of each sort one by one.
class FailureTally {
 public:
  static constexpr std::uint64_t kMostOfASort = 10;

  explicit FailureTally(Console& theConsole) : console(theConsole) {}

  void Tell(const FailureSort& sort, std::string_view message, std::string_view hint);

  // How many more there were of each sort.
  void TellRest();

 private:
  Console& console;
  std::map<FailureSort, std::uint64_t> counts;
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_FAILURE_TALLY_H_
