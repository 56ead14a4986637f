#include "guard/guarded_pass.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "builder/build_identity.h"
#include "guard/clock.h"
#include "guard/disk_view.h"
#include "guard/host_view.h"
#include "guard/image_change.h"
#include "guard/new_image.h"
#include "guard/paths.h"

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

using Kind = GuardedStep::Kind;

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

// Whether an image has another id than the one that a pass was about to make.
bool IsAnother(const ImageFacts& image, std::uint32_t volumeId) {
  return image.state == ImageFacts::State::kPresent && image.volumeId != volumeId;
}

}  // namespace

GuardedPass::GuardedPass(const Places& itsPlaces, const GuardedSyncOptions& itsOptions,
                         const Sight& whatIsSeen, KeptContents& keptContents, FolderLock& lock,
                         WorkMonitor& workMonitor)
    : places(itsPlaces),
      options(itsOptions),
      sight(whatIsSeen),
      kept(keptContents),
      folderLock(lock),
      monitor(workMonitor),
      when(LocalTimeText(NowNanoseconds())),
      trash(itsPlaces.stateFolder, when),
      host(itsPlaces.folder, whatIsSeen.host.entryStamps, trash, workMonitor) {}

Ending GuardedPass::Run() {
  Ending ending = CarryOut();
  trash.DropIfEmpty();
  return ending;
}

Ending GuardedPass::CarryOut() {
  const bool hasToAct = !sight.plan.IsEmpty();
  const bool hasSpare = sight.trash && sight.trash->spare > 0;
  // What is to be trimmed may tell what the leftovers are.
  if (!sight.host.leftovers.empty()) neverCome = NeverCome(places.stateFolder);
  if ((hasToAct || sight.hasToMend) && hasSpare) TrimToBound();
  Ending ending = KeepDamagedState();
  if (ending.IsDone()) ending = MendCutOff();
  if (ending.IsDone() && hasToAct) ending = SavePending();
  if (ending.IsDone()) ending = ChangeHost();
  if (ending.IsDone() && sight.plan.needsImage) ending = ChangeImage();
  if (ending.IsDone()) ending = Finish();
  return ending;
}

bool GuardedPass::IsDone(const GuardedStep& step) const {
  switch (step.kind) {
    case Kind::kWriteOnHost:
    case Kind::kMakeOnHost:
    case Kind::kDeleteOnHost:
    case Kind::kRemoveOnHost:
      return host.Changed().contains(step.hostPath);
    case Kind::kWriteOnDisk:
    case Kind::kMakeOnDisk:
    case Kind::kDeleteOnDisk:
    case Kind::kRemoveOnDisk:
      return isImageDone;
  }
  return false;
}

// Under another name: it may be somebody else's file.
Ending GuardedPass::KeepDamagedState() {
  std::string err;
  if (!sight.facts.state.isDamaged || SetStateAside(places.stateFolder, when, err)) return {};
  return Ending::Failed(err);
}

// Ends what a pass had begun that was cut off, or takes away what it had made.
Ending GuardedPass::MendCutOff() {
  if (!sight.pending || sight.pending->wholeImage.empty()) return {};
  const Pending& cut = *sight.pending;
  const bool isInPlace = cut.tornId != 0;
  const fs::path whole = WholeImageOf(places, cut);
  if (sight.cutOff == CutOff::kTorn) {
    imageTaken = NowNanoseconds();
    const auto torn = StampAt(places.image);
    if (!torn) return Ending::Busy("the image is gone");
    ImageChange change(places.image, *torn, trash, monitor);
    Ending ending = change.WriteInPlace(whole, cut.tornId, "half written");
    if (!ending.IsDone()) return ending;
    mended = StampAt(places.image);
    if (!mended) return Ending::Busy("the image is gone");
  }
  if (!StampAt(whole)) return {};
  // Beside an image that has been replaced lies the one that was; so it does when somebody has put
  // yet another one in its place since.
  const bool isKnown = sight.cutOff == CutOff::kReplaced;
  const DiskView view = isKnown ? DiskView() : LookAtDisk(whole, GuardedWork::kReadDisk, monitor);
  if (view.result == DiskView::Result::kStopped) return Ending::Stopped();
  const bool holdsOld = isKnown || IsAnother(view.facts, cut.volumeId);
  if (holdsOld && !isInPlace) {
    std::vector<fs::path> placesInTrash;
    std::string err;
    const std::string name = places.image.filename().string();
    if (!trash.Announce({{"disk", name, "image replaced"}}, placesInTrash, err)) {
      return Ending::Failed(err);
    }
    monitor.Begin(GuardedWork::kKeep, sight.disk.stamp.size);
    return MoveToTrash(AT_FDCWD, whole.string(), placesInTrash.front(), monitor,
                       places.image.string());
  }
  if (::unlink(whole.c_str()) == 0) return {};
  return Cannot("remove", whole);
}

