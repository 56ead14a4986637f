#include "support/temp_folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace quorbix::virtdisk::test {
namespace fs = std::filesystem;

namespace {

fs::path MakeRoot() {
  std::string name = (fs::temp_directory_path() / "virtdisk-test-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make a temporary folder");
  // Open to a child process that gave up root.
  if (::chmod(name.c_str(), 0755) != 0) throw std::runtime_error("cannot open " + name);
  return name;
}

void Require(bool done, const fs::path& path) {
  if (!done) throw std::runtime_error("cannot prepare " + path.string());
}

}  // namespace

TempFolder::TempFolder() : root(MakeRoot()) {}

TempFolder::~TempFolder() {
  std::error_code ignored;
  fs::remove_all(root, ignored);
  if (!ignored) return;
  for (fs::recursive_directory_iterator it(root, ignored), end; it != end; it.increment(ignored)) {
    if (it->is_directory(ignored)) fs::permissions(it->path(), fs::perms::owner_all, ignored);
  }
  fs::remove_all(root, ignored);
}

TempFolder& TempFolder::File(const fs::path& rel, std::string_view content) {
  fs::create_directories((root / rel).parent_path());
  WriteWholeFile(root / rel, content);
  return *this;
}

TempFolder& TempFolder::File(const fs::path& rel, const std::vector<std::uint8_t>& content) {
  return File(rel, std::string_view(reinterpret_cast<const char*>(content.data()), content.size()));
}

TempFolder& TempFolder::Folder(const fs::path& rel) {
  fs::create_directories(root / rel);
  return *this;
}

TempFolder& TempFolder::Link(const fs::path& rel, const fs::path& target) {
  fs::create_directories((root / rel).parent_path());
  fs::create_symlink(target, root / rel);
  return *this;
}

TempFolder& TempFolder::Pipe(const fs::path& rel) {
  fs::create_directories((root / rel).parent_path());
  Require(::mkfifo((root / rel).c_str(), 0644) == 0, root / rel);
  return *this;
}

TempFolder& TempFolder::Forbidden(const fs::path& rel) {
  fs::permissions(root / rel, fs::perms::none);
  return *this;
}

TempFolder& TempFolder::Remove(const fs::path& rel) {
  fs::remove_all(root / rel);
  return *this;
}

bool TempFolder::Exists(const fs::path& rel) const {
  return fs::exists(fs::symlink_status(root / rel));
}

std::string TempFolder::Read(const fs::path& rel) const { return ReadWholeFile(root / rel); }

std::map<std::string, std::string> TempFolder::Files(const fs::path& rel) const {
  std::map<std::string, std::string> files;
  const fs::path top = (root / rel).lexically_normal();
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(top)) {
    if (!entry.is_regular_file()) continue;
    files[entry.path().lexically_relative(top).string()] = ReadWholeFile(entry.path());
  }
  return files;
}

std::string ReadWholeFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  Require(in.good(), path);
  std::string content;
  std::array<char, 65536> chunk;
  while (in.read(chunk.data(), chunk.size()), in.gcount() > 0) {
    content.append(chunk.data(), static_cast<std::size_t>(in.gcount()));
  }
  return content;
}

void WriteWholeFile(const fs::path& path, std::string_view content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  out.close();
  Require(out.good(), path);
}

std::vector<std::uint8_t> ReadBytes(const fs::path& path) {
  const std::string content = ReadWholeFile(path);
  return {content.begin(), content.end()};
}

void WriteBytes(const fs::path& path, const std::vector<std::uint8_t>& bytes) {
  WriteWholeFile(path, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

}  // namespace quorbix::virtdisk::test
