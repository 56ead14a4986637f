#include "guard/sight.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iterator>
#include <optional>
#include <set>
#include <system_error>
#include <utility>

#include "fat16/volume_layout.h"
#include "guard/clock.h"
#include "guard/disk_names.h"
#include "guard/first_meeting.h"
#include "guard/pairing.h"
#include "guard/room.h"
#include "guard/system_text.h"
#include "guard/trash.h"
#include "guard/writers.h"

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
// A century in nanoseconds has room in 64 bits.
constexpr std::chrono::milliseconds kLongestSettle = std::chrono::years(100);
// Two are enough, unless links change what is planned for their files in turn; such a pass finds
// something changed, and the next one goes on.
constexpr int kMostRounds = 4;
// As coarse as file systems keep times: a copy on another one may be so much older.
constexpr std::int64_t kCoarsestTime = 2'000'000'000;
constexpr char kWasStopped[] = "it was stopped";
constexpr char kDamaged[] = "the disk is damaged: it is made anew";
constexpr char kTornImage[] =
    "an earlier pass was cut off while it wrote into the image: that is done to its end";
constexpr char kOldImageBeside[] =
    "an earlier pass was cut off after it had replaced the image: the old one goes to the trash";
constexpr char kImageLeftOver[] =
    "an earlier pass was cut off: the image that it left behind is removed, or goes to the trash "
    "where it may be the only one of its kind";
constexpr char kFileLeftOver[] = "left over from a pass that was cut off: it goes to the trash";

// The names that a pass had in mind that was cut off, for what it may have made of them already.
void AddNames(const Memory& pending, Memory& memory) {
  std::set<std::string> hosts;
  std::set<std::string> disks;
  for (const Pair& pair : memory.pairs) {
    hosts.insert(pair.host);
    disks.insert(DiskKey(pair.disk));
  }
  for (Pair pair : pending.pairs) {
    if (hosts.contains(pair.host) || disks.contains(DiskKey(pair.disk))) continue;
    pair.agreed.reset();
    memory.pairs.push_back(std::move(pair));
  }
}

// A directory whose chain is broken hides what it holds: where the disk is damaged, what it lacks
// is not taken for deleted.
void DoubtDeletions(const std::map<std::string, DiskItem>& disk, Memory& memory) {
  for (Pair& pair : memory.pairs) {
    if (!disk.contains(DiskKey(pair.disk))) pair.agreed.reset();
  }
}

// Of entries that share clusters nobody can tell whose these are, but for one that says what it
// said when both sides agreed.
void DoubtMixtures(const Memory& memory, std::map<std::string, DiskItem>& disk) {
  for (const Pair& pair : memory.pairs) {
    const auto item = disk.find(DiskKey(pair.disk));
    if (item != disk.end() && pair.agreed == item->second.content) {
      item->second.sharesClusters = false;
    }
  }
  for (auto& [key, item] : disk) item.isReadable = item.isReadable && !item.sharesClusters;
}

// Whether the image's time has gone back. One that lay in the future when it was looked at, by a
// clock that has been set since, tells nothing.
bool IsOlder(const Stamp& now, const SeenImage& before) {
  const bool tells = before.stamp.modified <= before.taken;
  return tells && now.modified + kCoarsestTime < before.stamp.modified;
}

class Looker {
 public:
  Looker(const Places& itsPlaces, const GuardedSyncOptions& itsOptions, const KnownState& known,
         WorkMonitor& workMonitor, KeptContents* keptContents)
      : places(itsPlaces),
        options(itsOptions),
        remembered(known),
        monitor(workMonitor),
        kept(keptContents) {}

  Sight Run() {
    sight.state = remembered.state;
    imageBefore = sight.state.image;
    sight.pending = std::exchange(sight.state.pending, std::nullopt);
    NamePlaces();
    CheckState();
    CheckNesting();
    if (!LookAtFolder()) {
      NoticeMissingImage();
      return std::move(sight);
    }
    if (!LookAtImage() || !JudgeAndPlan()) return std::move(sight);
    if (!sight.wasDiskRead && !(sight.plan.IsEmpty() && sight.hazards.empty())) {
      // There is something to do: what the disk says is needed whole. It may be another one by now.
      if (!ReadImage(places.image) || !JudgeAndPlan()) return std::move(sight);
    }
    CheckQuiet();
    return std::move(sight);
  }

