#ifndef QUORBIX_VIRTDISK_TESTS_BROWSER_BROWSER_FIXTURE_H_
#define QUORBIX_VIRTDISK_TESTS_BROWSER_BROWSER_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "quorbix/virtdisk/fat16_fs_image.h"
#include "support/image_crafter.h"

namespace quorbix::virtdisk::test {

using Bytes = std::vector<std::uint8_t>;
using Names = std::vector<std::string>;
using Octets = std::initializer_list<std::uint8_t>;
using Words = std::initializer_list<std::uint16_t>;

inline Bytes ToBytes(std::string_view text) { return Bytes(text.begin(), text.end()); }
inline std::string ToText(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

// The message of a load, empty for a successful one.
inline std::string LoadMessage(Fat16FsImage& browser, const Bytes& image) {
  std::string err = "left over";
  const bool loaded = browser.LoadFromBytes(image, err);
  EXPECT_EQ(loaded, err.empty());
  return err;
}

inline std::string LoadMessage(const Bytes& image) {
  Fat16FsImage browser;
  return LoadMessage(browser, image);
}

inline std::unique_ptr<Fat16FsImage> Load(const Bytes& image) {
  auto browser = std::make_unique<Fat16FsImage>();
  EXPECT_EQ(LoadMessage(*browser, image), "");
  return browser;
}

inline std::unique_ptr<Fat16FsImage> Load(const ImageCrafter& crafter) {
  return Load(crafter.Bytes());
}

inline Names PathsOf(const std::vector<Fat16FsEntry>& entries) {
  Names paths;
  for (const Fat16FsEntry& entry : entries) paths.push_back(entry.path);
  return paths;
}

inline std::vector<Fat16FsEntry> List(const Fat16FsImage& browser, const std::string& path) {
  std::vector<Fat16FsEntry> entries;
  std::string err = "left over";
  EXPECT_TRUE(browser.ListDirectory(path, entries, err)) << path << ": " << err;
  EXPECT_EQ(err, "");
  return entries;
}

inline Names ListPaths(const Fat16FsImage& browser, const std::string& path) {
  return PathsOf(List(browser, path));
}

inline std::string ListMessage(const Fat16FsImage& browser, const std::string& path) {
  std::vector<Fat16FsEntry> entries(3);
  std::string err = "left over";
  const bool succeeded = browser.ListDirectory(path, entries, err);
  EXPECT_EQ(succeeded, err.empty());
  EXPECT_TRUE(err.empty() || entries.empty());
  return err;
}

inline Names SearchPaths(const Fat16FsImage& browser, const std::string& query) {
  std::vector<Fat16FsEntry> entries;
  std::string err = "left over";
  EXPECT_TRUE(browser.Search(query, entries, err)) << query << ": " << err;
  EXPECT_EQ(err, "");
  return PathsOf(entries);
}

// Every path begins with "/", so that this finds the whole index.
inline Names AllPaths(const Fat16FsImage& browser) { return SearchPaths(browser, "/"); }

inline Fat16FsEntry EntryAt(const Fat16FsImage& browser, const std::string& path) {
  std::vector<Fat16FsEntry> entries;
  std::string err;
  EXPECT_TRUE(browser.Search(path, entries, err)) << err;
  for (const Fat16FsEntry& entry : entries) {
    if (entry.path == path) return entry;
  }
  ADD_FAILURE() << path << " is not in the index";
  return {};
}

inline std::string ReadText(const Fat16FsImage& browser, const std::string& path) {
  Bytes content = {'o', 'l', 'd'};
  std::string err = "left over";
  EXPECT_TRUE(browser.ReadFile(path, content, err)) << path << ": " << err;
  EXPECT_EQ(err, "");
  return ToText(content);
}

inline std::string ReadMessage(const Fat16FsImage& browser, const std::string& path) {
  Bytes content = {'o', 'l', 'd'};
  std::string err = "left over";
  const bool succeeded = browser.ReadFile(path, content, err);
  EXPECT_EQ(succeeded, err.empty());
  EXPECT_TRUE(err.empty() || content.empty());
  return err;
}

inline std::string WriteMessage(Fat16FsImage& browser, const std::string& path,
                                const Bytes& content) {
  std::string err = "left over";
  const bool succeeded = browser.WriteExistingFile(path, content, err);
  EXPECT_EQ(succeeded, err.empty());
  return err;
}

inline std::string WriteMessage(Fat16FsImage& browser, const std::string& path,
                                std::string_view content) {
  return WriteMessage(browser, path, ToBytes(content));
}

// The numbers of clusters `first` to `last` in order.
inline std::vector<std::uint16_t> Clusters(unsigned first, unsigned last) {
  std::vector<std::uint16_t> clusters;
  for (unsigned i = first; i <= last; ++i) clusters.push_back(static_cast<std::uint16_t>(i));
  return clusters;
}

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_BROWSER_BROWSER_FIXTURE_H_
