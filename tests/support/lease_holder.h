#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_LEASE_HOLDER_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_LEASE_HOLDER_H_

#include <sys/types.h>

#include <filesystem>

namespace quorbix::virtdisk::test {

// Another process that holds a write lease on a file, as a file server does for a client. When
// somebody opens the file, it takes its time and gives the lease back.
class LeaseHolder {
 public:
  explicit LeaseHolder(const std::filesystem::path& file);
  ~LeaseHolder();
  LeaseHolder(const LeaseHolder&) = delete;
  LeaseHolder& operator=(const LeaseHolder&) = delete;

  // False where the file system has no leases.
  bool Holds() const { return holds; }

  // Ends the process. True: it had been asked for the lease and had given it back.
  bool WasAsked();

 private:
  ::pid_t process = -1;
  bool holds = false;
};

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_LEASE_HOLDER_H_
