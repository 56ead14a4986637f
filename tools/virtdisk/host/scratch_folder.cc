#include "host/scratch_folder.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "host/host_file.h"
#include "host/stop_signals.h"

namespace quorbix::virtdisk::tool {
namespace fs = std::filesystem;

namespace {

// Outlives the signals that end the process, and holds none of its streams: who reads what that
// prints is not to wait for this.
[[noreturn]] void RemoveAfterwards(int otherLife, const fs::path& folder) {
  ::setsid();
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) ::signal(signal, SIG_IGN);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::close(stream);
  char byte = 0;
  while (::read(otherLife, &byte, 1) < 0 && errno == EINTR) {
  }
  std::error_code ignored;
  fs::remove_all(folder, ignored);
  ::_exit(0);
}

}  // namespace

bool ScratchFolder::Make(const std::string& beginning, bool keeps, std::string& err) {
  std::error_code unknown;
  std::string name = (fs::temp_directory_path(unknown) / (beginning + "XXXXXX")).string();
  const SignalsHeld held;
  if (unknown || ::mkdtemp(name.data()) == nullptr) {
    err = "cannot make a folder like " + name + ": " +
          (unknown ? unknown.message() : SystemText(errno));
    return false;
  }
  path = name;
  isKept = keeps;
  if (!isKept) LeaveToRemover();
  return true;
}

// Without it the folder still goes with the object.
void ScratchFolder::LeaveToRemover() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return;
  const internal::Descriptor waiting(ends[0]);
  life = internal::Descriptor(ends[1]);
  remover = ::fork();
  if (remover != 0) return;
  ::close(ends[1]);
  RemoveAfterwards(ends[0], path);
}

ScratchFolder::~ScratchFolder() {
  if (path.empty() || isKept) return;
  life = internal::Descriptor();
  if (remover > 0) {
    while (::waitpid(remover, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  std::error_code ignored;
  fs::remove_all(path, ignored);
}

}  // namespace quorbix::virtdisk::tool
