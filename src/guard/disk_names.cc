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

// Beyond those that UniqueFat83Name tries.
constexpr int kFirstLongTail = 100;
constexpr int kLastLongTail = 999'999;

std::string WithTail(const std::string& shortName, int number) {
  const std::string tail = '~' + std::to_string(number);
  return shortName.substr(0, dir_entry::kBaseNameSize - tail.size()) + tail +
         shortName.substr(dir_entry::kBaseNameSize);
}

}  // namespace

void DiskNames::Use(const std::string& directory, const std::string& shortName) {
  used[DiskKey(directory)].names.insert(Upper(shortName));
}

void DiskNames::UseListed(const std::string& diskPath) {
  Use(ParentOf(diskPath), ShortNameOf(NameOf(diskPath)));
}

std::string DiskNames::Take(const std::string& directory, const std::string& hostName) {
  Directory& taken = used[DiskKey(directory)];
  std::string shortName = UniqueFat83Name(hostName, taken.names);
  if (shortName.empty()) shortName = TakeLongTail(hostName, taken);
  if (shortName.empty() || HasBlankBase(shortName)) return {};
  taken.names.insert(shortName);
  return ShownName(shortName);
}

// Thousands of photos share a beginning: each search goes on where the last one ended.
std::string DiskNames::TakeLongTail(const std::string& hostName, Directory& directory) {
  const std::string plain = ToFat83Name(hostName);
  if (plain.empty()) return {};
  int& next = directory.nextLongTails.try_emplace(plain, kFirstLongTail).first->second;
  while (next <= kLastLongTail) {
    std::string candidate = WithTail(plain, next++);
    if (!directory.names.contains(candidate)) return candidate;
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
