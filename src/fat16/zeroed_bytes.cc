#include "fat16/zeroed_bytes.h"

#include <sys/mman.h>

#include <new>
#include <utility>

namespace quorbix::virtdisk::internal {
namespace {

constexpr std::uint64_t kPageBytes = 4096;

std::uint8_t* MapZeroPages(std::size_t size) {
  void* pages = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED) throw std::bad_alloc();
  return static_cast<std::uint8_t*>(pages);
}

}  // namespace

ZeroedBytes::ZeroedBytes(std::size_t size)
    : first(size == 0 ? nullptr : MapZeroPages(size)), count(size) {}

ZeroedBytes::~ZeroedBytes() {
  if (first != nullptr) ::munmap(first, count);
}

ZeroedBytes::ZeroedBytes(ZeroedBytes&& other) noexcept
    : first(std::exchange(other.first, nullptr)), count(std::exchange(other.count, 0)) {}

ZeroedBytes& ZeroedBytes::operator=(ZeroedBytes&& other) noexcept {
  std::swap(first, other.first);
  std::swap(count, other.count);
  return *this;
}

void ZeroedBytes::PreferHugePages(std::uint64_t offset, std::uint64_t size) {
  // About speed alone, as in PrepareToRead: a refusal changes nothing.
  const std::uint64_t begin = offset / kPageBytes * kPageBytes;
  ::madvise(first + begin, offset + size - begin, MADV_HUGEPAGE);
}

void ZeroedBytes::PrepareToRead() const {
#ifdef MADV_POPULATE_READ
  if (first != nullptr) ::madvise(first, count, MADV_POPULATE_READ);
#endif
}

}  // namespace quorbix::virtdisk::internal
