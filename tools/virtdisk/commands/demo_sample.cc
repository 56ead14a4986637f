#include "commands/demo_sample.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <string>
#include <system_error>

#include "common/descriptor.h"
#include "common/host_file.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

struct SampleFile {
  const char* path;
  const char* content;
};

constexpr std::array<SampleFile, 6> kSample{{
    {"Readme.txt",
     "This disk belongs to the machine in the study.\n"
     "Please put it back into its sleeve after use.\n"},
    {"Notes.txt", "Monday: oil the drive door.\nTuesday: try the new tape cable.\n"},
    {"Letters/Aunt.txt",
     "Dear aunt,\n\nthe machine you gave me still runs every evening.\n\nYours\n"},
    {"Letters/Club.txt", "The club meets on Thursdays. Bring a disk and a power lead.\n"},
    {"Games/Scores.dat", "ANNA 41200\nBEN 38850\nCARLA 36100\n"},
    {"Games/Maze.bas",
     "10 REM A MAZE WITHOUT END\n20 PRINT CHR$(47 + INT(RND(1) * 2) * 45);\n30 GOTO 20\n"},
}};

void CopyFile(const fs::path& from, const fs::path& to, const MovedBytes& moved) {
  struct ::stat status {};
  const internal::Descriptor in = internal::OpenRegularFile(from.c_str(), status);
  const internal::Descriptor out =
      in ? internal::OpenHostFile(to.c_str(), O_WRONLY | O_CREAT | O_EXCL) : internal::Descriptor();
  const auto bytes = static_cast<std::uint64_t>(status.st_size);
  if (out && CopyInPieces(in.Get(), out.Get(), bytes, moved)) return;
  throw fs::filesystem_error("cannot copy", from, to,
                             std::error_code(errno, std::generic_category()));
}

}  // namespace

void WriteSample(const fs::path& target) {
  for (const SampleFile& file : kSample) {
    const fs::path path = target / file.path;
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary);
    out << file.content;
    out.close();
    if (!out) {
      throw fs::filesystem_error("cannot write", path, std::make_error_code(std::errc::io_error));
    }
  }
}

void CopyFolder(const fs::path& source, const BuildPreview& preview, const fs::path& target,
                const MovedBytes& moved) {
  fs::create_directories(target);
  for (const BuildPreviewEntry& entry : preview.entries) {
    if (entry.fate != BuildFate::kCopied || entry.isHidden) continue;
    const fs::path path = target / entry.hostPath;
    if (entry.isDirectory) {
      fs::create_directories(path);
    } else if (!fs::exists(path)) {
      CopyFile(source / entry.hostPath, path, moved);
    }
  }
}

}  // namespace quorbix::virtdisk::tool
