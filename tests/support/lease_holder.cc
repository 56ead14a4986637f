#include "support/lease_holder.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>
#include <stdexcept>

namespace quorbix::virtdisk::test {
namespace {

constexpr int kGaveBack = 7;
constexpr int kNoLease = 8;
constexpr ::timespec kItsTime{0, 50'000'000};  // long enough for a waiting open to be one

// The child's whole life; `ready` is told whether it has the lease.
[[noreturn]] void Hold(const char* path, int ready) {
  ::sigset_t asked;
  ::sigemptyset(&asked);
  ::sigaddset(&asked, SIGIO);
  ::sigprocmask(SIG_BLOCK, &asked, nullptr);
  const int file = ::open(path, O_RDWR | O_CLOEXEC);
  const bool held = file >= 0 && ::fcntl(file, F_SETLEASE, F_WRLCK) == 0;
  if (::write(ready, held ? "y" : "n", 1) != 1 || !held) ::_exit(kNoLease);
  int signal = 0;
  ::sigwait(&asked, &signal);
  ::nanosleep(&kItsTime, nullptr);
  ::fcntl(file, F_SETLEASE, F_UNLCK);
  ::_exit(kGaveBack);
}

}  // namespace

LeaseHolder::LeaseHolder(const std::filesystem::path& file) {
  int ready[2];
  if (::pipe2(ready, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
  process = ::fork();
  if (process < 0) throw std::runtime_error("fork failed");
  if (process == 0) Hold(file.c_str(), ready[1]);
  ::close(ready[1]);
  char answer = 'n';
  holds = ::read(ready[0], &answer, 1) == 1 && answer == 'y';
  ::close(ready[0]);
}

LeaseHolder::~LeaseHolder() { WasAsked(); }

bool LeaseHolder::WasAsked() {
  if (process < 0) return false;
  // One that was asked has ended by now or is about to; the other one waits in vain.
  const ::timespec grace{0, 200'000'000};
  int status = 0;
  if (::waitpid(process, &status, WNOHANG) == 0) {
    ::nanosleep(&grace, nullptr);
    if (::waitpid(process, &status, WNOHANG) == 0) {
      ::kill(process, SIGKILL);
      ::waitpid(process, &status, 0);
    }
  }
  process = -1;
  return WIFEXITED(status) && WEXITSTATUS(status) == kGaveBack;
}

}  // namespace quorbix::virtdisk::test
