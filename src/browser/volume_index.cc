#include "browser/volume_index.h"

#include <algorithm>
#include <string_view>

#include "browser/path_text.h"
#include "browser/release_slack.h"
#include "browser/text_matcher.h"
#include "browser/volume_description.h"
#include "browser/volume_walk.h"
#include "common/fail.h"

namespace quorbix::virtdisk::internal {
namespace {

constexpr std::string_view kDirectoryNotFound = "directory not found";
constexpr std::string_view kEmptyQuery = "empty query";
constexpr std::string_view kFileNotFound = "file not found";
constexpr std::string_view kIsDirectory = "path is a directory";

bool ComesBefore(const Fat16FsEntry& a, const Fat16FsEntry& b) {
  if (a.isDirectory != b.isDirectory) return a.isDirectory;
  return a.path < b.path;
}

bool HasSmallerPath(const Fat16FsEntry& a, const Fat16FsEntry& b) { return a.path < b.path; }

}  // namespace

bool VolumeIndex::Parse(std::string& err, Hidden hiddenEntries, Broken brokenDirectories) {
  try {
    const bool parsed = ParseOrThrow(err, hiddenEntries, brokenDirectories);
    ReleaseSlack();
    return parsed;
  } catch (...) {
    // Out of memory half way: the tables may be out of step, so none of them stays.
    Release();
    throw;
  }
}

bool VolumeIndex::ParseOrThrow(std::string& err, Hidden hiddenEntries, Broken brokenDirectories) {
  err.clear();
  Begin();
  info = Fat16FsInfo{};
  if (!DescribeVolume(image, info, err) || !chains.Measure(image, info, err)) return false;
  Walk walk(*this, hiddenEntries, brokenDirectories);
  if (!walk.Run(err)) return false;
  return hiddenEntries == Hidden::kPassOver || walk.CollectBelowHidden(err);
}

void VolumeIndex::Begin() noexcept {
  chains.Clear();
  paths.Clear();
  paths.KnowRoot();
  records.clear();
  hidden.clear();
  hiddenAreWhole = false;
  broken.clear();
}

void VolumeIndex::ReleaseSlack() {
  chains.ReleaseSlack();
  paths.ReleaseSlack();
  internal::ReleaseSlack(records);
  internal::ReleaseSlack(hidden);
  internal::ReleaseSlack(broken);
}

void VolumeIndex::Release() noexcept {
  chains = ChainTable();
  paths = PathTable();
  paths.KnowRoot();
  records = std::vector<EntryRecord>();
  hidden = std::vector<HiddenEntry>();
  broken = std::vector<std::uint32_t>();
}

std::string VolumeIndex::PathOf(const EntryRecord& record) const {
  std::string path(record.pathLength, '/');
  const EntryRecord* part = &record;
  std::size_t end = path.size();
  while (true) {
    end -= part->nameLength;
    path.replace(end, part->nameLength, part->Name());
    --end;  // the separator
    if (part->parent == kNoRecord) return path;
    part = &records[part->parent];
  }
}

std::size_t VolumeIndex::LongestPath() const {
  std::size_t longest = 0;
  for (const EntryRecord& record : records) {
    longest = std::max<std::size_t>(longest, record.pathLength);
  }
  return longest;
}

bool VolumeIndex::ListDirectory(const std::string& path, std::vector<Fat16FsEntry>& results,
                                std::string& err) const {
  // Looked up before `results` goes, in which `path` may lie.
  const auto key = paths.FindDirectory(NormalizePath(path));
  results.clear();
  err.clear();
  if (!key) return Fail(err, kDirectoryNotFound);
  for (const EntryRecord& record : records) {
    if (record.parentKey == *key) results.push_back(record.Entry(PathOf(record)));
  }
  std::stable_sort(results.begin(), results.end(), ComesBefore);
  return true;
}

bool VolumeIndex::Search(const std::string& query, std::vector<Fat16FsEntry>& results,
                         std::string& err) const {
  // Taken before `results` goes, in which `query` may lie. No path has more bytes than this, and
  // the matcher's memory grows with them.
  const TextMatcher matcher(std::string_view(query).substr(0, LongestPath() + 1));
  results.clear();
  err.clear();
  if (matcher.IsMatch(TextMatcher::kStart)) return Fail(err, kEmptyQuery);

  // The records come depth first, so that each one's path begins with a part of the path before
  // it, and the search in it goes on where it stood at the end of its directory's path. So the work
  // grows neither with the depth nor with the query.
  std::string path;
  std::vector<TextMatcher::State> states(records.size());
  for (std::size_t i = 0; i < records.size(); ++i) {
    const EntryRecord& record = records[i];
    const std::size_t parentLength = record.pathLength - record.nameLength - std::size_t{1};
    path.resize(parentLength);
    path.append("/").append(record.Name());
    const bool inRoot = record.parent == kNoRecord;
    states[i] = matcher.Advance(inRoot ? TextMatcher::kStart : states[record.parent],
                                std::string_view(path).substr(parentLength));
    if (matcher.IsMatch(states[i])) results.push_back(record.Entry(path));
  }
  std::stable_sort(results.begin(), results.end(), HasSmallerPath);
  return true;
}

const EntryRecord* VolumeIndex::FindFile(const std::string& path, std::string& err) const {
  const std::uint32_t number = paths.FindRecord(NormalizePath(path));
  err.clear();
  const bool isDirectory = number != kNoRecord && records[number].IsDirectory();
  if (number != kNoRecord && !isDirectory) return &records[number];
  err = isDirectory ? kIsDirectory : kFileNotFound;
  return nullptr;
}

}  // namespace quorbix::virtdisk::internal
