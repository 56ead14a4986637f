#ifndef QUORBIX_VIRTDISK_TESTS_BROWSER_PLAIN_BROWSER_H_
#define QUORBIX_VIRTDISK_TESTS_BROWSER_PLAIN_BROWSER_H_

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "quorbix/virtdisk/fat16_fs_image.h"

namespace quorbix::virtdisk::test {

// The browser once more, as plainly as it can be written: recursive, with every path kept as a
// string and every chain followed anew with a set of its own. Too slow and too hungry for large
// images, and meant to be compared with on small ones. Shares nothing with the library but the two
// public records.
class PlainBrowser {
 public:
  struct Record {
    Fat16FsEntry entry;
    std::string pathKey;
    std::string parentKey;
    std::uint64_t slotOffset = 0;
    std::uint64_t allocatedBytes = 0;
  };

  // Each operation returns its message, empty on success.
  std::string Load(const std::vector<std::uint8_t>& bytes);
  std::string List(const std::string& path, std::vector<Fat16FsEntry>& results) const;
  std::string Search(const std::string& query, std::vector<Fat16FsEntry>& results) const;
  std::string Read(const std::string& path, std::vector<std::uint8_t>& content) const;
  std::string Write(const std::string& path, const std::vector<std::uint8_t>& content);

  std::vector<std::uint8_t> image;
  Fat16FsInfo info;
  std::vector<Record> records;
  std::set<std::string> directories;

 private:
  std::string Parse();
  std::string Walk(std::uint16_t start, const std::string& parent);
  std::string WalkSlots(std::uint64_t offset, std::uint64_t bytes, const std::string& parent);
  bool Add(std::uint64_t slotOffset, const std::string& parent);
  std::string Chain(std::uint16_t start, std::vector<std::uint16_t>& chain) const;
  const Record* Find(const std::string& path) const;

  std::uint64_t U16(std::uint64_t offset) const;
  std::uint64_t U32(std::uint64_t offset) const;
  std::string Text(std::uint64_t offset, std::size_t width) const;
  std::uint64_t ClusterBytes() const;
  std::uint64_t ClusterOffset(std::uint16_t cluster) const;

  std::set<std::uint16_t> visited;
  std::uint64_t slotsLeft = 0;
};

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_BROWSER_PLAIN_BROWSER_H_
