#include "builder/host_entry.h"

namespace quorbix::virtdisk::internal {
namespace fs = std::filesystem;

namespace {

// An entry of the host as the standard library's would be, had it been listed just now.
class AskedEntry {
 public:
  AskedEntry(const fs::path& entryPath, fs::file_type listedType)
      : path(entryPath),
        known(listedType != fs::file_type::none && listedType != fs::file_type::symlink),
        listed(listedType) {}

  bool is_directory(std::error_code& error) const {
    return Type(error) == fs::file_type::directory;
  }
  bool is_regular_file(std::error_code& error) const {
    return Type(error) == fs::file_type::regular;
  }

 private:
  fs::file_type Type(std::error_code& error) const {
    error.clear();
    return known ? listed : fs::status(path, error).type();
  }

  const fs::path& path;
  const bool known;
  const fs::file_type listed;
};

}  // namespace

EntryKind AskKind(const fs::path& path, fs::file_type listed, std::error_code& error) {
  return KindOf(AskedEntry(path, listed), error);
}

}  // namespace quorbix::virtdisk::internal
