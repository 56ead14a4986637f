#include "sync/file_version.h"

#include "common/ascii.h"

namespace quorbix::virtdisk::internal {

std::string KeyFromRelPath(std::string_view relPath) {
  std::string key;
  key.reserve(relPath.size());
  // Several separators are one between two elements, and one that ends a path stays.
  for (const char c : relPath) {
    if (c != '/' || key.empty() || key.back() != '/') key += ToAsciiLower(c);
  }
  return key;
}

}  // namespace quorbix::virtdisk::internal
