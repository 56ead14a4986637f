#include "terminal/failure_tally.h"

#include "terminal/text.h"

namespace quorbix::virtdisk::tool {

void FailureTally::Tell(const FailureSort& sort, std::string_view message, std::string_view hint) {
  if (++counts[sort] <= kMostOfASort) Fail(console, message, hint);
}

void FailureTally::TellRest() {
  for (const auto& [sort, count] : counts) {
    if (count <= kMostOfASort) continue;
    Fail(console, sort.action + " " + GroupDigits(count - kMostOfASort) + " more: " + sort.reason,
         "--json names every one.");
  }
}

}  // namespace quorbix::virtdisk::tool