 private:
  void NamePlaces() {
    sight.facts.folder = places.folder.string();
    sight.facts.image = places.image.string();
    sight.facts.stateFolder = places.stateFolder.string();
  }

  void CheckState() {
    StateFacts& state = sight.facts.state;
    state.isDamaged = remembered.load == StateLoad::kDamaged;
    state.error = remembered.error;
    state.isWritable = MayRemember(places.stateFolder);
    state.lockError = remembered.lockError;
    state.trashError = WhyTrashIsUnusable(places.stateFolder);
  }

  void CheckNesting() { sight.facts.nesting = NestingOf(places); }

  void Fail(Sight::Result result, std::string message) {
    sight.result = result;
    sight.message = std::move(message);
  }

  bool LookAtFolder() {
    FolderFacts& facts = sight.facts.onHost;
    facts.identityBefore = sight.state.folder;
    const auto status = StampAt(places.folder);
    if (!status) {
      facts.state =
          errno == ENOENT ? FolderFacts::State::kMissing : FolderFacts::State::kUnreadable;
      facts.error = SystemText();
      NoteWhatIsNoFolder(facts);
      return true;
    }
    facts.identity = status->identity;
    if (NoteWhatIsNoFolder(facts)) return true;
    HostLook look{.folder = places.folder,
                  .leftOut = OwnParts(),
                  .known = &sight.state.seen,
                  .readsEverything = options.verify,
                  .kept = kept,
                  .settleNanoseconds = SettleNanoseconds()};
    // Without an image there is nothing to compare contents with.
    const auto image = StampAt(places.image);
    look.mostBytes = image ? image->size : 0;
    sight.host = LookAtHost(look, monitor);
    switch (sight.host.result) {
      case HostView::Result::kComplete:
        facts.identity = sight.host.identity;
        return true;
      case HostView::Result::kUnreadable:
        facts.state = FolderFacts::State::kUnreadable;
        facts.error = sight.host.error;
        return true;
      case HostView::Result::kBusy:
        Fail(Sight::Result::kNotNow, sight.host.busyPath + " is being written just now");
        return false;
      case HostView::Result::kStopped:
        Fail(Sight::Result::kStopped, kWasStopped);
        return false;
    }
    return false;
  }

  // A link that leads to nothing, or something that is there and no folder.
  bool NoteWhatIsNoFolder(FolderFacts& facts) const {
    std::error_code unknown;
    const fs::file_status there = fs::status(places.folder, unknown);
    const bool isLink = fs::is_symlink(fs::symlink_status(places.folder, unknown));
    const bool isDangling = isLink && there.type() == fs::file_type::not_found;
    if (!isDangling && (!fs::exists(there) || fs::is_directory(there))) return false;
    facts.state = FolderFacts::State::kNoFolder;
    facts.error = isDangling ? "a link that leads nowhere" : "no folder";
    return true;
  }

  // A folder that is not quiet is no reason to wait for a disk that is not there.
  void NoticeMissingImage() {
    if (sight.result != Sight::Result::kNotNow || StampAt(places.image) || errno != ENOENT) return;
    sight.facts.onDisk.state = ImageFacts::State::kMissing;
    sight.facts.onDisk.error = SystemText();
    sight.hazards = HazardsOfSides(sight.facts);
    sight.result = Sight::Result::kComplete;
    sight.message.clear();
  }

  std::int64_t SettleNanoseconds() const {
    return std::min(options.settle, kLongestSettle).count() * kNanosecondsPerMillisecond;
  }

  std::vector<Identity> OwnParts() const {
    std::vector<Identity> parts;
    for (const fs::path& path : {places.image, places.stateFolder}) {
      if (const auto status = StampAt(path)) parts.push_back(status->identity);
    }
    return parts;
  }

  bool LookAtImage() {
    NoteImageBefore();
    const auto status = StampAt(places.image);
    const bool isKnown = status && sight.state.image && sight.state.image->isAsRemembered &&
                         !sight.pending && !options.verify && *status == sight.state.image->stamp &&
                         IsTrustworthy(sight.state.image->stamp, sight.state.image->taken);
    if (!isKnown) return ReadImage(places.image) && ResolvePending();
    sight.disk.items = DiskAsRemembered(sight.state.memory);
    sight.disk.stamp = sight.state.image->stamp;
    sight.disk.taken = sight.state.image->taken;
    sight.facts.onDisk.bytes = sight.disk.stamp.size;
    sight.facts.onDisk.volumeId = sight.state.image->volumeId;
    return true;
  }

