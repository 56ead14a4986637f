#include "guard/hazards.h"

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fat16/geometry.h"
#include "guard/fitting.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using enum GuardedHazard;

constexpr std::size_t kMostPathsTold = 20;
constexpr char kTopFolder[] = ".";

std::string Number(std::uint64_t number, const char* one, const char* many) {
  return std::to_string(number) + ' ' + (number == 1 ? one : many);
}

class Collector {
 public:
  void Add(GuardedHazard hazard, bool canBeAccepted, std::string text,
           std::vector<std::string> paths = {}) {
    const std::size_t count = paths.size();
    if (count > kMostPathsTold) paths.resize(kMostPathsTold);
    hazards.push_back({hazard, canBeAccepted, std::move(text), std::move(paths), count});
  }

  Hazards Take() { return std::move(hazards); }

 private:
  Hazards hazards;
};

void CheckFolder(const Facts& facts, Collector& found) {
  const FolderFacts& folder = facts.onHost;
  if (folder.state == FolderFacts::State::kMissing) {
    found.Add(
        kFolderMissing, true,
        "the folder " + facts.folder +
            " is not there: taken for empty, everything would be deleted from the disk. Bring "
            "it back, or accept that it is made anew and filled from the disk");
    return;
  }
  if (folder.state == FolderFacts::State::kUnreadable) {
    found.Add(kFolderUnreadable, false,
              "the folder " + facts.folder + " cannot be read (" + folder.error +
                  "): what it holds would count as deleted. Make it readable");
    return;
  }
  if (folder.state == FolderFacts::State::kNoFolder) {
    found.Add(kFolderUnreadable, false, facts.folder + " is " + folder.error + ". Name the folder");
    return;
  }
  if (folder.identityBefore && !(*folder.identityBefore == folder.identity)) {
    found.Add(kFolderReplaced, true,
              "the folder " + facts.folder +
                  " is another one than last time: what it lacks would be deleted from the disk. "
                  "Name the right folder, or accept that both sides meet for the first time, which "
                  "deletes nothing");
  }
}

// False: there is no volume to say more of.
bool CheckImageItself(const Facts& facts, Collector& found) {
  const ImageFacts& image = facts.onDisk;
  switch (image.state) {
    case ImageFacts::State::kMissing:
      found.Add(
          kImageMissing, false,
          "the image " + facts.image +
              " is not there. Bring back the latest one: where it comes from the trash of the "
              "state's folder or a backup, both sides meet for the first time. Or build a new one "
              "from the folder");
      return false;
    case ImageFacts::State::kUnreadable:
      found.Add(kImageUnreadable, false,
                "the image " + facts.image + " cannot be read (" + image.error +
                    "): what it holds would count as deleted. Make it readable");
      return false;
    case ImageFacts::State::kNoFile:
      found.Add(kImageUnreadable, false,
                "the image " + facts.image + " is " + image.error + " and no file. Name the file");
      return false;
    case ImageFacts::State::kNoFat16:
      found.Add(kImageNotFat16, false,
                "the image " + facts.image + " holds no FAT16 volume in a partition (" +
                    image.error + "): nothing can be told from it. Name the right image");
      return false;
    case ImageFacts::State::kCutShort:
      found.Add(kImageCutShort, false,
                "the image " + facts.image + " cannot be listed to its end (" + image.error +
                    "): what is missing from the list would be deleted from the folder. Repair the "
                    "image, or bring back an older one from the trash");
      return false;
    case ImageFacts::State::kTorn:
      found.Add(kImageUnreadable, false,
                "the image " + facts.image +
                    " is half written, by a pass that was cut off, and cannot be written to its "
                    "end (" +
                    image.error + "). Bring back the image that was: the trash in " +
                    facts.stateFolder + " holds it");
      return false;
    case ImageFacts::State::kPresent:
      return true;
  }
  return false;
}

