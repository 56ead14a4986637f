#ifndef QUORBIX_VIRTDISK_FAT16_ZEROED_BYTES_H_
#define QUORBIX_VIRTDISK_FAT16_ZEROED_BYTES_H_

#include <cstddef>
#include <cstdint>
#include <span>

namespace quorbix::virtdisk::internal {

// A fixed number of bytes, all zero at first, in one piece.
//
// Pages that are never written cost neither time nor memory, unlike those of a vector, which fills
// them: most of a large image stays empty, and filling it takes longer than writing it to a file.
class ZeroedBytes {
 public:
  ZeroedBytes() = default;
  explicit ZeroedBytes(std::size_t size);  // throws std::bad_alloc
  ~ZeroedBytes();
  ZeroedBytes(ZeroedBytes&& other) noexcept;
  ZeroedBytes& operator=(ZeroedBytes&& other) noexcept;

  std::uint8_t* data() { return first; }
  const std::uint8_t* data() const { return first; }
  std::size_t size() const { return count; }
  std::span<const std::uint8_t> Span() const { return {first, count}; }

  // Asks for huge pages where the `size` bytes from `offset` on lie: quicker for what is about to
  // be written whole, and a waste of time and memory for a few bytes here and there.
  void PreferHugePages(std::uint64_t offset, std::uint64_t size);

  // Maps what was never written before it is read from end to end; a system call that meets such
  // pages one by one takes much longer.
  void PrepareToRead() const;

 private:
  std::uint8_t* first = nullptr;
  std::size_t count = 0;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_FAT16_ZEROED_BYTES_H_
