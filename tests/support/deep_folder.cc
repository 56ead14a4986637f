#include "support/deep_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "support/child_process.h"

namespace quorbix::virtdisk::test {
namespace fs = std::filesystem;

DeepFolder::DeepFolder(const fs::path& root, int levels) : top(root / "d") {
  int folder = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (int level = 0; level < levels && folder >= 0; ++level) {
    const int parent = folder;
    ::mkdirat(parent, "d", 0755);
    folder = ::openat(parent, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::close(parent);
  }
  if (folder < 0) throw std::runtime_error("cannot make nested folders");
  ::close(folder);
}

// The standard library keeps a descriptor for every level while it removes.
DeepFolder::~DeepFolder() { RunCommand({"rm", "-rf", top.string()}); }

fs::path DeepPath(int levels) {
  std::string path;
  for (int level = 0; level < levels; ++level) path += level == 0 ? "d" : "/d";
  return path;
}

}  // namespace quorbix::virtdisk::test
