#include "fat16/short_name.h"

#include "common/ascii.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::internal {
namespace {

constexpr std::string_view kPermittedPunctuation = "!#$%&'()-@^_`{}~";
constexpr char kSubstitute = '_';
constexpr int kHighestTail = 99;

char ToShortNameChar(char c) {
  const char upper = ToAsciiUpper(c);
  const bool permitted = IsAsciiUpper(upper) || IsAsciiDigit(upper) ||
                         kPermittedPunctuation.find(upper) != std::string_view::npos;
  return permitted ? upper : kSubstitute;
}

std::string MapAndPad(std::string_view part, std::size_t width) {
  std::string padded;
  for (const char c : part.substr(0, width)) padded += ToShortNameChar(c);
  padded.resize(width, ' ');
  return padded;
}

}  // namespace

std::string ToFat83Name(std::string_view hostName) {
  const std::size_t dot = hostName.rfind('.');
  // A name that begins with its only dot keeps an empty base: the name is all extension.
  const std::string_view base = hostName.substr(0, dot);
  const std::string_view extension =
      dot == std::string_view::npos ? std::string_view() : hostName.substr(dot + 1);
  if (base.empty() && extension.empty()) return {};
  return MapAndPad(base, dir_entry::kBaseNameSize) +
         MapAndPad(extension, dir_entry::kExtensionSize);
}

std::string WithTail(std::string_view shortName, int number) {
  const std::string tail = std::string("~").append(std::to_string(number));
  // The blanks of a short base stay before the tail: readers trim only trailing blanks.
  return std::string(shortName.substr(0, dir_entry::kBaseNameSize - tail.size()))
      .append(tail)
      .append(shortName.substr(dir_entry::kBaseNameSize));
}

std::string UniqueFat83Name(std::string_view hostName,
                            const std::unordered_set<std::string>& used) {
  std::string plain = ToFat83Name(hostName);
  if (plain.empty() || !used.contains(plain)) return plain;
  for (int n = 1; n <= kHighestTail; ++n) {
    std::string candidate = WithTail(plain, n);
    if (!used.contains(candidate)) return candidate;
  }
  return {};
}

}  // namespace quorbix::virtdisk::internal
