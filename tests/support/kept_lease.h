#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_KEPT_LEASE_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_KEPT_LEASE_H_

#include <fcntl.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <string>

namespace quorbix::virtdisk::test {

// Has the lease on a file, so that who opens it waits: the system takes it away after 45 s only.
class KeptLease {
 public:
  explicit KeptLease(const std::string& path) : file(::open(path.c_str(), O_RDWR | O_CLOEXEC)) {
    ::sigemptyset(&asked);
    ::sigaddset(&asked, SIGIO);
    ::pthread_sigmask(SIG_BLOCK, &asked, &before);
    holds = ::fcntl(file, F_SETLEASE, F_WRLCK) == 0;
  }
  ~KeptLease() {
    ::fcntl(file, F_SETLEASE, F_UNLCK);
    ::close(file);
    const ::timespec atOnce{};
    while (::sigtimedwait(&asked, nullptr, &atOnce) > 0) {
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }
  KeptLease(const KeptLease&) = delete;
  KeptLease& operator=(const KeptLease&) = delete;

  bool Holds() const { return holds; }
  bool WaitUntilAsked() const {
    const ::timespec generous{30, 0};
    return ::sigtimedwait(&asked, nullptr, &generous) == SIGIO;
  }

 private:
  int file;
  bool holds = false;
  ::sigset_t asked{};
  ::sigset_t before{};
};

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_KEPT_LEASE_H_