  void NoteImageBefore() {
    if (!imageBefore) return;
    sight.facts.onDisk.bytesBefore = imageBefore->stamp.size;
    sight.facts.onDisk.volumeIdBefore = imageBefore->volumeId;
  }

  DiskView LookAtDisk(const fs::path& image) {
    constexpr GuardedWork kWork = GuardedWork::kReadDisk;
    if (kept == nullptr) return guard::LookAtDisk(image, kWork, monitor);
    DiskKeeping keeping{.kept = *kept};
    for (const Pair& pair : sight.state.memory.pairs) {
      if (pair.agreed) keeping.known.emplace(DiskKey(pair.disk), *pair.agreed);
    }
    return guard::LookAtDisk(image, kWork, monitor, &keeping);
  }

  bool ReadImage(const fs::path& image) {
    sight.disk = LookAtDisk(image);
    sight.wasDiskRead = true;
    sight.facts.onDisk = sight.disk.facts;
    NoteImageBefore();
    if (sight.disk.result == DiskView::Result::kComplete) {
      sight.facts.onDisk.isOlder = imageBefore && IsOlder(sight.disk.stamp, *imageBefore);
      return true;
    }
    if (sight.disk.result == DiskView::Result::kStopped) {
      Fail(Sight::Result::kStopped, kWasStopped);
    } else {
      Fail(Sight::Result::kNotNow, "the image is being written just now");
    }
    return false;
  }

  // The volume id tells how far a pass had come that was cut off.
  bool ResolvePending() {
    if (!sight.pending) return true;
    const Pending& pending = *sight.pending;
    const bool isReadable = sight.facts.onDisk.state == ImageFacts::State::kPresent;
    const std::uint32_t id = sight.facts.onDisk.volumeId;
    if (isReadable && pending.volumeId != 0 && id == pending.volumeId) {
      sight.cutOff = CutOff::kReplaced;
      return TakePending();
    }
    if (pending.tornId != 0 && id == pending.tornId) {
      sight.cutOff = CutOff::kTorn;
      // What the image will be as soon as it is written to its end.
      return ReadWholeImage(WholeImageOf(places, pending)) && TakePending();
    }
    AddNames(pending.memory, sight.state.memory);
    return true;
  }

  bool ReadWholeImage(const fs::path& whole) {
    if (!ReadImage(whole)) return false;
    ImageFacts& facts = sight.facts.onDisk;
    const bool isPresent = facts.state == ImageFacts::State::kPresent;
    if (isPresent && facts.volumeId == sight.pending->volumeId) return true;
    facts.error = whole.string() + ": " + (isPresent ? "another image" : facts.error);
    facts.state = ImageFacts::State::kTorn;
    return true;
  }

  bool TakePending() {
    sight.state.memory = sight.pending->memory;
    sight.state.image = SeenImage{
        .volumeId = sight.pending->volumeId, .stamp = sight.disk.stamp, .taken = sight.disk.taken};
    imageBefore = sight.state.image;
    sight.facts.onDisk.isOlder = false;
    NoteImageBefore();
    return true;
  }

  static bool HasFatal(const Hazards& hazards) {
    return std::any_of(hazards.begin(), hazards.end(),
                       [](const GuardedHazardReport& report) { return !report.canBeAccepted; });
  }

  // False: there is nothing to plan.
  bool JudgeAndPlan() {
    sight.hazards = HazardsOfSides(sight.facts);
    if (HasFatal(sight.hazards)) return false;
    Forget();
    Plan();
    if (monitor.IsStopped()) Fail(Sight::Result::kStopped, kWasStopped);
    return sight.result == Sight::Result::kComplete;
  }

  // Accepting one of these means to begin anew: nothing is agreed on. The names are still known.
  void Forget() {
    using enum GuardedHazard;
    for (const GuardedHazard hazard :
         {kFolderMissing, kFolderReplaced, kImageReplaced, kStateDamaged}) {
      if (!Contains(sight.hazards, hazard)) continue;
      for (const Pair& pair : std::exchange(sight.state.memory, {}).pairs) {
        namesBefore.emplace(pair.host, pair.disk);
      }
      sight.state.image.reset();
    }
    sight.isFirstMeeting = !sight.state.image;
  }

