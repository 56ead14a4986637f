// Random edits on both sides and passes in between, against a model of the decision table on plain
// maps.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <random>
#include <set>

#include "support/search_effort.h"
#include "sync/sync_pass.h"
#include "sync/synced_disk.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using test::GuestEditor;

std::string Lower(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

std::string Upper(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

FileTree ByKey(const FileTree& files) {
  FileTree keyed;
  for (const auto& [path, content] : files) keyed[Lower(path)] = content;
  return keyed;
}

struct HostFile {
  std::string content;
  std::string path;         // relative, with its own letter case
  bool afterEpoch = false;  // dated so late that it wins every conflict
};

// What a pass compares before it reads the image.
using HostView = std::map<std::string, std::pair<std::string, bool>>;

class Model {
 public:
  void Pass() {
    const HostView view = View();
    if (known && !imageTouched && view == agreedView) return;
    bool rebuild = false;
    std::set<std::string> keys;
    for (const auto& [key, file] : host) keys.insert(key);
    for (const auto& [key, content] : image) keys.insert(key);
    for (const std::string& key : keys) rebuild = Reconcile(key) || rebuild;
    const bool rebuilt = rebuild && HostFits();
    if (rebuilt) image = HostContents();
    baseline = HostContents();
    agreedView = rebuilt ? view : View();
    hostTouched = agreedView != View();
    imageTouched = false;
    known = true;
  }

  HostView View() const {
    HostView view;
    for (const auto& [key, file] : host) view[key] = {file.content, file.afterEpoch};
    return view;
  }

  FileTree HostPaths() const {
    FileTree files;
    for (const auto& [key, file] : host) files[file.path] = file.content;
    return files;
  }

  // Edits that cancel each other out leave it open whether the listing kept its order.
  bool IsAmbiguous() const { return hostTouched && View() == agreedView; }

  std::map<std::string, HostFile> host;
  FileTree image;  // by key
  bool imageTouched = false;
  bool hostTouched = false;
  std::uint64_t imageBytes = 0;

 private:
  bool HostFits() const {
    std::uint64_t sum = 0;
    for (const auto& [key, file] : host) sum += file.content.size();
    return sum < imageBytes;  // the scenarios stay well below, or go well beyond
  }

  FileTree HostContents() const {
    FileTree contents;
    for (const auto& [key, file] : host) contents[key] = file.content;
    return contents;
  }

  // Returns whether the image has to be rebuilt.
  bool Reconcile(const std::string& key) {
    const auto h = host.find(key);
    const auto i = image.find(key);
    const auto b = baseline.find(key);
    const bool agreed = b != baseline.end();
    if (h != host.end() && i != image.end()) {
      if (h->second.content == i->second) return false;
      const bool hostChanged = !agreed || h->second.content != b->second;
      const bool imageChanged = !agreed || i->second != b->second;
      if (hostChanged && !imageChanged) return true;
      if (hostChanged && imageChanged && h->second.afterEpoch) return true;
      h->second = {i->second, h->second.path, false};
      return false;
    }
    if (h != host.end()) {
      if (!agreed || h->second.content != b->second) return true;
      host.erase(h);
      return false;
    }
    if (agreed && i->second == b->second) return true;
    host[key] = {i->second, Upper(key), false};
    return false;
  }

  FileTree baseline;
  HostView agreedView;
  bool known = false;
};

class Scenario {
 public:
  explicit Scenario(unsigned seed) : random(seed) {
    model.imageBytes = 64 * 1024 + Below(5) * 48 * 1024;
  }

  void Run() {
    for (std::uint64_t i = Below(5); i > 0; --i) WriteOnHost(Key(), Content());
    folder.Folder("host");
    ASSERT_TRUE(CreateFat16Builder()->Build(folder / "host", Image(), model.imageBytes));
    model.image = ByKey(GuestEditor(Image()).Files());
    for (std::uint64_t i = 2 + Below(4); i > 0; --i) {
      if (!EditAndPass()) return;
    }
  }

 private:
  static constexpr std::array<const char*, 9> kKeys{"a.txt",     "b.bin",     "c",
                                                    "sub/a.txt", "sub/d.dat", "sub/deep/e.txt",
                                                    "x/f.c",     "x/g.h",     "longname.abc"};

  fs::path Image() const { return folder / "DISK.IMG"; }

  std::uint64_t Below(std::uint64_t bound) { return random() % bound; }

  std::string Key() { return kKeys[Below(kKeys.size())]; }

  // Never the same twice, so that equal contents are equal on purpose.
  std::string Content() {
    const std::string unique = std::to_string(++contents) + " ";
    switch (Below(4)) {
      case 0:
        return unique;
      case 1:
        return unique + std::string(Below(3000), 'x');
      case 2:
        return unique + std::string(512 - unique.size(), 'c');  // whole clusters
      default:
        return unique + std::string(1024 - unique.size(), 'd');
    }
  }

  // Folders in upper case, so that both sides mean the same one; file names in any.
  std::string HostPath(const std::string& key) {
    const auto slash = key.rfind('/');
    const auto name = slash == std::string::npos ? 0 : slash + 1;
    const std::string file = key.substr(name);
    return Upper(key.substr(0, name)) + (Below(2) == 0 ? file : Upper(file));
  }

  void WriteOnHost(const std::string& key, const std::string& content) {
    HostFile& file = model.host[key];
    if (file.path.empty()) file.path = HostPath(key);
    file.content = content;
    folder.File("host/" + file.path, content);
    file.afterEpoch = Below(3) == 0;
    const fs::file_time_type epoch{};
    const auto late = epoch + std::chrono::hours(24 * 365 * 20);
    fs::last_write_time(folder / "host" / file.path,
                        file.afterEpoch ? late : fs::file_time_type::clock::now());
  }

  void EditHost() {
    model.hostTouched = true;
    const std::string key = Key();
    switch (Below(8)) {
      case 0:
      case 1:
      case 2:
      case 3:
        return WriteOnHost(key, Content());
      case 4:
        return WriteOnHost(key, "");
      case 5:
      case 6:
        if (model.host.contains(key)) folder.Remove("host/" + model.host[key].path);
        model.host.erase(key);
        return;
      default:
        if (Below(4) == 0) WriteOnHost("huge.bin", std::string(model.imageBytes + 10'000, 'h'));
    }
  }

  void WriteInImage(GuestEditor& guest, const std::string& key, const std::string& content) {
    const std::string path = Upper(key);
    for (auto slash = path.find('/'); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
      guest.MakeFolder(path.substr(0, slash));
    }
    if (!guest.Write(path, content)) return;
    guest.SetStamp(path, static_cast<std::uint16_t>(random()),
                   static_cast<std::uint16_t>(random()));
    model.image[key] = content;
  }

  void EditImage(GuestEditor& guest) {
    const std::string key = Key();
    switch (Below(7)) {
      case 0:
      case 1:
        return WriteInImage(guest, key, Content());
      case 2:
        if (!model.image.contains(key)) return;
        if (guest.Append(Upper(key), "more")) model.image[key] += "more";
        return;
      case 3:
        if (guest.Remove(Upper(key))) model.image.erase(key);
        return;
      case 4: {  // within its folder; only names that the host can have as they are
        const std::string renamed = key.substr(0, key.rfind('/') + 1) + "r.txt";
        if (!model.image.contains(key) || !guest.Rename(Upper(key), "R.TXT")) return;
        model.image[renamed] = model.image[key];
        model.image.erase(key);
        return;
      }
      case 5: {  // both sides come to the same content
        const std::string content = Content();
        WriteInImage(guest, key, content);
        if (model.image.contains(key) && model.image[key] == content) WriteOnHost(key, content);
        model.hostTouched = true;
        return;
      }
      default:
        return WriteInImage(guest, key, "");
    }
  }

  void EditInImage() {
    GuestEditor guest(Image());
    for (std::uint64_t i = 1 + Below(4); i > 0; --i) EditImage(guest);
    guest.Save();
    model.imageTouched = true;
  }

  bool EditAndPass() {
    const std::uint64_t who = Below(4);  // nobody, host, image, both
    if ((who & 1) != 0) {
      for (std::uint64_t i = 1 + Below(4); i > 0; --i) EditHost();
    }
    if ((who & 2) != 0) EditInImage();
    if (model.IsAmbiguous()) WriteOnHost("unique.txt", Content());
    const std::size_t hostFiles = model.host.size();
    RunSyncPass(Image(), folder / "host", state);
    model.Pass();
    EXPECT_EQ(folder.Files("host"), model.HostPaths());
    EXPECT_EQ(ByKey(GuestEditor(Image()).Files()), model.image);
    EXPECT_EQ(fs::file_size(Image()), model.imageBytes);
    if (model.host.size() < hostFiles) ExpectNoEmptyFolders();
    return !testing::Test::HasFailure();
  }

  void ExpectNoEmptyFolders() const {
    for (const auto& entry : fs::recursive_directory_iterator(folder / "host")) {
      EXPECT_FALSE(entry.is_directory() && fs::is_empty(entry.path())) << entry.path();
    }
  }

  std::mt19937_64 random;
  test::TempFolder folder;
  SyncState state;
  Model model;
  int contents = 0;
};

// Thousands of files made and removed again are quicker in memory.
void WorkInMemoryIfPossible() {
  if (::access("/dev/shm", W_OK | X_OK) == 0) ::setenv("TMPDIR", "/dev/shm", 1);
}

TEST(SyncModel, RandomScenarios_AgreeWithTheDecisionTable) {
  WorkInMemoryIfPossible();
  const unsigned scenarios = test::IsWholeSearch() ? 1000 : 200;
  for (unsigned seed = 0; seed < scenarios; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Scenario(seed).Run();
    ASSERT_FALSE(HasFailure());
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
