#ifndef QUORBIX_VIRTDISK_COMMON_ASCII_H_
#define QUORBIX_VIRTDISK_COMMON_ASCII_H_

#include <algorithm>
#include <string>

namespace quorbix::virtdisk::internal {

// Disks mean the same whatever locale the process has set, so the classification and conversion
// functions of <cctype>, which follow it, are not used.

constexpr bool IsAsciiUpper(char c) { return c >= 'A' && c <= 'Z'; }
constexpr bool IsAsciiLower(char c) { return c >= 'a' && c <= 'z'; }
constexpr bool IsAsciiDigit(char c) { return c >= '0' && c <= '9'; }

constexpr char ToAsciiUpper(char c) {
  return IsAsciiLower(c) ? static_cast<char>(c - 'a' + 'A') : c;
}
constexpr char ToAsciiLower(char c) {
  return IsAsciiUpper(c) ? static_cast<char>(c - 'A' + 'a') : c;
}

inline std::string ToAsciiLower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) { return ToAsciiLower(c); });
  return text;
}

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_COMMON_ASCII_H_
