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

}  // namespace

void DiskNames::Use(const std::string& directory, const std::string& shortName) {
  used[DiskKey(directory)].insert(Upper(shortName));
}

void DiskNames::UseListed(const std::string& diskPath) {
  Use(ParentOf(diskPath), ShortNameOf(NameOf(diskPath)));
}

std::string DiskNames::Take(const std::string& directory, const std::string& hostName) {
  std::unordered_set<std::string>& names = used[DiskKey(directory)];
  const std::string shortName = UniqueFat83Name(hostName, names);
  if (shortName.empty() || HasBlankBase(shortName)) return {};
  names.insert(shortName);
  return ShownName(shortName);
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
