#include "guard/quiet_sides.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <tuple>
#include <utility>

#include "common/descriptor.h"
#include "common/folder_listing.h"
#include "guard/host_view.h"
#include "guard/lines.h"
#include "guard/paths.h"
#include "guard/state_file.h"

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

constexpr char kFileName[] = "quiet";
constexpr std::string_view kQuietTitle = "virtdisk sync quiet 1\n";
constexpr std::string_view kTitleOfAnyQuiet = "virtdisk sync quiet ";
constexpr char kStateLine[] = "state";
constexpr char kImageLine[] = "image";
constexpr char kRootLine[] = "host-folder";
constexpr char kReportLine[] = "report";  // files, bytes, seconds since 1970
constexpr char kNoteLine[] = "note";
constexpr char kFolderLine[] = "in";  // is followed by what it holds
constexpr char kFileLine[] = "file";
constexpr char kSubFolderLine[] = "folder";
constexpr char kTargetLine[] = "target";  // of the link before it

bool AreTrustworthy(const Sight& sight) {
  const auto isTrustworthy = [](const auto& entry) {
    return IsTrustworthy(entry.second.stamp, entry.second.taken);
  };
  const auto isReadable = [](const auto& entry) { return entry.second.isReadable; };
  return IsTrustworthy(sight.disk.stamp, sight.disk.taken) &&
         std::all_of(sight.host.seen.begin(), sight.host.seen.end(), isTrustworthy) &&
         std::all_of(sight.host.items.begin(), sight.host.items.end(), isReadable);
}

}  // namespace

std::optional<QuietSides> QuietSides::Take(const Places& places, const Sight& sight,
                                           const GuardedReport& report) {
  if (!AreTrustworthy(sight)) return std::nullopt;
  QuietSides sides;
  sides.root = sight.host.identity;
  sides.imageStamp = sight.disk.stamp;
  sides.stateStamp = StampAt(StateFileIn(places.stateFolder));
  sides.report = report;
  sides.report.isFirstMeeting = false;
  std::vector<std::string> pending{""};
  std::size_t seen = 0;
  while (!pending.empty()) {
    auto folder = List(places.folder, pending.back());
    pending.pop_back();
    if (!folder || !IsAsSeen(*folder, sight, seen)) return std::nullopt;
    for (const Entry& entry : folder->entries) {
      std::string path = Join(folder->path, entry.name);
      if (entry.isFolder && sight.host.items.contains(path)) pending.push_back(std::move(path));
    }
    sides.folders.push_back(*std::move(folder));
  }
  const bool isWhole = seen == sight.host.items.size() + sight.host.leftOut.size();
  return isWhole ? std::optional(std::move(sides)) : std::nullopt;
}

// What is left out for its name alone may be anything.
bool QuietSides::IsLeftOutAsBefore(const Entry& entry, const std::string& path,
                                   const HostView& host) {
  const auto before = host.entryStamps.find(path);
  if (before == host.entryStamps.end()) return true;
  if (entry.isFolder) return entry.stamp.identity == before->second.identity;
  const auto target = host.leftOutTargets.find(path);
  const bool hasTarget = target != host.leftOutTargets.end();
  if (entry.target.has_value() != hasTarget) return false;
  // What a folder behind a link holds takes no part.
  return entry.stamp == before->second &&
         (!hasTarget || entry.target->identity == target->second.identity);
}

bool QuietSides::IsAsSeen(const Folder& folder, const Sight& sight, std::size_t& seen) {
  for (const Entry& entry : folder.entries) {
    const std::string path = Join(folder.path, entry.name);
    ++seen;
    if (sight.host.leftOut.contains(path)) {
      if (!IsLeftOutAsBefore(entry, path, sight.host)) return false;
      continue;
    }
    const auto item = sight.host.items.find(path);
    if (item == sight.host.items.end()) return false;
    if ((item->second.type == EntryType::kFolder) != entry.isFolder) return false;
    if (entry.isFolder) continue;
    const auto content = sight.host.seen.find(path);
    const auto itself = sight.host.entryStamps.find(path);
    if (content == sight.host.seen.end() || itself == sight.host.entryStamps.end()) return false;
    const bool isSame = entry.stamp == itself->second &&
                        entry.target.value_or(entry.stamp) == content->second.stamp;
    if (!isSame) return false;
  }
  return true;
}

