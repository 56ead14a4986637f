#include "guard/planning.h"

#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>
#include <utility>

#include "guard/disk_names.h"
#include "guard/host_names.h"
#include "sync/file_version.h"
#include "sync/sync_decision.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using Kind = GuardedStep::Kind;
using Reason = GuardedStep::Reason;

// The decisions compare hashes alone; contents of different sizes are different whatever these say.
std::uint64_t Mark(const Content& content) {
  return content.hash ^ (content.size * 0x9E3779B97F4A7C15);
}

std::optional<FileVersion> VersionOf(const std::optional<Content>& content) {
  if (!content) return std::nullopt;
  return FileVersion{.contentHash = Mark(*content)};
}

template <class Item>
std::optional<FileVersion> VersionOf(const std::optional<Item>& item) {
  return item ? VersionOf(std::optional(item->content)) : std::nullopt;
}

enum class FileAction {
  kNothing,
  kDrop,    // gone on both sides
  kToHost,  // the disk's version is written to the host
  kToDisk,  // the host's version goes to the disk
  kDeleteOnHost,
  kDeleteOnDisk,
  kKeepBoth,
  kLeaveAlone,  // the host's version cannot be read
  kLose,        // the disk's version cannot be read, and there is no other
};

struct Decision {
  FileAction action = FileAction::kNothing;
  bool isConflict = false;
};

class Planner {
 public:
  Planner(const Observation& seen, const Memory& known, const Pairing& paired,
          const PlanRules& planRules)
      : observation(seen), memory(known), pairing(paired), rules(planRules) {
    std::set<std::string> agreed;
    for (const Pair& pair : memory.pairs) {
      if (pair.agreed) agreed.insert(pair.host);
    }
    for (const auto& [path, item] : observation.host) {
      const bool isFolder = item.type == EntryType::kFolder;
      hasUnreadableFolders = hasUnreadableFolders || (isFolder && !item.isReadable);
      const bool isReadable = !isFolder && item.isReadable;
      if (!isReadable || !MayBeBeside(NameOf(path)) || agreed.contains(path)) continue;
      versionsBeside[FamilyOfBeside(path)].push_back(path);
    }
  }

  Plan Run() {
    plan.needsImage = rules.mendsDisk;
    UseAllNames();
    for (const Row& row : pairing.rows) {
      if (row.type == EntryType::kFile) PlanFile(row);
    }
    PlanFolders();
    FinishTree();
    return std::move(plan);
  }

 private:
  void UseAllNames() {
    for (const auto& [path, item] : observation.host) hostNames.Use(path);
    for (const std::string& path : observation.hostLeftOut) hostNames.Use(path);
    for (const auto& [key, item] : observation.disk) diskNames.Use(ParentOf(key), item.shortName);
    for (const Row& row : pairing.rows) {
      hostNames.Use(row.host);
      diskNames.UseListed(row.disk);
    }
  }

  Decision Decide(const Row& row) const {
    if (row.onHost && !row.onHost->isReadable) return {FileAction::kLeaveAlone};
    if (row.onDisk && !row.onDisk->isReadable) {
      return {row.onHost ? FileAction::kToDisk : FileAction::kLose};
    }
    if (IsNewWhereNothingCanBeSeen(row)) return {FileAction::kLeaveAlone};
    if (row.onDisk && observation.hostCutLinks.contains(row.host)) return {FileAction::kToHost};
    const auto host = VersionOf(row.onHost);
    const auto disk = VersionOf(row.onDisk);
    const auto agreed = VersionOf(row.agreed);
    if (IsConflict(host, disk, agreed)) return DecideConflict(row);
    switch (internal::Decide(host, disk, agreed)) {
      case SyncAction::kNothing:
        return {host ? FileAction::kNothing : FileAction::kDrop};
      case SyncAction::kCopyToHost:
        return {FileAction::kToHost};
      case SyncAction::kDeleteOnHost:
        return {FileAction::kDeleteOnHost};
      case SyncAction::kRebuildImage:
        return {host ? FileAction::kToDisk : FileAction::kDeleteOnDisk};
    }
    return {};
  }

  // On the disk, below a folder that cannot be listed, and so not written to by its path either.
  bool IsNewWhereNothingCanBeSeen(const Row& row) const {
    return !row.onHost && row.onDisk && IsWhereNothingCanBeSeen(row.host);
  }

  bool IsWhereNothingCanBeSeen(const std::string& hostPath) const {
    if (!hasUnreadableFolders) return false;
    for (std::string path = ParentOf(hostPath); !path.empty(); path = ParentOf(path)) {
      const auto folder = observation.host.find(path);
      if (folder != observation.host.end() && !folder->second.isReadable) return true;
    }
    return false;
  }

