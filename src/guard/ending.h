#ifndef QUORBIX_VIRTDISK_GUARD_ENDING_H_
#define QUORBIX_VIRTDISK_GUARD_ENDING_H_

#include <filesystem>
#include <string>
#include <utility>

#include "guard/system_text.h"

namespace quorbix::virtdisk::internal::guard {

// How a part of a pass ended.
struct Ending {
  enum class Result {
    kDone,
    kBusy,    // somebody has changed something since it was looked at, as `text` tells
    kFailed,  // the host refused something, as `text` tells
    kStopped,
  };
  Result result = Result::kDone;
  std::string text{};

  static Ending Busy(std::string text) { return {Result::kBusy, std::move(text)}; }
  static Ending Failed(std::string text) { return {Result::kFailed, std::move(text)}; }
  static Ending Stopped() { return {Result::kStopped, "it was stopped"}; }

  bool IsDone() const { return result == Result::kDone; }
};

// What the host has refused, with what the system says about the error in errno:
// "cannot read a.txt (Permission denied)".
inline Ending Cannot(const std::string& doWhat, const std::filesystem::path& path) {
  return Ending::Failed("cannot " + doWhat + ' ' + path.native() + " (" + SystemText() + ")");
}

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_ENDING_H_
