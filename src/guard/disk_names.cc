#include "guard/disk_names.h"

#include <algorithm>

#include "common/ascii.h"
#include "fat16/short_name.h"
#include "fat16/volume_layout.h"
#include "guard/model.h"
#include "preview/shown_name.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

std::string Upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) { return ToAsciiUpper(c); });
  return text;
}

constexpr int kLastTail = 999'999;

}  // namespace

void DiskNames::Use(const std::string& directory, const std::string& shortName) {
  used[DiskKey(directory)].names.insert(Upper(shortName));
}

void DiskNames::UseListed(const std::string& diskPath) {
  Use(ParentOf(diskPath), ShortNameOf(NameOf(diskPath)));
}

std::string DiskNames::Take(const std::string& directory, const std::string& hostName) {
  Directory& taken = used[DiskKey(directory)];
  std::string shortName = ToFat83Name(hostName);
  if (taken.names.contains(shortName)) shortName = FreeWithTail(shortName, taken);
  if (shortName.empty() || HasBlankBase(shortName)) return {};
  taken.names.insert(shortName);
  return ShownName(shortName);
}

// Thousands of photos share a beginning: each search goes on where the last one ended, of all names
// that come to the same with tails of so many digits.
std::string DiskNames::FreeWithTail(const std::string& shortName, Directory& directory) {
  for (int first = 1; first <= kLastTail; first *= 10) {
    int& next = directory.nextTails.try_emplace(WithTail(shortName, first), first).first->second;
    while (next < first * 10) {
      std::string candidate = WithTail(shortName, next++);
      if (!directory.names.contains(candidate)) return candidate;
    }
  }
  return {};
}

bool IsOwnShortName(const std::string& hostName) {
  const std::string shortName = ToFat83Name(hostName);
  return !shortName.empty() && !HasBlankBase(shortName) && ShownName(shortName) == Upper(hostName);
}

std::string ShortNameOf(const std::string& listedName) {
  const std::size_t dot = listedName.rfind('.');
  std::string base = listedName.substr(0, dot);
  std::string extension = dot == std::string::npos ? std::string() : listedName.substr(dot + 1);
  base.resize(dir_entry::kBaseNameSize, ' ');
  extension.resize(dir_entry::kExtensionSize, ' ');
  return Upper(base + extension);
}

}  // namespace quorbix::virtdisk::internal::guard