std::optional<QuietSides::Folder> QuietSides::List(const fs::path& root, const std::string& path) {
  Descriptor opened;
  const std::string whole = path.empty() ? root.native() : root.native() + '/' + path;
  const IfLink links = path.empty() ? IfLink::kFollow : IfLink::kRefuse;
  FolderListing listing = ListFolder(whole, links, opened);
  if (!listing.opened || listing.error) return std::nullopt;
  Folder folder{.path = path, .entries = {}};
  folder.entries.reserve(listing.entries.size());
  for (ListedEntry& listed : listing.entries) {
    Entry entry{.name = std::move(listed.name)};
    struct ::stat status;
    if (::fstatat(opened.Get(), entry.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      return std::nullopt;
    }
    entry.isFolder = S_ISDIR(status.st_mode);
    entry.stamp = StampOf(status);
    const bool isLink = S_ISLNK(status.st_mode);
    if (isLink && ::fstatat(opened.Get(), entry.name.c_str(), &status, 0) == 0) {
      entry.target = StampOf(status);
    }
    folder.entries.push_back(std::move(entry));
  }
  return folder;
}

bool QuietSides::AreStill(const Places& places) const {
  const auto folder = StampAt(places.folder);
  if (!folder || folder->identity != root || !stateStamp) return false;
  if (StampAt(places.image) != imageStamp ||
      StampAt(StateFileIn(places.stateFolder)) != stateStamp) {
    return false;
  }
  const auto isSame = [](const Entry& before, const Entry& now) {
    if (before.name != now.name || before.isFolder != now.isFolder) return false;
    if (before.isFolder) return before.stamp.identity == now.stamp.identity;
    return before.stamp == now.stamp && before.target == now.target;
  };
  return std::all_of(folders.begin(), folders.end(), [&](const Folder& before) {
    const auto now = List(places.folder, before.path);
    return now && std::equal(before.entries.begin(), before.entries.end(), now->entries.begin(),
                             now->entries.end(), isSame);
  });
}

void QuietSides::Save(const Places& places) const {
  std::string ignored;
  ByteBuffer bytes;
  const StateLoad there = LoadText(places.stateFolder / kFileName, bytes, ignored);
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  // It may be somebody else's file.
  if (there == StateLoad::kDamaged) return;
  if (there == StateLoad::kLoaded && !text.starts_with(kTitleOfAnyQuiet)) return;
  static_cast<void>(SaveText(places.stateFolder / kFileName, Format(), ignored));
}

std::optional<QuietSides> QuietSides::Load(const Places& places) {
  ByteBuffer bytes;
  std::string ignored;
  if (LoadText(places.stateFolder / kFileName, bytes, ignored) != StateLoad::kLoaded) {
    return std::nullopt;
  }
  QuietSides sides;
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  return sides.Parse(text) ? std::optional(std::move(sides)) : std::nullopt;
}

std::string QuietSides::Format() const {
  LineWriter writer;
  const auto stamp = [](const Stamp& of) {
    return std::tuple(of.identity.device, of.identity.inode, of.size, of.modified, of.changed);
  };
  const auto line = [&](const char* kind, const Stamp& of, const auto&... words) {
    std::apply([&](auto... numbers) { writer.Line(kind, numbers..., words...); }, stamp(of));
  };
  line(kStateLine, stateStamp.value_or(Stamp{}));
  line(kImageLine, imageStamp);
  writer.Line(kRootLine, root.device, root.inode);
  writer.Line(kReportLine, report.files, report.bytes, report.lastReadInFull);
  for (const GuardedNote& note : report.notes) {
    writer.Line(kNoteLine, Escaped(note.path), Escaped(note.text));
  }
  for (const Folder& folder : folders) {
    writer.Line(kFolderLine, Escaped(folder.path));
    for (const Entry& entry : folder.entries) {
      const std::string name = Escaped(entry.name);
      line(entry.isFolder ? kSubFolderLine : kFileLine, entry.stamp, name);
      if (entry.target) line(kTargetLine, *entry.target);
    }
  }
  return Sealed(kQuietTitle, writer.Take());
}

bool QuietSides::Parse(std::string_view text) {
  std::string ignored;
  if (!text.starts_with(kQuietTitle)) return false;
  text.remove_prefix(kQuietTitle.size());
  if (!TakeSeal(text, ignored)) return false;
  while (!text.empty()) {
    if (!ParseLine(TakeLine(text))) return false;
  }
  return true;
}

bool QuietSides::ParseLine(std::string_view text) {
  Line line(text);
  const std::string_view kind = line.Word();
  if (kind == kStateLine) {
    stateStamp = TakeStamp(line);
  } else if (kind == kImageLine) {
    imageStamp = TakeStamp(line);
  } else if (kind == kRootLine) {
    root.device = line.Number<std::uint64_t>();
    root.inode = line.Number<std::uint64_t>();
  } else if (kind == kReportLine) {
    report.files = line.Number<std::uint64_t>();
    report.bytes = line.Number<std::uint64_t>();
    report.lastReadInFull = line.Number<std::int64_t>();
  } else if (kind == kNoteLine) {
    GuardedNote& note = report.notes.emplace_back();
    note.path = line.Path();
    note.text = line.Path();
  } else if (kind == kFolderLine) {
    folders.push_back({.path = line.Path(), .entries = {}});
    if (!folders.back().path.empty() && !StaysInside(folders.back().path)) return false;
  } else if (!ParseEntry(kind, line)) {
    return false;
  }
  return line.IsSound();
}

bool QuietSides::ParseEntry(std::string_view kind, Line& line) {
  if (folders.empty()) return false;
  std::vector<Entry>& entries = folders.back().entries;
  if (kind == kFileLine || kind == kSubFolderLine) {
    Entry& entry = entries.emplace_back();
    entry.isFolder = kind == kSubFolderLine;
    entry.stamp = TakeStamp(line);
    entry.name = line.Path();
    return true;
  }
  if (kind != kTargetLine || entries.empty()) return false;
  entries.back().target = TakeStamp(line);
  return true;
}

}  // namespace quorbix::virtdisk::internal::guard
