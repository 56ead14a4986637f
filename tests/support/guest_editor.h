#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_GUEST_EDITOR_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_GUEST_EDITOR_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace quorbix::virtdisk::test {

// Changes a disk image as the emulated machine would: allocates and frees clusters, grows chains
// and directories, reuses deleted slots. It has its own reader with literal offsets and shares
// nothing with the library.
//
// Paths are "SUB/A.TXT", as the disk holds them. The volume is that of the first partition entry.
// Operations return false, and leave the image as it was, when there is no such entry or no room.
class GuestEditor {
 public:
  explicit GuestEditor(std::filesystem::path image);

  // Creates the file, or replaces its content: its chain is kept as far as it reaches.
  bool Write(std::string_view path, std::string_view content);
  bool Append(std::string_view path, std::string_view content);
  bool MakeFolder(std::string_view path);
  bool Remove(std::string_view path);  // a file, or a folder without entries
  bool Rename(std::string_view path, std::string_view newName);  // within its folder
  bool SetStamp(std::string_view path, std::uint16_t date, std::uint16_t time);

  std::map<std::string, std::string> Files() const;  // by path
  bool Exists(std::string_view path) const;
  std::size_t FreeClusters() const;

  // Writes the image back in place, with a modification time of its own.
  void Save() const;

 private:
  struct Place {
    std::uint16_t directory = 0;  // first cluster, 0 for the root
    std::string name;             // eleven bytes
  };

  std::size_t U16(std::size_t offset) const;
  std::size_t U32(std::size_t offset) const;
  void PutU16(std::size_t offset, std::size_t value);
  void PutU32(std::size_t offset, std::size_t value);
  std::size_t ClusterOffset(std::size_t cluster) const;
  std::vector<std::uint16_t> Chain(std::size_t first) const;
  bool Resize(std::size_t slot, std::size_t clusters);
  void Link(const std::vector<std::uint16_t>& chain);
  std::size_t Allocate();
  std::vector<std::size_t> Slots(std::uint16_t directory) const;
  std::size_t FindSlot(const Place& place) const;
  std::size_t TakeSlot(const Place& place);
  bool Locate(std::string_view path, Place& place) const;
  std::string Content(std::size_t slot) const;
  bool Store(std::string_view path, std::string_view content);
  bool IsEmptyFolder(std::size_t slot) const;
  void Collect(std::uint16_t directory, const std::string& prefix,
               std::map<std::string, std::string>& files) const;

  std::filesystem::path imagePath;
  std::vector<std::uint8_t> image;
  std::size_t clusterBytes = 0;
  std::size_t fatOffset = 0;
  std::size_t fatBytes = 0;
  std::size_t rootOffset = 0;
  std::size_t rootSlots = 0;
  std::size_t dataOffset = 0;
  std::size_t clusterEnd = 0;  // one more than the last cluster's number
};

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_GUEST_EDITOR_H_