  void Plan() {
    Memory known = sight.state.memory;
    FollowLetterCase(sight.host.items, known);
    sight.seen = WithUnseen(
        {.host = sight.host.items, .disk = sight.disk.items, .hostLeftOut = sight.host.leftOut},
        known);
    if (!sight.facts.onDisk.damage.empty()) {
      DoubtMixtures(known, sight.seen.disk);
      DoubtDeletions(sight.seen.disk, known);
    }
    NameHints hints{.remembered = namesBefore, .built = {}};
    if (monitor.IsStopped()) return;
    if (sight.isFirstMeeting) {
      FirstMeeting meeting = MeetFirst(places.folder, sight.seen, monitor);
      hints.built = std::move(meeting.names);
      known.ignored = std::move(meeting.ignored);
      if (!meeting.busyPath.empty()) {
        return Fail(Sight::Result::kNotNow, meeting.busyPath + " is being written just now");
      }
      for (const auto& [host, disk] : namesBefore) known.ignored.erase(DiskKey(disk));
    }
    const PlanRules rules{.onConflict = options.onConflict,
                          .isFirstMeeting = sight.isFirstMeeting,
                          .mendsDisk = !sight.facts.onDisk.damage.empty(),
                          .when = LocalTimeText(NowNanoseconds())};
    Pairing pairing;
    bool isNews = true;
    for (int round = 0; isNews && round < kMostRounds; ++round) {
      if (monitor.IsStopped()) return;
      pairing = PairEntries(sight.seen, known, hints);
      if (monitor.IsStopped()) return;
      sight.plan = MakePlan(sight.seen, known, pairing, rules);
      isNews = ForeseeLinks(sight.host.links, sight.plan, sight.seen);
    }
    if (monitor.IsStopped()) return;
    const Hazards ofPlan =
        HazardsOfPlan(sight.facts, FactsOfPlan(), sight.seen, known, pairing, sight.plan,
                      {.mostDeletions = options.mostDeletions,
                       .mostDeletedShare = options.mostDeletedShare,
                       .stopsAtConflicts = options.onConflict == ConflictRule::kStop});
    sight.hazards.insert(sight.hazards.end(), ofPlan.begin(), ofPlan.end());
    NoteWhatIsLeft(pairing);
  }

  PlanFacts FactsOfPlan() {
    if (!sight.plan.IsEmpty() || sight.cutOff == CutOff::kTorn) MeasureTrashOnce();
    return LookForRoom(places, options, sight);
  }

  void MeasureTrashOnce() {
    if (sight.trash) return;
    sight.trash = MeasureTrash(places.stateFolder, BoundOf(options, sight.pending));
  }

  void NoteWhatIsLeft(const Pairing& pairing) {
    sight.notes.clear();
    // But for links that the plan makes lead somewhere.
    std::copy_if(sight.host.notes.begin(), sight.host.notes.end(), std::back_inserter(sight.notes),
                 [&](const GuardedNote& note) {
                   return !sight.host.leftOut.contains(note.path) ||
                          !sight.seen.host.contains(note.path);
                 });
    sight.notes.insert(sight.notes.end(), sight.disk.notes.begin(), sight.disk.notes.end());
    for (const std::string& path : pairing.unnamed) {
      sight.notes.push_back({path, "is on the host alone: the disk has no short name left for it"});
    }
    for (const std::string& path : sight.plan.keptFolders) {
      sight.notes.push_back({path, "stays, and is on the disk again: it holds something yet"});
    }
    for (const std::string& path : sight.plan.lostOnDisk) {
      sight.notes.push_back(
          {'/' + path, "cannot be read on the disk: what is left of it stays in the old image"});
    }
    if (!sight.facts.onDisk.damage.empty()) sight.notes.push_back({"", kDamaged});
    NoteSize();
    NoteMending();
  }

  // In place, what is behind the last whole sector stays.
  void NoteSize() {
    const std::uint64_t bytes = sight.facts.onDisk.bytes;
    if (options.inPlace || bytes % kSectorBytes == 0) return;
    sight.notes.push_back(
        {"", "the image has " + std::to_string(bytes) + " bytes, no whole number of sectors: " +
                 std::to_string(bytes - bytes % kSectorBytes) + " in the next one"});
  }

