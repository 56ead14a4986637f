#include "commands/demo_sample.h"

#include <array>
#include <fstream>
#include <string>
#include <system_error>

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

void CopyFolder(const fs::path& source, const BuildPreview& preview, const fs::path& target) {
  fs::create_directories(target);
  for (const BuildPreviewEntry& entry : preview.entries) {
    if (entry.fate != BuildFate::kCopied || entry.isHidden) continue;
    const fs::path path = target / entry.hostPath;
    if (entry.isDirectory) {
      fs::create_directories(path);
    } else {
      fs::copy_file(source / entry.hostPath, path, fs::copy_options::skip_existing);
    }
  }
}

}  // namespace quorbix::virtdisk::tool
