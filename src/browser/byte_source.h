#ifndef QUORBIX_VIRTDISK_BROWSER_BYTE_SOURCE_H_
#define QUORBIX_VIRTDISK_BROWSER_BYTE_SOURCE_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace quorbix::virtdisk::internal {

// The bytes of an image, wherever they are kept.
class ByteSource {
 public:
  virtual ~ByteSource() = default;

  // In bytes; the same for as long as the source lives.
  virtual std::uint64_t Size() const = 0;

  // Returns the `size` bytes, one at least, from `offset` on, all of which the caller knows to lie
  // below Size().
  // They are the source's own, or have been put into `buffer`, whose content and size are then
  // replaced: they last until the buffer is used again, and no longer than the source.
  //
  // Null: they could not be read, and `err` says why. Nothing can be said about `buffer` then.
  [[nodiscard]] virtual const std::uint8_t* Read(std::uint64_t offset, std::size_t size,
                                                 std::vector<std::uint8_t>& buffer,
                                                 std::string& err) = 0;
};

// An image in memory, which belongs to somebody else. Never copies, never fails; several threads
// may read at the same time.
class MemorySource final : public ByteSource {
 public:
  explicit MemorySource(std::span<const std::uint8_t> imageBytes) : bytes(imageBytes) {}

  std::uint64_t Size() const override { return bytes.size(); }
  const std::uint8_t* Read(std::uint64_t offset, std::size_t /*size*/,
                           std::vector<std::uint8_t>& /*buffer*/, std::string& /*err*/) override {
    return bytes.data() + offset;
  }

 private:
  std::span<const std::uint8_t> bytes;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BROWSER_BYTE_SOURCE_H_
