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
#include "guard/writers.h"

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
                         const Sight& whatIsSeen, WorkMonitor& workMonitor)
    : places(itsPlaces),
      options(itsOptions),
      sight(whatIsSeen),
      monitor(workMonitor),
      when(LocalTimeText(NowNanoseconds())),
      trash(itsPlaces.stateFolder, when),
      host(itsPlaces.folder, whatIsSeen.host.entryStamps, trash, workMonitor) {}

Progress GuardedPass::Run() {
  const bool hasToAct = !sight.plan.IsEmpty();
  const bool hasSpare = sight.trash && sight.trash->spare > 0;
  if ((hasToAct || sight.hasToMend) && hasSpare) TrimToBound();
  Progress progress = KeepDamagedState();
  if (progress.IsDone()) progress = MendCutOff();
  if (progress.IsDone() && hasToAct) progress = SavePending();
  if (progress.IsDone()) progress = ChangeHost();
  if (progress.IsDone() && sight.plan.needsImage) progress = ChangeImage();
  if (progress.IsDone()) progress = Finish();
  return progress;
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
Progress GuardedPass::KeepDamagedState() {
  std::string err;
  if (!sight.facts.state.isDamaged || SetStateAside(places.stateFolder, when, err)) return {};
  return Progress::Failed(err);
}

// Ends what a pass had begun that was cut off, or takes away what it had made.
Progress GuardedPass::MendCutOff() {
  if (!sight.pending || sight.pending->wholeImage.empty()) return {};
  const Pending& cut = *sight.pending;
  const bool isInPlace = cut.tornId != 0;
  const fs::path whole = WholeImageOf(places, cut);
  if (sight.cutOff == CutOff::kTorn) {
    const auto torn = StampAt(places.image);
    if (!torn) return Progress::Busy("the image is gone");
    ImageChange change(places.image, *torn, trash, monitor);
    Progress progress = change.WriteInPlace(whole, cut.tornId);
    if (!progress.IsDone()) return progress;
    mended = StampAt(places.image);
    if (!mended) return Progress::Busy("the image is gone");
  }
  if (!StampAt(whole)) return {};
  // Beside an image that has been replaced lies the one that was; so it does when somebody has put
  // yet another one in its place since.
  const bool isKnown = sight.cutOff == CutOff::kReplaced;
  const DiskView view = isKnown ? DiskView() : LookAtDisk(whole, GuardedWork::kReadDisk, monitor);
  if (view.result == DiskView::Result::kStopped) return Progress::Stopped();
  const bool holdsOld = isKnown || IsAnother(view.facts, cut.volumeId);
  if (holdsOld && !isInPlace) {
    std::vector<fs::path> placesInTrash;
    std::string err;
    const std::string name = places.image.filename().string();
    if (!trash.Announce({{"disk", name, "image replaced"}}, placesInTrash, err)) {
      return Progress::Failed(err);
    }
    monitor.Begin(GuardedWork::kKeep, sight.disk.stamp.size);
    return MoveToTrash(AT_FDCWD, whole.string(), placesInTrash.front(), monitor);
  }
  if (::unlink(whole.c_str()) == 0) return {};
  return Cannot("remove", whole);
}

Progress GuardedPass::SavePending() {
  pending.emplace();
  pending->memory = sight.plan.after;
  if (sight.plan.needsImage) {
    pending->volumeId = GenerateVolumeId();
    if (options.inPlace) pending->tornId = GenerateVolumeId();
    pending->wholeImage = NewTemporaryName();
  }
  State state = sight.state;
  if (sight.facts.onHost.state == FolderFacts::State::kPresent) {
    state.folder = sight.facts.onHost.identity;
  }
  state.pending = pending;
  return Save(state);
}

Progress GuardedPass::ChangeHost() {
  if (sight.facts.onHost.state == FolderFacts::State::kMissing) {
    std::error_code failed;
    fs::create_directories(places.folder, failed);
    if (failed) {
      return Progress::Failed("cannot make " + places.folder.string() + " (" + failed.message() +
                              ")");
    }
  }
  const Plan& plan = sight.plan;
  Progress progress = host.SweepLeftovers(sight.host.leftovers);
  if (progress.IsDone()) progress = host.MakeFolders(plan.hostFolders);
  if (progress.IsDone() && !plan.hostWrites.empty()) {
    ImageContents contents(places.image, sight.disk);
    progress = host.WriteFiles(plan.hostWrites, [&](const std::string& path, const Sink& sink) {
      return contents.Read(path, sink);
    });
  }
  if (progress.IsDone()) progress = host.DeleteFiles(plan.hostDeletions);
  if (progress.IsDone()) progress = host.RemoveFolders(plan.hostRemovals);
  return progress;
}

Progress GuardedPass::ChangeImage() {
  ImageContents oldContents(places.image, sight.disk);
  Fat16Image image;
  Progress progress = MakeImage({.tree = sight.plan.tree,
                                 .folder = places.folder,
                                 .old = sight.disk,
                                 .oldContents = oldContents,
                                 .volumeId = pending->volumeId},
                                image, monitor);
  if (!progress.IsDone()) return progress;
  const fs::path folder = options.inPlace ? places.stateFolder : places.image.parent_path();
  const fs::path whole = folder / pending->wholeImage;
  ImageChange change(places.image, mended.value_or(sight.disk.stamp), trash, monitor);
  progress = change.Save(image, whole, Apply(sight.plan, sight.seen).disk);
  if (progress.IsDone() && options.inPlace) {
    progress = change.WriteInPlace(whole, pending->tornId);
    if (progress.IsDone() && ::unlink(whole.c_str()) != 0) {
      progress = Cannot("remove", whole);
    }
  } else if (progress.IsDone()) {
    const std::string writer = FindWriter(places.image);
    if (writer.empty()) {
      progress = change.Rename(whole);
    } else {
      ::unlink(whole.c_str());
      progress = Progress::Busy(writer + " has the image open for writing");
    }
  }
  isImageDone = progress.IsDone();
  return progress;
}

Progress GuardedPass::Finish() {
  const auto folder = StampAt(places.folder);
  const FolderFacts& seen = sight.facts.onHost;
  const bool wasThere = seen.state == FolderFacts::State::kPresent;
  // What was agreed on is about the folder that was looked at and about no other, whatever has been
  // mounted or renamed into its place meanwhile.
  if (!folder || (wasThere && !(folder->identity == seen.identity))) {
    return Progress::Busy("the folder " + places.folder.string() + " has been replaced");
  }
  const std::int64_t now = NowNanoseconds();
  after = {.memory = sight.plan.after,
           .folder = folder->identity,
           .image = SeenImage{.volumeId = sight.facts.onDisk.volumeId,
                              .stamp = sight.disk.stamp,
                              .taken = sight.disk.taken},
           .seen = sight.host.seen,
           .lastReadInFull = sight.state.lastReadInFull};
  if (sight.host.wasAllRead && !sight.host.seen.empty()) {
    after.lastReadInFull = now / kNanosecondsPerSecond;
  }
  for (const std::string& path : sight.plan.hostDeletions) after.seen.erase(path);
  for (const auto& [path, file] : host.Written()) after.seen.insert_or_assign(path, file);
  // What is told of the disk is not remembered: it takes another look.
  const bool isSound = sight.disk.notes.empty() && sight.facts.onDisk.damage.empty() &&
                       !sight.facts.onDisk.isTakenForFat12 &&
                       sight.facts.onDisk.otherPartitions == 0;
  after.image->isAsRemembered = isSound && IsAsRemembered(sight.disk.items, after.memory);
  if (isImageDone || mended) {
    const auto status = isImageDone ? StampAt(places.image) : mended;
    if (!status) return Progress::Busy("the image is gone");
    after.image->stamp = *status;
    after.image->taken = now;
  }
  if (isImageDone) {
    after.image->volumeId = pending->volumeId;
    after.image->isAsRemembered = !sight.facts.onDisk.isTakenForFat12 &&
                                  IsAsRemembered(Apply(sight.plan, sight.seen).disk, after.memory);
  }
  if (after == sight.state && !sight.pending && !pending) return {};
  Progress progress = Save(after);
  if (progress.IsDone()) TrimToBound();
  return progress;
}

void GuardedPass::TrimToBound() const {
  TrimTrash(places.stateFolder, options.trashPasses, options.trashBytes);
}

Progress GuardedPass::Save(const State& state) {
  std::string err;
  return SaveState(places.stateFolder, state, err) ? Progress{} : Progress::Failed(err);
}

}  // namespace quorbix::virtdisk::internal::guard
