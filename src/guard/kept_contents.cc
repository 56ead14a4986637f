#include "guard/kept_contents.h"

#include <utility>

namespace quorbix::virtdisk::internal::guard {

void KeptContents::Keep(const std::string& path, const Content& content,
                        std::vector<std::uint8_t> bytes) {
  File& file = files[path];
  held += bytes.size();
  held -= file.bytes.size();
  file = {content, std::move(bytes)};
}

const std::vector<std::uint8_t>* KeptContents::Find(const std::string& path,
                                                    const Content& content) const {
  const auto file = files.find(path);
  return file != files.end() && file->second.content == content ? &file->second.bytes : nullptr;
}

void KeptContents::Clear() {
  files.clear();
  held = 0;
}

}  // namespace quorbix::virtdisk::internal::guard