void CheckImage(const Facts& facts, Collector& found) {
  if (!CheckImageItself(facts, found)) return;
  const ImageFacts& image = facts.onDisk;
  if (image.volumeIdBefore && *image.volumeIdBefore != image.volumeId) {
    found.Add(
        kImageReplaced, true,
        "the image " + facts.image +
            " is another disk than last time: what it lacks would be deleted from the folder. "
            "Name the right image, or accept that both sides meet for the first time, which "
            "deletes nothing");
  } else if (image.isOlder) {
    found.Add(kImageReplaced, true,
              "the image " + facts.image +
                  " is older than last time, as one that comes from a backup: what has come to the "
                  "disk since would be deleted from the folder. Bring back the latest one, or "
                  "accept that both sides meet for the first time, which deletes nothing");
  }
  if (image.bytesBefore && *image.bytesBefore != image.bytes) {
    found.Add(kImageResized, true,
              "the image " + facts.image + " has " + std::to_string(image.bytes) +
                  " bytes, and had " + std::to_string(*image.bytesBefore) +
                  " last time: it may be cut short. Bring back the whole image, or accept the new "
                  "size");
  }
  if (image.isTakenForFat12) {
    found.Add(
        kImageNotFat16, true,
        "the volume in " + facts.image + " has fewer than " + std::to_string(kFewestFat16Clusters) +
            " clusters, so that other systems take it for FAT12 and read nonsense. Use an image of "
            "3 MiB or more, or accept that it is read as FAT16");
  }
  if (image.otherPartitions > 0) {
    found.Add(kOtherPartitions, true,
              "the image " + facts.image + " has " +
                  Number(image.otherPartitions, "other partition", "other partitions") +
                  ": the next image made from the folder would not have it. Use an image with one "
                  "partition, or accept that the rest is kept in the trash alone");
  }
  if (!image.damage.empty()) {
    found.Add(
        kImageUnsound, true,
        "the image " + facts.image + " is damaged (" +
            Number(image.damage.size(), "finding", "findings") +
            "): files could be cut or mixed up. Repair it, or accept that what cannot be read "
            "there is taken from the folder",
        image.damage);
  }
}

std::string NestingText(const Facts& facts) {
  // What cannot be accepted first.
  if (facts.nesting.folderInState) {
    return "the folder " + facts.folder + " lies in the state's folder " + facts.stateFolder +
           ": name another one for the state";
  }
  if (facts.nesting.imageInFolder) {
    return "the image " + facts.image +
           " lies in the folder that it is kept in step with: it would have to hold itself. Put it "
           "elsewhere, or accept that it takes no part";
  }
  return "the state's folder " + facts.stateFolder +
         " lies in the folder: name another one, or accept that it takes no part";
}

void CheckNesting(const Facts& facts, Collector& found) {
  const NestingFacts& nesting = facts.nesting;
  if (nesting.IsAny()) {
    found.Add(kNested, !nesting.folderInState, NestingText(facts));
  }
}

void AddUnusableState(const Facts& facts, const std::string& why, const std::string& consequence,
                      Collector& found) {
  found.Add(kStateNotWritable, false,
            "the state's folder " + facts.stateFolder + " cannot be used (" + why +
                "): " + consequence + ". Put that right, or name another folder");
}

void CheckState(const Facts& facts, Collector& found) {
  if (facts.state.isDamaged) {
    found.Add(kStateDamaged, true,
              "what was remembered in " + facts.stateFolder + " cannot be used (" +
                  facts.state.error +
                  "): what was deleted could not be told from what is new. Bring the file back, or "
                  "accept that both sides meet for the first time, which deletes nothing");
  }
  if (!facts.state.isWritable) {
    found.Add(kStateNotWritable, false,
              "the state's folder " + facts.stateFolder +
                  " cannot be written to: what is agreed on would be forgotten. Make it writable, "
                  "or name another one");
  } else if (!facts.state.lockError.empty()) {
    AddUnusableState(facts, facts.state.lockError, "another process could not be kept from it",
                     found);
  } else if (!facts.state.trashError.empty()) {
    AddUnusableState(facts, facts.state.trashError, "what is replaced or deleted could not be kept",
                     found);
  }
}

