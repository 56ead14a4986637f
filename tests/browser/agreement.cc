#include "agreement.h"

#include <algorithm>
#include <cstddef>

#include "plain_browser.h"

namespace quorbix::virtdisk::test {

using Bytes = std::vector<std::uint8_t>;

namespace {

using Entries = std::vector<Fat16FsEntry>;

bool SameEntry(const Fat16FsEntry& a, const Fat16FsEntry& b) {
  return a.name == b.name && a.path == b.path && a.isDirectory == b.isDirectory &&
         a.attributes == b.attributes && a.size == b.size && a.firstCluster == b.firstCluster &&
         a.writeTime == b.writeTime && a.writeDate == b.writeDate;
}

bool SameEntries(const Entries& a, const Entries& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), SameEntry);
}

std::string CompareList(const Fat16FsImage& browser, const PlainBrowser& plain,
                        const std::string& path) {
  Entries got, want;
  std::string err;
  const bool listed = browser.ListDirectory(path, got, err);
  const std::string wrong =
      FindWrongOutcome("listing " + path, listed, err, plain.List(path, want));
  if (!wrong.empty()) return wrong;
  return SameEntries(got, want) ? "" : "listing of " + path;
}

std::string CompareSearch(const Fat16FsImage& browser, const PlainBrowser& plain,
                          const std::string& query) {
  Entries got, want;
  std::string err;
  const bool searched = browser.Search(query, got, err);
  const std::string wrong =
      FindWrongOutcome("searching " + query, searched, err, plain.Search(query, want));
  if (!wrong.empty()) return wrong;
  return SameEntries(got, want) ? "" : "search for " + query;
}

std::string CompareRead(const Fat16FsImage& browser, const PlainBrowser& plain,
                        const std::string& path) {
  Bytes got, want;
  std::string err;
  const bool read = browser.ReadFile(path, got, err);
  const std::string wrong = FindWrongOutcome("reading " + path, read, err, plain.Read(path, want));
  if (!wrong.empty()) return wrong;
  return got == want ? "" : "content of " + path;
}

std::string CompareIndex(const Fat16FsImage& browser, const PlainBrowser& plain) {
  if (!SameInfo(browser.Info(), plain.info)) return "volume description";
  if (browser.ImageBytes() != plain.image) return "image bytes";
  return CompareSearch(browser, plain, "/");  // which every path begins with
}

// Everything that does not change the image.
std::string CompareQueries(const Fat16FsImage& browser, const PlainBrowser& plain,
                           std::size_t queries) {
  std::string difference;
  for (const char* path : {"", "/A/B", "none"}) {
    if (difference.empty()) difference = CompareList(browser, plain, path);
    if (difference.empty()) difference = CompareSearch(browser, plain, path);
    if (difference.empty()) difference = CompareRead(browser, plain, path);
  }
  const std::size_t step = plain.records.size() / queries + 1;
  for (std::size_t i = 0; i < plain.records.size(); i += step) {
    const PlainBrowser::Record& record = plain.records[i];
    const std::string& path = record.entry.path;
    if (difference.empty()) difference = CompareList(browser, plain, path);
    if (difference.empty()) difference = CompareRead(browser, plain, path);
    if (difference.empty()) difference = CompareSearch(browser, plain, record.entry.name);
    if (difference.empty()) {
      difference = CompareSearch(browser, plain, path.substr(path.size() / 2));
    }
    if (!difference.empty()) return difference;
  }
  return difference;
}

std::string Rewrite(Fat16FsImage& browser, PlainBrowser& plain, const std::string& path,
                    const Bytes& content) {
  std::string err;
  const bool written = browser.WriteExistingFile(path, content, err);
  const std::string wrong =
      FindWrongOutcome("rewriting " + path, written, err, plain.Write(path, content));
  if (!wrong.empty()) return wrong;
  const std::string difference = CompareIndex(browser, plain);
  return difference.empty() ? CompareRead(browser, plain, path) : difference;
}

}  // namespace

bool SameInfo(const Fat16FsInfo& a, const Fat16FsInfo& b) {
  return a.partitioned == b.partitioned && a.partitionType == b.partitionType &&
         a.partitionStartLba == b.partitionStartLba &&
         a.partitionSectorCount == b.partitionSectorCount && a.bytesPerSector == b.bytesPerSector &&
         a.sectorsPerCluster == b.sectorsPerCluster && a.reservedSectors == b.reservedSectors &&
         a.fatCount == b.fatCount && a.rootEntryCount == b.rootEntryCount &&
         a.sectorsPerFat == b.sectorsPerFat && a.totalSectors == b.totalSectors &&
         a.fileSystemType == b.fileSystemType && a.volumeLabel == b.volumeLabel &&
         a.volumeOffset == b.volumeOffset && a.fatStartSector == b.fatStartSector &&
         a.rootDirStartSector == b.rootDirStartSector && a.dataStartSector == b.dataStartSector &&
         a.rootDirSectors == b.rootDirSectors;
}

std::string FindDisagreement(const Bytes& image, std::size_t queries, std::size_t rewrites) {
  Fat16FsImage browser;
  PlainBrowser plain;
  std::string err;
  const bool loaded = browser.LoadFromBytes(image, err);
  std::string difference = FindWrongOutcome("loading", loaded, err, plain.Load(image));
  if (!difference.empty()) return difference;
  difference = CompareIndex(browser, plain);
  if (difference.empty()) difference = CompareQueries(browser, plain, queries);

  const std::vector<PlainBrowser::Record> records = plain.records;
  for (std::size_t i = 0; i < std::min(rewrites, records.size()) && difference.empty(); ++i) {
    const PlainBrowser::Record& record = records[records.size() - 1 - i];
    const std::string& path = record.entry.path;
    Bytes own;
    plain.Read(path, own);
    difference = Rewrite(browser, plain, path, own);
    for (const std::uint64_t length : {record.allocatedBytes + 1, record.allocatedBytes,
                                       record.allocatedBytes / 2, std::uint64_t{0}}) {
      if (difference.empty()) {
        difference = Rewrite(browser, plain, path, Bytes(length, static_cast<std::uint8_t>(i)));
      }
    }
  }
  return difference;
}

std::string FindWrongOutcome(const std::string& operation, bool succeeded, const std::string& err,
                             const std::string& want) {
  if (err != want) return operation + ": \"" + err + "\" instead of \"" + want + "\"";
  if (succeeded == want.empty()) return "";
  return operation + (succeeded ? ": true" : ": false") + " with the message \"" + err + "\"";
}

}  // namespace quorbix::virtdisk::test
