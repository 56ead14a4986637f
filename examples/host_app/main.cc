// The life of a virtual disk inside a host application: build it from a folder, let the machine
// work on it, keep folder and disk in step. Usage: host_app FOLDER (made when missing, and used as
// scratch space).

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <quorbix/virtdisk/virtdisk.h>

namespace fs = std::filesystem;
namespace vd = quorbix::virtdisk;
using Bytes = std::vector<std::uint8_t>;

namespace {

void WriteText(const fs::path& file, const std::string& text) {
  std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
}

Bytes ReadBytes(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string ReadText(const fs::path& file) {
  const Bytes bytes = ReadBytes(file);
  return {bytes.begin(), bytes.end()};
}

// Twice what the files need, for whole clusters, directories and growth; 3 MiB at least, which is
// where FAT16 begins for other readers of the disk.
std::uint64_t RoomyDiskSize(std::uint64_t folderBytes) {
  constexpr std::uint64_t kMiB = 1048576;
  return std::max(3 * kMiB, folderBytes * 2 / kMiB * kMiB);
}

void BuildDisk(const fs::path& folder, const fs::path& disk) {
  const auto builder = vd::CreateFat16Builder();
  const std::uint64_t size = RoomyDiskSize(builder->MeasureFolderSize(folder));
  if (!builder->Build(folder, disk, size)) throw std::runtime_error(builder->LastError());
  for (const std::string& entry : builder->SkippedFiles()) std::cout << "skipped " << entry << "\n";
  std::cout << "built " << disk << ", " << size << " bytes\n";
}

void ShowDisk(const fs::path& disk) {
  vd::Fat16FsImage image;
  std::vector<vd::Fat16FsEntry> entries;
  std::string error;
  if (!image.LoadFromBytes(ReadBytes(disk), error) || !image.ListDirectory("/", entries, error)) {
    throw std::runtime_error(error);
  }
  std::cout << "disk " << image.Info().volumeLabel << ":\n";
  for (const vd::Fat16FsEntry& entry : entries) {
    std::cout << "  " << entry.name << (entry.isDirectory ? "/" : "") << "  " << entry.size << "\n";
  }
}

// What an emulated machine does to its disk while it runs, here done in place.
void GuestWrites(const fs::path& disk, const std::string& path, const std::string& text) {
  vd::Fat16FsImage image;
  std::string error;
  if (!image.LoadFromBytes(ReadBytes(disk), error) ||
      !image.WriteExistingFile(path, Bytes(text.begin(), text.end()), error)) {
    throw std::runtime_error(error);
  }
  const Bytes& bytes = image.ImageBytes();
  WriteText(disk, std::string(bytes.begin(), bytes.end()));
}

void Expect(const fs::path& file, const std::string& text) {
  if (ReadText(file) != text) throw std::runtime_error("unexpected content: " + file.string());
  std::cout << "in step: " << file.filename() << "\n";
}

void LiveWithTheDisk(const fs::path& scratch) {
  const fs::path folder = scratch / "Disk";
  const fs::path disk = scratch / "disk.img";
  fs::create_directories(folder);
  WriteText(folder / "notes.txt", "written on the host");
  BuildDisk(folder, disk);
  ShowDisk(disk);

  const auto sync = vd::CreateFolderSyncManager();
  sync->Start(disk, folder, 1000);
  sync->SyncNow();  // the first pass merges both sides

  GuestWrites(disk, "/NOTES.TXT", "written by the guest");
  sync->SyncNow();
  Expect(folder / "notes.txt", "written by the guest");

  WriteText(folder / "new.txt", "made on the host");
  sync->SyncNow();
  sync->Stop();
  ShowDisk(disk);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    LiveWithTheDisk(argc > 1 ? argv[1] : "host_app_life");
  } catch (const std::exception& problem) {
    std::cerr << "host_app: " << problem.what() << "\n";
    return 1;
  }
}
