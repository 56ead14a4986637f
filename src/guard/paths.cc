#include "guard/paths.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace quorbix::virtdisk::internal::guard {
namespace {

constexpr std::string_view kPrefix = ".quorbix-";
constexpr std::string_view kSuffix = ".tmp";
constexpr std::string_view kPlainSuffix = ".quorbix_tmp";

std::string NewName() {
  static std::atomic<std::uint32_t> count{0};
  const auto now = std::chrono::system_clock::now().time_since_epoch().count();
  std::string name(kPrefix);
  for (const std::uint64_t part :
       {static_cast<std::uint64_t>(now), static_cast<std::uint64_t>(::getpid()),
        static_cast<std::uint64_t>(++count)}) {
    std::array<char, 16> digits{};
    char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), part, 16).ptr;
    name.append(digits.data(), end);
    name += '-';
  }
  name.pop_back();
  return name;
}

}  // namespace

bool IsTemporaryName(std::string_view name) {
  return IsOwnTemporaryName(name) || name.ends_with(kPlainSuffix);
}

bool IsOwnTemporaryName(std::string_view name) {
  return name.size() > kPrefix.size() + kSuffix.size() && name.starts_with(kPrefix) &&
         name.ends_with(kSuffix);
}

bool IsOfAnotherProcess(std::string_view ownTemporaryName) {
  std::string_view parts = ownTemporaryName.substr(kPrefix.size());
  parts.remove_prefix(std::min(parts.find('-'), parts.size()));  // the time
  if (parts.empty()) return false;
  ::pid_t process = 0;
  std::from_chars(parts.data() + 1, parts.data() + parts.size(), process, 16);
  if (process <= 0 || process == ::getpid()) return false;
  return ::kill(process, 0) == 0 || errno == EPERM;
}

bool StaysInside(std::string_view path) {
  if (path.find('\0') != std::string_view::npos) return false;
  for (;;) {
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string_view element = path.substr(0, end);
    if (element.empty() || element == "." || element == "..") return false;
    if (end == path.size()) return true;
    path.remove_prefix(end + 1);
  }
}

std::string NewTemporaryName() { return NewName().append(kSuffix); }

std::string NewRestoreName() { return NewName().append(kPlainSuffix); }

}  // namespace quorbix::virtdisk::internal::guard