  Decision DecideConflict(const Row& row) const {
    // A build left the entry without a date, and no machine has touched it since: it is an older
    // version of the host's own.
    if (rules.isFirstMeeting && !row.onDisk->isDated) return {FileAction::kToDisk};
    switch (rules.onConflict) {
      case ConflictRule::kTakeDisk:
        return {FileAction::kToHost, true};
      case ConflictRule::kTakeHost:
        return {FileAction::kToDisk, true};
      case ConflictRule::kKeepBoth:
      case ConflictRule::kStop:
        return {FileAction::kKeepBoth, true};
    }
    return {};
  }

  void PlanFile(const Row& row) {
    const Decision decision = Decide(row);
    if (decision.isConflict) plan.conflicts.push_back(row.host);
    switch (decision.action) {
      case FileAction::kDrop:
        return;
      case FileAction::kNothing:
        return AddEntry(row.host, row.disk, row.onHost->content);
      case FileAction::kToHost:
        return ToHost(row, decision.isConflict);
      case FileAction::kToDisk:
        return ToDisk(row, decision.isConflict);
      case FileAction::kDeleteOnHost:
        AddStep(Kind::kDeleteOnHost, Reason::kDeleted, row, row.onHost->content.size);
        plan.hostDeletions.push_back(row.host);
        ++plan.deletedOnHost;
        return;
      case FileAction::kDeleteOnDisk:
        AddStep(Kind::kDeleteOnDisk, Reason::kDeleted, row, row.onDisk->content.size);
        plan.needsImage = true;
        ++plan.deletedOnDisk;
        return;
      case FileAction::kKeepBoth:
        return KeepBoth(row);
      case FileAction::kLeaveAlone:
        return LeaveAlone(row);
      case FileAction::kLose:
        plan.lostOnDisk.push_back(row.disk);
        plan.needsImage = true;
        return;
    }
  }

  void ToHost(const Row& row, bool isConflict) {
    const Reason news = row.agreed || row.onHost ? Reason::kChanged : Reason::kNew;
    // What takes no part may have taken the file's place: a link that leads nowhere, a pipe.
    const std::string host = observation.hostLeftOut.contains(row.host)
                                 ? hostNames.Take(ParentOf(row.host), NameOf(row.host))
                                 : row.host;
    WriteOnHost(row, host, isConflict ? Reason::kConflict : news);
    AddEntry(host, row.disk, row.onDisk->content);
  }

  void WriteOnHost(const Row& row, const std::string& host, Reason reason) {
    const Content& content = row.onDisk->content;
    plan.steps.push_back({.kind = Kind::kWriteOnHost,
                          .reason = reason,
                          .hostPath = host,
                          .diskPath = '/' + row.disk,
                          .bytes = content.size});
    plan.hostWrites.push_back({host, row.disk, content, observation.host.contains(host)});
  }

  void ToDisk(const Row& row, bool isConflict) {
    Reason reason = row.agreed || row.onDisk ? Reason::kChanged : Reason::kNew;
    if (row.onDisk && !row.onDisk->isReadable) reason = Reason::kUnreadable;
    if (isConflict) reason = Reason::kConflict;
    AddStep(Kind::kWriteOnDisk, reason, row, row.onHost->content.size);
    plan.needsImage = true;
    AddEntry(row.host, row.disk, row.onHost->content);
  }

  // The host's version stays where it is and goes to the disk; the disk's is written beside it, and
  // gets a name of its own there, unless a pass that was cut off has done that already.
  void KeepBoth(const Row& row) {
    if (!HasKeptVersion(row)) {
      const std::string host = hostNames.TakeBeside(row.host, rules.when);
      WriteOnHost(row, host, Reason::kConflict);
      const std::string name = diskNames.Take(ParentOf(row.disk), NameOf(host));
      // Without a short name left it stays on the host alone, as any such file.
      if (!name.empty()) AddEntry(host, Join(ParentOf(row.disk), name), row.onDisk->content);
    }
    ToDisk(row, true);
  }

  // Whether a file beside the host's own holds the disk's version already, from a pass that was cut
  // off. What has been agreed on may be about to change or to go.
  bool HasKeptVersion(const Row& row) const {
    const auto beside = versionsBeside.find(FamilyOf(row.host));
    return beside != versionsBeside.end() &&
           std::any_of(beside->second.begin(), beside->second.end(), [&](const std::string& path) {
             return observation.host.at(path).content == row.onDisk->content &&
                    IsBeside(path, row.host);
           });
  }

  // What is on the disk stays there as well; a deletion on one side waits until both can be seen.
  // What cannot be read there either is missing from the next image, and nobody has deleted it.
  void LeaveAlone(const Row& row) {
    NoteLife(row.host);
    const bool isLost = row.onDisk && !row.onDisk->isReadable;
    if (row.onDisk && !isLost) {
      plan.tree.push_back({row.disk, row.host, EntryType::kFile, row.onDisk->content, true});
    }
    if (row.agreed || row.onDisk) {
      plan.after.pairs.push_back(
          {row.host, row.disk, EntryType::kFile, isLost ? std::nullopt : row.agreed});
    }
  }

