#include "preview/shown_name.h"

#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::internal {
namespace {

std::string_view WithoutPadding(std::string_view field) {
  return field.substr(0, field.find_last_not_of(' ') + 1);
}

}  // namespace

std::string ShownName(std::string_view shortName) {
  std::string name(WithoutPadding(shortName.substr(0, dir_entry::kBaseNameSize)));
  const std::string_view extension = WithoutPadding(shortName.substr(dir_entry::kBaseNameSize));
  if (!extension.empty()) name.append(".").append(extension);
  return name;
}

bool HasBlankBase(std::string_view shortName) {
  return WithoutPadding(shortName.substr(0, dir_entry::kBaseNameSize)).empty();
}

}  // namespace quorbix::virtdisk::internal