std::size_t CountAgreedFiles(const Memory& memory) {
  return static_cast<std::size_t>(
      std::count_if(memory.pairs.begin(), memory.pairs.end(),
                    [](const Pair& pair) { return pair.type == EntryType::kFile && pair.agreed; }));
}

template <class Items>
bool HasFiles(const Items& items) {
  return std::any_of(items.begin(), items.end(),
                     [](const auto& entry) { return entry.second.type == EntryType::kFile; });
}

// What both sides have deleted is gone already.
void CheckEmptiness(const Facts& facts, const Observation& observation, const Memory& memory,
                    const Plan& plan, Collector& found) {
  const std::size_t agreed = CountAgreedFiles(memory);
  if (agreed == 0) return;
  if (!HasFiles(observation.host) && plan.deletedOnDisk > 0) {
    found.Add(kFolderEmpty, true,
              "the folder " + facts.folder + " is empty, and had " +
                  Number(agreed, "file", "files") +
                  " in step: they would be deleted from the disk. Bring them back, or accept that "
                  "they were deleted on purpose");
  }
  if (!HasFiles(observation.disk) && plan.deletedOnHost > 0) {
    found.Add(kImageEmpty, true,
              "the disk in " + facts.image + " is empty, and had " +
                  Number(agreed, "file", "files") +
                  " in step: they would be deleted from the folder. Bring back the right image, or "
                  "accept that they were deleted on purpose");
  }
}

std::vector<std::string> PathsOf(const Plan& plan, GuardedStep::Kind kind) {
  std::vector<std::string> paths;
  for (const GuardedStep& step : plan.steps) {
    if (step.kind == kind) {
      paths.push_back(kind == GuardedStep::Kind::kDeleteOnHost ? step.hostPath : step.diskPath);
    }
  }
  return paths;
}

// What an empty side deletes is told as such.
void CheckDeletions(const Observation& observation, const Plan& plan, const Memory& memory,
                    const HazardLimits& limits, Collector& found) {
  const std::size_t agreed = CountAgreedFiles(memory);
  const auto tooMany = [&](std::size_t deleted) {
    return deleted > limits.mostDeletions &&
           static_cast<double>(deleted) > limits.mostDeletedShare * static_cast<double>(agreed);
  };
  const auto add = [&](std::size_t deleted, const char* side, GuardedStep::Kind kind) {
    if (!tooMany(deleted)) return;
    found.Add(kManyDeletions, true,
              std::to_string(deleted) + " of " + std::to_string(agreed) +
                  " files would be deleted from the " + side +
                  ". Look whether that was meant, and accept it if so",
              PathsOf(plan, kind));
  };
  if (HasFiles(observation.disk)) {
    add(plan.deletedOnHost, "folder", GuardedStep::Kind::kDeleteOnHost);
  }
  if (HasFiles(observation.host)) {
    add(plan.deletedOnDisk, "disk", GuardedStep::Kind::kDeleteOnDisk);
  }
}

void CheckReadability(const Observation& observation, const Memory& memory, Collector& found) {
  std::vector<std::string> unreadable;
  for (const Pair& pair : memory.pairs) {
    const auto item = observation.host.find(pair.host);
    if (pair.agreed && item != observation.host.end() && !item->second.isReadable) {
      unreadable.push_back(pair.host);
    }
  }
  if (unreadable.empty()) return;
  const std::string count = Number(unreadable.size(), "entry", "entries");
  found.Add(kEntryUnreadable, true,
            count +
                " of the folder cannot be read: not taken for deleted, and the disk is not made "
                "anew without them. Make them readable, or accept that they stay as they are on "
                "both sides",
            std::move(unreadable));
}