  void AddEntry(const std::string& host, const std::string& disk, const Content& content) {
    plan.tree.push_back({disk, host, EntryType::kFile, content, false});
    plan.after.pairs.push_back({host, disk, EntryType::kFile, content});
    NoteLife(host);
  }

  void AddStep(Kind kind, Reason reason, const Row& row, std::uint64_t bytes) {
    plan.steps.push_back({.kind = kind,
                          .reason = reason,
                          .hostPath = row.host,
                          .diskPath = '/' + row.disk,
                          .bytes = bytes});
  }

  // Everything above what stays, stays.
  void NoteLife(const std::string& hostPath) {
    for (std::string folder = ParentOf(hostPath); !folder.empty(); folder = ParentOf(folder)) {
      if (!lively.insert(folder).second) return;
    }
  }

  void PlanFolders() {
    for (const std::string& path : observation.hostLeftOut) NoteLife(path);
    for (const std::string& path : pairing.unnamed) NoteLife(path);
    for (const auto& [path, item] : observation.host) {
      // Nobody knows what it holds.
      if (!item.isReadable && item.type == EntryType::kFolder) lively.insert(path);
    }
    // What a folder holds comes after it: backwards, a folder is decided when all of that is.
    for (auto row = pairing.rows.rbegin(); row != pairing.rows.rend(); ++row) {
      if (row->type == EntryType::kFolder) PlanFolder(*row);
    }
    std::reverse(plan.hostFolders.begin(), plan.hostFolders.end());
  }

  void PlanFolder(const Row& row) {
    if (IsNewWhereNothingCanBeSeen(row)) {
      plan.tree.push_back({row.disk, row.host, EntryType::kFolder, {}, false});
      plan.after.pairs.push_back({row.host, row.disk, EntryType::kFolder, std::nullopt});
      return;
    }
    const bool isNewOrOnBoth = (row.onHost && row.onDisk) || !row.agreed;
    if (!isNewOrOnBoth && !lively.contains(row.host)) return RemoveFolder(row);
    NoteLife(row.host);
    if (row.agreed && row.onHost && !row.onDisk) plan.keptFolders.push_back(row.host);
    plan.tree.push_back({row.disk, row.host, EntryType::kFolder, {}, false});
    // What is only assumed to be there is not agreed on.
    const auto agreed =
        IsWhereNothingCanBeSeen(row.host) ? row.agreed : std::optional<Content>(Content{});
    plan.after.pairs.push_back({row.host, row.disk, EntryType::kFolder, agreed});
    if (!row.onHost) {
      AddStep(Kind::kMakeOnHost, Reason::kNew, row, 0);
      plan.hostFolders.push_back(row.host);
    }
    if (!row.onDisk) {
      AddStep(Kind::kMakeOnDisk, Reason::kNew, row, 0);
      plan.needsImage = true;
    }
  }

  void RemoveFolder(const Row& row) {
    if (row.onHost) {
      AddStep(Kind::kRemoveOnHost, Reason::kDeleted, row, 0);
      plan.hostRemovals.push_back(row.host);
    }
    if (row.onDisk) {
      AddStep(Kind::kRemoveOnDisk, Reason::kDeleted, row, 0);
      plan.needsImage = true;
    }
  }

  void FinishTree() {
    std::sort(plan.tree.begin(), plan.tree.end(), [](const TreeEntry& a, const TreeEntry& b) {
      return DiskKey(a.disk) < DiskKey(b.disk);
    });
    std::sort(plan.after.pairs.begin(), plan.after.pairs.end(),
              [](const Pair& a, const Pair& b) { return a.host < b.host; });
    if (plan.needsImage) return;
    // The next image does without what is ignored.
    for (const std::string& key : pairing.ignored) {
      plan.after.ignored.emplace(key, memory.ignored.at(key));
    }
  }

  const Observation& observation;
  const Memory& memory;
  // Files of the host that are new and have names of kept versions, by what they are versions of.
  std::map<std::string, std::vector<std::string>> versionsBeside;
  const Pairing& pairing;
  const PlanRules& rules;
  HostNames hostNames;
  DiskNames diskNames;
  bool hasUnreadableFolders = false;
  std::set<std::string> lively;  // folders of the host that hold something afterwards
  Plan plan;
};

constexpr int kMostLinks = 40;  // one behind the other, as many as the system follows

// What a plan does to the files that links lead to.
class LinkFuture {
 public:
  LinkFuture(const FileLinks& fileLinks, const Plan& plan)
      : links(fileLinks), deleted(plan.hostDeletions.begin(), plan.hostDeletions.end()) {
    for (const HostWrite& write : plan.hostWrites) written.emplace(write.host, write.content);
  }

