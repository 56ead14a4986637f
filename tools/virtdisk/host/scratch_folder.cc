#include "host/scratch_folder.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <system_error>

#include "common/host_file.h"
#include "host/host_file.h"

namespace quorbix::virtdisk::tool {
namespace fs = std::filesystem;

namespace {

// A new folder whose name takes the place of the last letters; empty with the cause in errno.
std::string MakeLike(std::string name) {
  return ::mkdtemp(name.data()) == nullptr ? std::string() : name;
}

// What the remover answers with: how making the folder ended, before its name.
struct Made {
  int error = 0;
  std::array<char, 4096> path{};
};

// Outlives the signals that end the process, and holds none of its streams: who reads what that
// prints is not to wait for this.
[[noreturn]] void MakeAndRemoveAfterwards(int otherLife, int answer, const std::string& name) {
  ::setsid();
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) ::signal(signal, SIG_IGN);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::close(stream);
  Made made;
  const std::string path = MakeLike(name);
  if (path.empty()) made.error = errno;
  path.copy(made.path.data(), made.path.size() - 1);
  char byte = 0;
  const bool isTold = ::write(answer, &made, sizeof made) == sizeof made;
  while (isTold && ::read(otherLife, &byte, 1) < 0 && errno == EINTR) {
  }
  std::error_code ignored;
  if (!path.empty()) fs::remove_all(path, ignored);
  ::_exit(0);
}

// The standard library takes the first of these that is set.
std::string WhyNoParent() {
  for (const char* name : {"TMPDIR", "TMP", "TEMP", "TEMPDIR"}) {
    const char* value = std::getenv(name);
    if (value != nullptr) return std::string(name) + " is " + value + ", which is no folder";
  }
  return "/tmp is no folder";
}

}  // namespace

bool ScratchFolder::Make(const std::string& beginning, bool keeps, std::string& err) {
  std::error_code unknown;
  const fs::path parent = fs::temp_directory_path(unknown);
  if (unknown) {
    err = WhyNoParent();
    return false;
  }
  const std::string name = (parent / (beginning + "XXXXXX")).string();
  isKept = keeps;
  path = isKept ? MakeLike(name) : MakeByRemover(name);
  if (!path.empty()) return true;
  err = "cannot make a folder like " + name + ": " + SystemText(errno);
  return false;
}

// The other process makes it, so that there is no moment at which it is left to itself.
std::string ScratchFolder::MakeByRemover(const std::string& name) {
  std::array<int, 2> lifeEnds{};
  std::array<int, 2> answerEnds{};
  if (::pipe2(lifeEnds.data(), O_CLOEXEC) != 0) return {};
  const internal::Descriptor otherLife(lifeEnds[0]);
  life = internal::Descriptor(lifeEnds[1]);
  if (::pipe2(answerEnds.data(), O_CLOEXEC) != 0) return {};
  const internal::Descriptor answer(answerEnds[0]);
  internal::Descriptor answering(answerEnds[1]);
  remover = ::fork();
  if (remover < 0) return {};
  if (remover == 0) {
    ::close(lifeEnds[1]);
    MakeAndRemoveAfterwards(lifeEnds[0], answerEnds[1], name);
  }
  answering = internal::Descriptor();
  Made made;
  auto* const bytes = reinterpret_cast<std::uint8_t*>(&made);
  const bool isTold = internal::ReadFully(answer.Get(), std::span(bytes, sizeof made)) ==
                      static_cast<std::ptrdiff_t>(sizeof made);
  if (made.error != 0) errno = made.error;
  return isTold && made.error == 0 ? std::string(made.path.data()) : std::string();
}

ScratchFolder::~ScratchFolder() {
  life = internal::Descriptor();
  if (remover > 0) {
    while (::waitpid(remover, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
}

}  // namespace quorbix::virtdisk::tool
