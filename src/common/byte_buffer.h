#ifndef QUORBIX_VIRTDISK_COMMON_BYTE_BUFFER_H_
#define QUORBIX_VIRTDISK_COMMON_BYTE_BUFFER_H_

#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <span>
#include <utility>

namespace quorbix::virtdisk::internal {

// Bytes that are about to be read into: unlike a vector's, they are not filled with zeros first,
// which takes as long as the reading when the memory is fresh. Many of them lie in huge pages,
// where the system allows it, since fresh memory costs by the page. They begin a cache line: to an
// odd multiple of 16, where the C library puts large blocks, some processors take three times as
// long to copy the bytes of a file.
class ByteBuffer {
 public:
  ByteBuffer() = default;
  explicit ByteBuffer(std::size_t size) { Resize(size); }
  ByteBuffer(ByteBuffer&& other) noexcept { *this = std::move(other); }
  ByteBuffer& operator=(ByteBuffer&& other) noexcept {
    first.swap(other.first);
    std::swap(count, other.count);
    std::swap(capacity, other.capacity);
    return *this;
  }

  std::uint8_t* data() { return first.get(); }
  const std::uint8_t* data() const { return first.get(); }
  std::size_t size() const { return count; }
  bool empty() const { return count == 0; }
  std::uint8_t& operator[](std::size_t i) { return first[i]; }
  const std::uint8_t& operator[](std::size_t i) const { return first[i]; }
  std::span<std::uint8_t> Span() { return {first.get(), count}; }
  std::span<const std::uint8_t> Span() const { return {first.get(), count}; }

  // Keeps the bytes up to the smaller of both sizes; what comes after them is undefined. Throws
  // std::bad_alloc, and is then as it was.
  void Resize(std::size_t size) {
    if (size > capacity) Grow(size);
    count = size;
  }

  // Forgets the content. Makes room for `size` bytes without holding old and new room at once.
  void Reset(std::size_t size) {
    count = 0;
    if (size > capacity) {
      first.reset();
      capacity = 0;
    }
    Resize(size);
  }

  void Assign(std::span<const std::uint8_t> bytes) {
    Reset(bytes.size());
    std::copy(bytes.begin(), bytes.end(), first.get());
  }

 private:
  struct Free {
    void operator()(std::uint8_t* bytes) const { std::free(bytes); }
  };

  // The C library moves large blocks by their pages, without copying, and keeps their place in the
  // page.
  void Grow(std::size_t size) {
    void* grown = first ? std::realloc(first.get(), size) : Allocate(size);
    if (grown == nullptr) throw std::bad_alloc();
    static_cast<void>(first.release());
    first.reset(static_cast<std::uint8_t*>(grown));
    capacity = size;
    if (size >= kHugePagesFrom) PreferHugePages();
  }

  static void* Allocate(std::size_t size) {
    void* block = nullptr;
    return ::posix_memalign(&block, kCacheLineBytes, size) == 0 ? block : nullptr;
  }

  // About speed alone: a refusal changes nothing.
  void PreferHugePages() {
    const auto address = reinterpret_cast<std::uintptr_t>(first.get());
    const std::uintptr_t begin = (address + kPageBytes - 1) / kPageBytes * kPageBytes;
    ::madvise(first.get() + (begin - address), capacity - (begin - address), MADV_HUGEPAGE);
  }

  static constexpr std::size_t kCacheLineBytes = 64;
  static constexpr std::size_t kPageBytes = 4096;
  static constexpr std::size_t kHugePagesFrom = std::size_t{4} << 20;

  std::unique_ptr<std::uint8_t[], Free> first;
  std::size_t count = 0;
  std::size_t capacity = 0;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_COMMON_BYTE_BUFFER_H_
