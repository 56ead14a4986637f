#include "host/folder_survey.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <fstream>
#include <ios>
#include <optional>
#include <system_error>
#include <utility>

#include "host/names.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

std::optional<std::uint64_t> CountBytes(std::ifstream& in) {
  std::array<char, 65536> buffer;
  std::uint64_t bytes = 0;
  do {
    in.read(buffer.data(), buffer.size());
    bytes += static_cast<std::uint64_t>(in.gcount());
  } while (in.good());
  if (in.bad()) return std::nullopt;
  return bytes;
}

// The size of a file as a build reads it; nothing when it cannot be read. Where the host's metadata
// say nothing, as for files that the kernel makes up, the content is counted.
std::optional<std::uint64_t> ReadableBytes(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return std::nullopt;
  std::error_code failed;
  const std::uintmax_t size = fs::file_size(file, failed);
  if (!failed && size != 0) return size;
  return CountBytes(in);
}

class Surveyor {
 public:
  explicit Surveyor(const fs::path& folder) : top(folder) {}

  FolderSurvey Walk() {
    pending.push_back({});
    while (!pending.empty() && !survey.content.endless) {
      const fs::path folder = std::move(pending.back());
      pending.pop_back();
      WalkOne(folder);
    }
    return std::move(survey);
  }

 private:
  void WalkOne(const fs::path& folder) {
    const bool isRoot = folder.empty();
    DirectoryNames names;
    std::uint32_t placed = 0;
    std::error_code failed;
    const fs::directory_iterator end;
    fs::directory_iterator it(top / folder, failed);
    const std::size_t firstChild = pending.size();
    while (!failed && it != end && !survey.content.endless) {
      if (Place(*it, folder, names, isRoot && placed >= kRootEntries)) ++placed;
      it.increment(failed);
    }
    // Children are walked in the order in which they were met, before anything that waits already.
    std::reverse(pending.begin() + static_cast<std::ptrdiff_t>(firstChild), pending.end());
    if (!isRoot) {
      survey.content.directoryEntries.push_back(placed);
      Claim((std::uint64_t{placed} + 2) * 32);
    }
  }

  // Whether the entry takes a slot.
  bool Place(const fs::directory_entry& entry, const fs::path& folder, DirectoryNames& names,
             bool rootIsFull) {
    const fs::path name = entry.path().filename();
    const std::string shortName = names.Take(name.native());
    if (shortName.empty()) return false;
    std::error_code failed;
    const bool isDirectory = entry.is_directory(failed);
    if (isDirectory && failed) return false;
    if (isDirectory) return PlaceDirectory(folder / name, shortName, rootIsFull);
    const bool isFile = entry.is_regular_file(failed);
    if (!isFile || failed) return false;
    return PlaceFile(entry.path(), folder / name, shortName, rootIsFull);
  }

  bool PlaceDirectory(const fs::path& rel, const std::string& shortName, bool rootIsFull) {
    if (rootIsFull) survey.content.rootOverflows = true;
    ++survey.directories;
    if (survey.directories > kMostClusters) survey.content.endless = true;
    NoteName(rel, shortName);
    pending.push_back(rel);
    return true;
  }

  bool PlaceFile(const fs::path& file, const fs::path& rel, const std::string& shortName,
                 bool rootIsFull) {
    const std::optional<std::uint64_t> bytes = ReadableBytes(file);
    if (!bytes) {
      ++survey.unreadable;
      return false;
    }
    if (rootIsFull && *bytes == 0) return false;
    if (rootIsFull) survey.content.rootOverflows = true;
    ++survey.files;
    if (*bytes != 0) survey.content.fileBytes.push_back(*bytes);
    Claim(*bytes);
    NoteName(rel, shortName);
    return true;
  }

  // Counts the clusters that even the largest size of cluster takes.
  void Claim(std::uint64_t bytes) {
    clustersAtLeast += bytes / kLargestClusterBytes + (bytes % kLargestClusterBytes != 0 ? 1 : 0);
    if (clustersAtLeast > kMostClusters) survey.content.endless = true;
  }

  void NoteName(const fs::path& rel, const std::string& shortName) {
    std::string shown = ShownName(shortName);
    if (shown != rel.filename().native()) survey.renamed.push_back({rel, std::move(shown)});
  }

  const fs::path top;
  FolderSurvey survey;
  std::vector<fs::path> pending;  // relative to `top`; the next one last
  std::uint64_t clustersAtLeast = 0;
};

}  // namespace

FolderSurvey SurveyFolder(const std::filesystem::path& folder) { return Surveyor(folder).Walk(); }

}  // namespace quorbix::virtdisk::tool