  // Whether it leads nowhere afterwards, although it is still there.
  bool IsCut(const std::string& link) const {
    const std::string* planned = FirstPlannedBehind(link);
    return planned != nullptr && deleted.contains(*planned);
  }

  std::optional<Content> WrittenBehind(const std::string& link) const {
    const std::string* planned = FirstPlannedBehind(link);
    const auto write = planned != nullptr ? written.find(*planned) : written.end();
    if (write == written.end()) return std::nullopt;
    return write->second;
  }

 private:
  bool IsPlanned(const std::string& path) const {
    return deleted.contains(path) || written.contains(path);
  }

  // Nothing when the link itself is written or deleted. Links that lead round in circles are none
  // of these.
  const std::string* FirstPlannedBehind(const std::string& link) const {
    if (IsPlanned(link)) return nullptr;
    int followed = 0;
    for (auto at = links.find(link); at != links.end() && ++followed <= kMostLinks;
         at = links.find(at->second.next)) {
      if (IsPlanned(at->second.next)) return &at->second.next;
      // By way of a link that takes no part itself.
      if (IsPlanned(at->second.end)) return &at->second.end;
    }
    return nullptr;
  }

  const FileLinks& links;
  std::map<std::string, Content> written;
  std::set<std::string> deleted;
};

// What the guest has of a link is a file: it stays, and takes the link's place.
bool IsOnDisk(const std::string& host, const Plan& plan, const Observation& observation) {
  const auto pair =
      std::lower_bound(plan.after.pairs.begin(), plan.after.pairs.end(), host,
                       [](const Pair& p, const std::string& h) { return p.host < h; });
  if (pair == plan.after.pairs.end() || pair->host != host) return false;
  const auto item = observation.disk.find(DiskKey(pair->disk));
  return item != observation.disk.end() && item->second.type == EntryType::kFile &&
         item->second.isReadable;
}

bool NoteCutLinks(const FileLinks& links, const LinkFuture& future, const Plan& plan,
                  Observation& observation) {
  bool isNews = false;
  for (const auto& [link, next] : links) {
    const bool isCut = observation.host.contains(link) && future.IsCut(link);
    if (!isCut || !IsOnDisk(link, plan, observation)) continue;
    isNews = observation.hostCutLinks.insert(link).second || isNews;
  }
  return isNews;
}

}  // namespace

Plan MakePlan(const Observation& observation, const Memory& memory, const Pairing& pairing,
              const PlanRules& rules) {
  return Planner(observation, memory, pairing, rules).Run();
}

bool ForeseeLinks(const FileLinks& links, const Plan& plan, Observation& observation) {
  if (links.empty()) return false;
  const LinkFuture future(links, plan);
  // A plan that knows of these writes files in their places: what leads through them is not cut.
  if (NoteCutLinks(links, future, plan, observation)) return true;
  bool isNews = false;
  for (const auto& [link, next] : links) {
    const auto item = observation.host.find(link);
    const std::optional<Content> written = future.WrittenBehind(link);
    if (item == observation.host.end()) {
      if (!next.isLoose || !written) continue;
      observation.host.emplace(link, HostItem{.content = *written});
      observation.hostLeftOut.erase(link);
      isNews = true;
      continue;
    }
    if (future.IsCut(link) && !observation.hostCutLinks.contains(link)) {
      observation.host.erase(item);
      observation.hostLeftOut.insert(link);
      isNews = true;
    } else if (written && item->second.content != *written) {
      item->second.content = *written;
      isNews = true;
    }
  }
  return isNews;
}

Observation Apply(const Plan& plan, const Observation& observation) {
  Observation after = observation;
  for (const std::string& folder : plan.hostFolders) {
    after.host[folder] = {.type = EntryType::kFolder, .content = {}};
  }
  for (const HostWrite& write : plan.hostWrites) {
    after.host[write.host] = {.content = write.content};
  }
  for (const std::string& path : plan.hostDeletions) after.host.erase(path);
  for (const std::string& path : plan.hostRemovals) after.host.erase(path);
  if (!plan.needsImage) return after;
  std::map<std::string, DiskItem> disk;
  for (const TreeEntry& entry : plan.tree) {
    const std::string key = DiskKey(entry.disk);
    const auto before = observation.disk.find(key);
    DiskItem item{.path = entry.disk,
                  .shortName = ShortNameOf(NameOf(entry.disk)),
                  .type = entry.type,
                  .content = entry.content};
    if (before != observation.disk.end() && before->second.type == entry.type) {
      item.isDated = before->second.isDated && before->second.content == entry.content;
    }
    disk.emplace(key, std::move(item));
  }
  after.disk = std::move(disk);
  return after;
}

}  // namespace quorbix::virtdisk::internal::guard