Ending GuardedPass::SavePending() {
  pending.emplace();
  pending->memory = sight.plan.after;
  if (sight.plan.needsImage) {
    pending->volumeId = GenerateVolumeId();
    if (options.inPlace) pending->tornId = GenerateVolumeId();
    pending->wholeImage = NewTemporaryName();
  }
  pending->trashBefore =
      sight.pending ? sight.pending->trashBefore : LatestPassIn(places.stateFolder);
  return Save(StateBegun());
}

State GuardedPass::StateBegun() const {
  State state = sight.state;
  if (sight.facts.onHost.state == FolderFacts::State::kPresent) {
    state.folder = sight.facts.onHost.identity;
  } else if (const auto made = StampAt(places.folder)) {
    state.folder = made->identity;
  }
  state.pending = pending;
  return state;
}

Ending GuardedPass::ChangeHost() {
  const bool isMissing = sight.facts.onHost.state == FolderFacts::State::kMissing;
  const Plan& plan = sight.plan;
  Ending ending = isMissing ? MakeHostFolder() : Ending{};
  if (ending.IsDone()) ending = host.SweepLeftovers(sight.host.leftovers, neverCome);
  if (ending.IsDone()) ending = host.MakeFolders(plan.hostFolders);
  if (ending.IsDone() && !plan.hostWrites.empty()) {
    ImageContents contents(places.image, sight.disk, kept);
    ending = host.WriteFiles(plan.hostWrites, [&](const std::string& path, const Sink& sink) {
      return contents.Read(path, sink);
    });
  }
  if (ending.IsDone()) ending = host.DeleteFiles(plan.hostDeletions);
  if (ending.IsDone()) ending = host.RemoveFolders(plan.hostRemovals);
  return ending;
}

Ending GuardedPass::MakeHostFolder() {
  std::error_code failed;
  fs::create_directories(places.folder, failed);
  if (failed) {
    return Ending::Failed("cannot make " + places.folder.string() + " (" + failed.message() + ")");
  }
  std::string err;
  if (!folderLock.Take(places.folder, err)) return Ending::Busy(err);
  // From now on it is the folder that is known, however far this pass comes.
  return Save(StateBegun());
}

Ending GuardedPass::ChangeImage() {
  imageTaken = NowNanoseconds();
  ImageContents oldContents(places.image, sight.disk, kept);
  Fat16Image image;
  std::string suspect;
  Ending ending = MakeImage({.tree = sight.plan.tree,
                             .folder = places.folder,
                             .old = sight.disk,
                             .oldContents = oldContents,
                             .kept = kept,
                             .volumeId = pending->volumeId},
                            image, suspect, monitor);
  kept.Clear();
  if (!suspect.empty()) Doubt(suspect);
  if (!ending.IsDone()) return ending;
  const fs::path folder = options.inPlace ? places.stateFolder : places.image.parent_path();
  const fs::path whole = folder / pending->wholeImage;
  ImageChange change(places.image, mended.value_or(sight.disk.stamp), trash, monitor);
  ending = change.Save(image, whole, Apply(sight.plan, sight.seen).disk);
  if (!ending.IsDone()) return ending;
  if (options.inPlace) {
    ending = change.WriteInPlace(whole, pending->tornId, "image replaced");
    if (ending.IsDone() && ::unlink(whole.c_str()) != 0) {
      ending = Cannot("remove", whole);
    }
  } else {
    ending = change.Rename(whole);
  }
  // Where the old one is the image yet, nothing has to be mended: the next pass makes another one.
  if (!ending.IsDone() && !change.IsBegun()) ::unlink(whole.c_str());
  isImageDone = ending.IsDone();
  return ending;
}