void CheckClashes(const Pairing& pairing, Collector& found) {
  if (pairing.clashes.empty()) return;
  std::vector<std::string> paths;
  paths.reserve(pairing.clashes.size());
  for (const KindClash& clash : pairing.clashes) paths.push_back(clash.host);
  const std::string count = Number(paths.size(), "name", "names");
  found.Add(kKindClash, true,
            count +
                " of a file on one side, of a folder on the other. Rename one of them, or accept "
                "that both are kept under different names",
            std::move(paths));
}

void CheckConflicts(const Plan& plan, const HazardLimits& limits, Collector& found) {
  if (!limits.stopsAtConflicts || plan.conflicts.empty()) return;
  found.Add(kConflict, true,
            Number(plan.conflicts.size(), "file", "files") +
                " changed on both sides. Decide which version counts, or accept that both are kept",
            plan.conflicts);
}

void CheckPermissions(const Facts& facts, const PlanFacts& planFacts, const Plan& plan,
                      Collector& found) {
  if (!planFacts.unwritable.empty()) {
    std::vector<std::string> paths = planFacts.unwritable;
    std::replace(paths.begin(), paths.end(), std::string(), std::string(kTopFolder));
    found.Add(kFolderNotWritable, false,
              "the folder " + facts.folder +
                  " cannot be written to where the disk has changed: the changes would have to "
                  "wait, and could be taken for deletions. Make it writable",
              std::move(paths));
  }
  if (plan.needsImage && !planFacts.isImageWritable) {
    found.Add(kImageNotWritable, false,
              "the image " + facts.image +
                  " cannot be written to, and the folder has changed: what does not reach the disk "
                  "could be taken for deleted there. Make the image and its folder writable");
  }
}

std::string HowToFit(const Fitting& fitting, std::uint64_t imageBytes) {
  if (fitting.bytesThatDo == 0) {
    return "No image would hold it: take something out of the folder, or move entries of its top "
           "into folders, since a disk's top directory holds " +
           std::to_string(kMostRootEntries);
  }
  const std::string size = std::to_string(fitting.bytesThatDo >> 20) + " MiB";
  if (fitting.bytesThatDo > imageBytes) {
    return "Take something out of the folder, or use an image of " + size + " or more";
  }
  return "Use a smaller image, such as one of " + size;
}

void CheckFit(const Facts& facts, const Plan& plan, Collector& found) {
  if (!plan.needsImage) return;
  const Fitting fitting = FitTree(plan.tree, facts.onDisk.bytes);
  if (fitting.fits) return;
  const bool isTooLarge = !fitting.isSize && fitting.bytesThatDo <= facts.onDisk.bytes;
  const std::string why =
      isTooLarge
          ? "the image " + facts.image + " has " + std::to_string(facts.onDisk.bytes) +
                " bytes, and so would the next one, which is more than a FAT16 volume takes. "
          : "the folder does not fit into the image " + facts.image + " (" + fitting.message +
                "): what has no room there would be missing. ";
  found.Add(kDoesNotFit, false, why + HowToFit(fitting, facts.onDisk.bytes));
}

// Of files that are replaced or deleted.
std::uint64_t BytesReplaced(const Plan& plan, const Observation& seen) {
  std::uint64_t bytes = 0;
  const auto add = [&](const std::string& path) {
    const auto item = seen.host.find(path);
    if (item != seen.host.end()) bytes += item->second.content.size;
  };
  for (const HostWrite& write : plan.hostWrites) add(write.host);
  std::for_each(plan.hostDeletions.begin(), plan.hostDeletions.end(), add);
  return bytes;
}

// Room that a pass needs in one place.
struct Need {
  const Room& room;
  const std::string& path;  // to name it by
  std::uint64_t bytes = 0;
};