  void NoteMending() {
    const std::size_t before = sight.notes.size();
    struct ::stat ignored;
    const bool isLeft = sight.pending && !sight.pending->wholeImage.empty() &&
                        ::lstat(WholeImageOf(places, *sight.pending).c_str(), &ignored) == 0;
    if (sight.cutOff == CutOff::kTorn) {
      sight.notes.push_back({"", kTornImage});
    } else if (isLeft) {
      const bool holdsOld = sight.cutOff == CutOff::kReplaced && sight.pending->tornId == 0;
      sight.notes.push_back({"", holdsOld ? kOldImageBeside : kImageLeftOver});
    }
    for (const std::string& path : sight.host.leftovers) {
      sight.notes.push_back({path, kFileLeftOver});
    }
    sight.hasToMend = sight.notes.size() > before;
    if (sight.hasToMend) MeasureTrashOnce();
  }

  // A side that has changed just now is left to whoever is at it, but for what a pass itself did.
  void CheckQuiet() {
    if (sight.plan.IsEmpty()) return;
    const std::int64_t now = NowNanoseconds();
    const auto isFresh = [&](std::int64_t changed) {
      return changed <= now && now - changed < SettleNanoseconds();
    };
    if (isFresh(sight.host.latestFolderChange)) {
      return Fail(Sight::Result::kNotNow, "the folder is being changed just now");
    }
    const bool isOwnImage = sight.state.image && sight.state.image->stamp == sight.disk.stamp;
    if (!isOwnImage && isFresh(sight.disk.stamp.modified)) {
      return Fail(Sight::Result::kNotNow, "the image is being changed just now");
    }
    if (!IsFolderLeftAlone() || options.inPlace) return;
    std::string text = ImageInUseText(places.image);
    if (!text.empty()) Fail(Sight::Result::kNotNow, std::move(text));
  }

  // What is to be taken away, others may be writing to.
  bool IsFolderLeftAlone() {
    const auto isInUse = [&](const std::string& path) {
      if (!IsOpenForWriting(AT_FDCWD, places.folder / path)) return false;
      Fail(Sight::Result::kNotNow, HasOpenText(path));
      return true;
    };
    const auto& plan = sight.plan;
    return std::none_of(
               plan.hostWrites.begin(), plan.hostWrites.end(),
               [&](const HostWrite& write) { return write.replaces && isInUse(write.host); }) &&
           std::none_of(plan.hostDeletions.begin(), plan.hostDeletions.end(), isInUse);
  }

  const Places& places;
  const GuardedSyncOptions& options;
  const KnownState& remembered;
  WorkMonitor& monitor;
  KeptContents* const kept;
  std::optional<SeenImage> imageBefore;  // as the last pass left it
  NameHints::Names namesBefore;          // that a side had which is replaced
  Sight sight;
};

}  // namespace

Sight Look(const Places& places, const GuardedSyncOptions& options, const KnownState& remembered,
           WorkMonitor& monitor, KeptContents* kept) {
  return Looker(places, options, remembered, monitor, kept).Run();
}

TrashBound BoundOf(const GuardedSyncOptions& options, const std::optional<Pending>& cutOff) {
  TrashBound bound{.passes = options.trashPasses, .bytes = options.trashBytes};
  if (cutOff) bound.keepAfter = cutOff->trashBefore;
  return bound;
}

fs::path WholeImageOf(const Places& places, const Pending& pending) {
  const bool isInPlace = pending.tornId != 0;
  return (isInPlace ? places.stateFolder : places.image.parent_path()) / pending.wholeImage;
}

std::map<std::string, DiskItem> DiskAsRemembered(const Memory& memory) {
  std::map<std::string, DiskItem> disk;
  const auto add = [&](const std::string& path, EntryType type, const Content& content) {
    disk.emplace(DiskKey(path), DiskItem{.path = path,
                                         .shortName = ShortNameOf(NameOf(path)),
                                         .type = type,
                                         .content = content,
                                         .isDated = true});
  };
  for (const Pair& pair : memory.pairs) {
    if (pair.agreed) add(pair.disk, pair.type, *pair.agreed);
  }
  for (const auto& [key, ignored] : memory.ignored) add(key, ignored.type, ignored.content);
  return disk;
}

bool IsAsRemembered(const std::map<std::string, DiskItem>& disk, const Memory& memory) {
  const auto remembered = DiskAsRemembered(memory);
  return std::equal(disk.begin(), disk.end(), remembered.begin(), remembered.end(),
                    [](const auto& a, const auto& b) {
                      return a.first == b.first && a.second.type == b.second.type &&
                             a.second.content == b.second.content && a.second.isReadable;
                    });
}

}  // namespace quorbix::virtdisk::internal::guard
