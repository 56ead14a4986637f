#include "guard/model.h"

#include "common/ascii.h"

namespace quorbix::virtdisk::internal::guard {

std::string DiskKey(std::string_view diskPath) { return ToAsciiLower(std::string(diskPath)); }

std::string ParentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string NameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

std::string Join(const std::string& folder, const std::string& name) {
  return folder.empty() ? name : folder + '/' + name;
}

}  // namespace quorbix::virtdisk::internal::guard