std::vector<Need> NeedsOf(const Facts& facts, const PlanFacts& planFacts, const Plan& plan,
                          const Observation& seen) {
  const std::uint64_t image = facts.onDisk.bytes;
  const bool isWrittenOver = planFacts.isTorn || (plan.needsImage && planFacts.isInPlace);
  const bool isImageCopied =
      planFacts.isInPlace || planFacts.newImage.device != planFacts.trash.device;
  std::uint64_t forFolder = 0;
  for (const HostWrite& write : plan.hostWrites) forFolder += write.content.size;
  std::uint64_t forTrash = planFacts.isTorn ? image : 0;
  if (plan.needsImage && isImageCopied) forTrash += image;
  if (planFacts.folder.device != planFacts.trash.device) forTrash += BytesReplaced(plan, seen);
  return {{planFacts.folder, facts.folder, forFolder},
          {planFacts.newImage, planFacts.isInPlace ? facts.stateFolder : facts.image,
           plan.needsImage ? image : 0},
          {planFacts.image, facts.image, isWrittenOver ? planFacts.holes : 0},
          {planFacts.trash, facts.stateFolder, forTrash}};
}

std::string HowToMakeRoom(const Facts& facts, const PlanFacts& planFacts, const Room& room) {
  const bool isTrashThere = room.device == planFacts.trash.device && planFacts.trashBytes > 0;
  if (!isTrashThere) return ". Make room, or accept that it is tried";
  return ". Make room, or let the trash in " + facts.stateFolder + ", which has " +
         std::to_string(planFacts.trashBytes) +
         " bytes there, keep less (trashBytes, or --trash-size of virtdisk sync; the latest pass "
         "stays), or accept that it is tried";
}

// Each file system has to have room for all that is written to it.
void CheckRoom(const Facts& facts, const PlanFacts& planFacts, const Plan& plan,
               const Observation& seen, Collector& found) {
  std::set<std::uint64_t> told;
  const std::vector<Need> needs = NeedsOf(facts, planFacts, plan, seen);
  for (const Need& need : needs) {
    if (need.bytes == 0 || !told.insert(need.room.device).second) continue;
    std::uint64_t bytes = 0;
    for (const Need& other : needs) {
      if (other.room.device == need.room.device) bytes += other.bytes;
    }
    if (!need.room.free || bytes <= *need.room.free) continue;
    found.Add(kNoRoom, true,
              "the file system of " + need.path + " has " + std::to_string(*need.room.free) +
                  " bytes left, and what is written to it needs " + std::to_string(bytes) +
                  HowToMakeRoom(facts, planFacts, need.room));
  }
}

}  // namespace

Hazards HazardsOfSides(const Facts& facts) {
  Collector found;
  CheckFolder(facts, found);
  CheckImage(facts, found);
  CheckNesting(facts, found);
  CheckState(facts, found);
  return found.Take();
}

Hazards HazardsOfPlan(const Facts& facts, const PlanFacts& planFacts,
                      const Observation& observation, const Memory& memory, const Pairing& pairing,
                      const Plan& plan, const HazardLimits& limits) {
  Collector found;
  CheckEmptiness(facts, observation, memory, plan, found);
  CheckDeletions(observation, plan, memory, limits, found);
  CheckReadability(observation, memory, found);
  CheckClashes(pairing, found);
  CheckConflicts(plan, limits, found);
  CheckPermissions(facts, planFacts, plan, found);
  CheckFit(facts, plan, found);
  CheckRoom(facts, planFacts, plan, observation, found);
  return found.Take();
}

bool StandsInTheWay(const Hazards& hazards, const std::vector<GuardedHazard>& accepted) {
  return std::any_of(hazards.begin(), hazards.end(), [&](const GuardedHazardReport& report) {
    return !report.canBeAccepted ||
           std::find(accepted.begin(), accepted.end(), report.hazard) == accepted.end();
  });
}

bool Contains(const Hazards& hazards, GuardedHazard hazard) {
  return std::any_of(hazards.begin(), hazards.end(),
                     [&](const GuardedHazardReport& report) { return report.hazard == hazard; });
}

}  // namespace quorbix::virtdisk::internal::guard
