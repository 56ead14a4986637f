#include "host/names.h"

#include <algorithm>
#include <cstddef>

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::size_t kBaseSize = 8;
constexpr std::size_t kExtensionSize = 3;
constexpr int kLastTail = 99;
constexpr std::string_view kPunctuation = "!#$%&'()-@^_`{}~";

char ShortCharacter(char c) {
  if (c >= 'a' && c <= 'z') return static_cast<char>(c - 'a' + 'A');
  const bool kept = (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    kPunctuation.find(c) != std::string_view::npos;
  return kept ? c : '_';
}

std::string Padded(std::string_view text, std::size_t size) {
  std::string field(text.substr(0, size));
  std::transform(field.begin(), field.end(), field.begin(), ShortCharacter);
  field.resize(size, ' ');
  return field;
}

std::string_view TrimBlanks(std::string_view text) {
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

}  // namespace

std::string ShortName(std::string_view hostName) {
  const std::size_t dot = hostName.rfind('.');
  const std::string_view base = hostName.substr(0, dot);
  const bool hasExtension = dot != std::string_view::npos && dot + 1 < hostName.size();
  if (base.empty() && !hasExtension) return {};
  const std::string_view extension = hasExtension ? hostName.substr(dot + 1) : "";
  return Padded(base, kBaseSize) + Padded(extension, kExtensionSize);
}

std::string DirectoryNames::Take(std::string_view hostName) {
  std::string plain = ShortName(hostName);
  if (plain.empty()) return {};
  if (taken.insert(plain).second) return plain;
  for (int n = 1; n <= kLastTail; ++n) {
    const std::string tail = std::string("~").append(std::to_string(n));
    // The blanks of a short base stay, so that the tail always ends in column eight.
    std::string candidate =
        plain.substr(0, kBaseSize - tail.size()) + tail + plain.substr(kBaseSize);
    if (taken.insert(candidate).second) return candidate;
  }
  return {};
}

std::string ShownName(std::string_view shortName) {
  const std::string_view base = TrimBlanks(shortName.substr(0, kBaseSize));
  if (base.empty()) return {};
  const std::string_view extension = TrimBlanks(shortName.substr(kBaseSize));
  if (extension.empty()) return std::string(base);
  return std::string(base) + "." + std::string(extension);
}

}  // namespace quorbix::virtdisk::tool
