#include "sync/file_version.h"

#include <utility>

#include "common/ascii.h"

namespace quorbix::virtdisk::internal {
namespace fs = std::filesystem;

std::string KeyFromRelPath(const fs::path& relPath) {
  if (relPath.has_root_directory() && !relPath.has_relative_path()) return "/";
  std::string key;
  key.reserve(relPath.native().size());
  bool afterName = false;
  for (const fs::path& element : relPath) {
    if (afterName) key += '/';
    key += element.native();
    afterName = !element.has_root_directory();
  }
  return ToAsciiLower(std::move(key));
}

}  // namespace quorbix::virtdisk::internal