// A program that has a file mapped can change it without its times: the next look has to read it.
void GuardedPass::Doubt(const std::string& path) {
  State state = StateBegun();
  if (state.seen.erase(path) != 0) static_cast<void>(Save(state));
}

Ending GuardedPass::Finish() {
  const auto folder = StampAt(places.folder);
  const FolderFacts& seen = sight.facts.onHost;
  const bool wasThere = seen.state == FolderFacts::State::kPresent;
  // What was agreed on is about the folder that was looked at and about no other, whatever has been
  // mounted or renamed into its place meanwhile.
  if (!folder || (wasThere && !(folder->identity == seen.identity))) {
    return Ending::Busy("the folder " + places.folder.string() + " has been replaced");
  }
  RememberSides(folder->identity);
  Ending ending = RememberNewImage();
  if (!ending.IsDone()) return ending;
  KeepEarlierLooks();
  if (!IsNews()) return {};
  ending = Save(after);
  if (ending.IsDone()) TrimToBound();
  return ending;
}

void GuardedPass::RememberSides(const Identity& folder) {
  after = {.memory = sight.plan.after,
           .folder = folder,
           .image = SeenImage{.volumeId = sight.facts.onDisk.volumeId,
                              .stamp = sight.disk.stamp,
                              .taken = sight.disk.taken},
           .seen = sight.host.seen,
           .lastReadInFull = sight.state.lastReadInFull};
  if (sight.host.wasAllRead && !sight.host.seen.empty()) {
    after.lastReadInFull = NowNanoseconds() / kNanosecondsPerSecond;
  }
  for (const std::string& path : sight.plan.hostDeletions) after.seen.erase(path);
  for (const auto& [path, file] : host.Written()) after.seen.insert_or_assign(path, file);
  // What is told of the disk is not remembered: it takes another look.
  const bool isSound = sight.disk.notes.empty() && sight.facts.onDisk.damage.empty() &&
                       !sight.facts.onDisk.isTakenForFat12 &&
                       sight.facts.onDisk.otherPartitions == 0;
  after.image->isAsRemembered = isSound && IsAsRemembered(sight.disk.items, after.memory);
}

// Or the one that was torn and is whole now.
Ending GuardedPass::RememberNewImage() {
  if (isImageDone || mended) {
    const auto status = isImageDone ? StampAt(places.image) : mended;
    if (!status) return Ending::Busy("the image is gone");
    after.image->stamp = *status;
    // Whoever was quicker than the look at its status has changed it since.
    after.image->taken = imageTaken;
  }
  if (isImageDone) {
    after.image->volumeId = pending->volumeId;
    after.image->isAsRemembered = !sight.facts.onDisk.isTakenForFat12 &&
                                  IsAsRemembered(Apply(sight.plan, sight.seen).disk, after.memory);
  }
  return {};
}

// One more look at what has not changed is worth remembering only where its times could not tell
// before, and can now: else a file whose time lies in the future had every pass write the state.
void GuardedPass::KeepEarlierLooks() {
  const auto keep = [](const auto& before, auto& now) {
    const bool tells =
        !IsTrustworthy(before.stamp, before.taken) && IsTrustworthy(now.stamp, now.taken);
    if (before.stamp == now.stamp && !tells) now.taken = before.taken;
  };
  if (sight.state.image) keep(*sight.state.image, *after.image);
  for (auto& [path, file] : after.seen) {
    const auto before = sight.state.seen.find(path);
    const bool isSame = before != sight.state.seen.end() && before->second.content == file.content;
    if (isSame) keep(before->second, file);
  }
}

bool GuardedPass::IsNews() {
  if (sight.pending || pending) return true;
  // That everything was read, for it had to be, is told and need not be remembered.
  const std::int64_t readInFull = after.lastReadInFull;
  if (!options.verify) after.lastReadInFull = sight.state.lastReadInFull;
  const bool isNews = !(after == sight.state);
  after.lastReadInFull = readInFull;
  return isNews;
}

void GuardedPass::TrimToBound() const {
  TrimTrash(places.stateFolder, BoundOf(options, sight.pending));
}

Ending GuardedPass::Save(const State& state) {
  std::string err;
  return SaveState(places.stateFolder, state, err) ? Ending{} : Ending::Failed(err);
}

}  // namespace quorbix::virtdisk::internal::guard
