#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_TEMP_FOLDER_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_TEMP_FOLDER_H_

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace quorbix::virtdisk::test {

// A folder of its own on the host, removed with all that is in it, whatever the test did to it.
// Paths given to it are relative to it; missing parents are made.
class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& Path() const { return root; }
  std::filesystem::path operator/(const std::filesystem::path& rel) const { return root / rel; }

  TempFolder& File(const std::filesystem::path& rel, std::string_view content = {});
  TempFolder& File(const std::filesystem::path& rel, const std::vector<std::uint8_t>& content);
  TempFolder& Folder(const std::filesystem::path& rel);
  TempFolder& Link(const std::filesystem::path& rel, const std::filesystem::path& target);
  TempFolder& Pipe(const std::filesystem::path& rel);
  // Takes every permission from an existing entry. Root is not held back: see RunInChild.
  TempFolder& Forbidden(const std::filesystem::path& rel);
  TempFolder& Remove(const std::filesystem::path& rel);

  bool Exists(const std::filesystem::path& rel) const;  // a dangling link exists
  std::string Read(const std::filesystem::path& rel) const;
  // Every regular file below `rel`, as relative path ("A/B.TXT") and content.
  std::map<std::string, std::string> Files(const std::filesystem::path& rel = ".") const;

 private:
  std::filesystem::path root;
};

std::string ReadWholeFile(const std::filesystem::path& path);
void WriteWholeFile(const std::filesystem::path& path, std::string_view content);
std::vector<std::uint8_t> ReadBytes(const std::filesystem::path& path);
void WriteBytes(const std::filesystem::path& path, const std::vector<std::uint8_t>& bytes);

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_TEMP_FOLDER_H_
