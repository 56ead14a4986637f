#ifndef QUORBIX_VIRTDISK_COMMON_DESCRIPTOR_H_
#define QUORBIX_VIRTDISK_COMMON_DESCRIPTOR_H_

#include <unistd.h>

#include <utility>

namespace quorbix::virtdisk::internal {

// An open file of the system, closed when this goes; none when the number is negative.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fileNumber) : number(fileNumber) {}
  ~Descriptor() { Close(); }
  Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number, other.number);
    return *this;
  }

  explicit operator bool() const { return number >= 0; }
  int Get() const { return number; }

  // Some file systems tell of a failed write only here. False: they did.
  bool Close() { return number < 0 || ::close(std::exchange(number, -1)) == 0; }

 private:
  int number = -1;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_COMMON_DESCRIPTOR_H_
