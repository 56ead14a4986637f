#ifndef QUORBIX_VIRTDISK_BROWSER_FILE_SOURCE_H_
#define QUORBIX_VIRTDISK_BROWSER_FILE_SOURCE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "browser/byte_source.h"
#include "common/descriptor.h"

namespace quorbix::virtdisk::internal {

// An image in a file or on a block device, of which no more is read than is asked for, and which is
// only ever read. For one thread at a time.
//
// Small reads go through a cache, so that a walk over directories does not ask the system for each
// sector; what others write into the file may or may not be seen. The file is not mapped: where one
// shrinks or fails under the reader, a read fails with "image could not be read: " and the reason.
class FileSource final : public ByteSource {
 public:
  // Opens the image at `path`; a link is followed, and a lease that another process holds on the
  // file waited for. Null when it cannot be opened, or is neither a regular file nor a block
  // device; `err` then begins with "image could not be opened: ".
  static std::unique_ptr<FileSource> Open(const std::filesystem::path& path, std::string& err);

  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;

  std::uint64_t Size() const override { return size; }  // when it was opened
  const std::uint8_t* Read(std::uint64_t offset, std::size_t count,
                           std::vector<std::uint8_t>& buffer, std::string& err) override;

  // Why the latest read that failed did: as its `err` said. Empty: none has failed.
  const std::string& Failure() const { return failure; }

  // How many bytes the system gave so far.
  std::uint64_t BytesRead() const { return bytesRead; }

 private:
  static constexpr std::size_t kBlockBytes = 4096;
  static constexpr std::size_t kBlockCount = 64;
  static constexpr std::uint64_t kNoBlock = ~std::uint64_t{0};

  FileSource();
  bool OpenFile(const std::filesystem::path& path, std::string& err);

  const std::uint8_t* BlockAt(std::uint64_t block, std::string& err);
  bool ReadFromFile(std::uint64_t offset, std::uint8_t* data, std::size_t count, std::string& err);
  bool FailToRead(std::string& err, std::string_view reason);

  Descriptor file;
  std::uint64_t size = 0;  // bytes
  std::uint64_t bytesRead = 0;
  std::string failure;
  // A block of the file has one place in the cache, where the one read last stays.
  std::array<std::uint64_t, kBlockCount> blocks{};
  std::vector<std::uint8_t> cache;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BROWSER_FILE_SOURCE_H_
