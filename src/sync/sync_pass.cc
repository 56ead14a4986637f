#include "sync/sync_pass.h"

#include <optional>
#include <string>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <vector>

#include "sync/cluster_chain.h"
#include "sync/directory_walk.h"
#include "sync/fat_context.h"
#include "sync/host_scan.h"
#include "sync/host_write.h"
#include "sync/image_file_map.h"
#include "sync/sync_decision.h"

namespace quorbix::virtdisk::internal {
namespace fs = std::filesystem;

namespace {

struct ImageStamp {
  fs::file_time_type writeTime;
  std::uint64_t size = 0;  // bytes
};

struct HostSide {
  VersionMap versions;
  PathMap paths;
};

struct ImageSide {
  FatContext context;
  VersionMap versions;
  std::unordered_map<std::string, std::string> paths;  // by key: relative, as in the image
};

// What the decisions about single files leave to be done.
struct Outcome {
  bool rebuildNeeded = false;
  std::size_t hostDeletions = 0;
};

bool ReadImageStamp(const fs::path& imagePath, ImageStamp& stamp) {
  std::error_code timeError;
  std::error_code sizeError;
  stamp.writeTime = fs::last_write_time(imagePath, timeError);
  stamp.size = fs::file_size(imagePath, sizeError);
  return !timeError && !sizeError;
}

bool ScanHost(const fs::path& hostRoot, HostSnapshot& host) {
  std::string error;
  ScanHostFiles(hostRoot, host, error);
  return error.empty();
}

bool ReadImage(const fs::path& imagePath, ImageSide& image) {
  std::string error;
  if (!ParseFatContext(imagePath, image.context, error)) return false;
  std::vector<DiskFile> files;
  // What a listing that was cut short lacks would look like deleted files.
  if (!BuildImageFileMap(image.context, files, image.versions)) return false;
  image.paths.reserve(files.size());
  for (DiskFile& file : files) {
    std::string key = KeyFromRelPath(file.relPath);
    image.paths.insert_or_assign(std::move(key), std::move(file.relPath));
  }
  return true;
}

std::optional<FileVersion> Find(const VersionMap& versions, const std::string& key) {
  const auto found = versions.find(key);
  if (found == versions.end()) return std::nullopt;
  return found->second;
}

// A link to a folder may lead anywhere. The scan does not follow it, but the builder does, so that
// the image can hold files of what lies behind it.
bool LeadsThroughLink(const fs::path& hostRoot, const fs::path& relPath) {
  fs::path folder = hostRoot;
  for (const fs::path& element : relPath.parent_path()) {
    folder /= element;
    std::error_code ec;
    if (fs::is_symlink(fs::symlink_status(folder, ec))) return true;
  }
  return false;
}

// A file that exists on the host keeps its own letter case there.
void CopyToHost(const std::string& key, const fs::path& hostRoot, const HostSide& host,
                const ImageSide& image) {
  const auto inImage = image.paths.find(key);
  if (inImage == image.paths.end()) return;
  const auto onHost = host.paths.find(key);
  const fs::path relPath = onHost != host.paths.end() ? onHost->second : inImage->second;
  if (LeadsThroughLink(hostRoot, relPath)) return;
  const FileVersion& version = image.versions.at(key);
  std::vector<std::uint8_t> bytes;
  if (!ReadClusterChain(image.context, version.firstCluster, bytes, version.size)) return;
  std::string dropped;
  static_cast<void>(WriteFileAtomically(hostRoot / relPath, bytes, dropped));
}

void DeleteOnHost(const std::string& key, const fs::path& hostRoot, const HostSide& host) {
  const auto onHost = host.paths.find(key);
  if (onHost == host.paths.end()) return;
  std::error_code ignored;
  fs::remove(hostRoot / onHost->second, ignored);
}

void CarryOut(SyncAction action, const std::string& key, const fs::path& hostRoot,
              const HostSide& host, const ImageSide& image, Outcome& outcome) {
  switch (action) {
    case SyncAction::kNothing:
      return;
    case SyncAction::kCopyToHost:
      return CopyToHost(key, hostRoot, host, image);
    case SyncAction::kDeleteOnHost:
      DeleteOnHost(key, hostRoot, host);
      ++outcome.hostDeletions;
      return;
    case SyncAction::kRebuildImage:
      outcome.rebuildNeeded = true;
      return;
  }
}

// Every deletion comes before the first new file, so that a folder can take the place of a file of
// the same name. False when the image cannot be read; nothing was done then.
bool ReconcileFiles(const fs::path& imagePath, const fs::path& hostRoot,
                    const HostSnapshot& snapshot, const VersionMap& baseline, Outcome& outcome) {
  ImageSide image;
  if (!ReadImage(imagePath, image)) return false;
  const HostSide host{.versions = VersionsOf(snapshot), .paths = PathsOf(snapshot)};
  for (const auto& [key, version] : host.versions) {
    CarryOut(Decide(version, Find(image.versions, key), Find(baseline, key)), key, hostRoot, host,
             image, outcome);
  }
  for (const auto& [key, version] : image.versions) {
    if (host.versions.contains(key)) continue;
    CarryOut(Decide(std::nullopt, version, Find(baseline, key)), key, hostRoot, host, image,
             outcome);
  }
  return true;
}

void PruneHostFolders(const fs::path& hostRoot) {
  std::error_code ec;
  if (fs::exists(fs::status(hostRoot, ec))) RemoveEmptyDirsRec(hostRoot);
}

bool RebuildImage(const fs::path& imagePath, const fs::path& hostRoot, std::uint64_t sizeBytes,
                  const BuilderFactory& createBuilder) {
  return createBuilder()->Build(hostRoot, imagePath, sizeBytes);
}

// Both sides are now what the new image says. One that cannot be read leaves the old agreement.
void AgreeOnImage(const fs::path& imagePath, std::uint64_t hostSignature, SyncState& state) {
  FatContext context;
  std::string error;
  if (!ParseFatContext(imagePath, context, error)) return;
  std::vector<DiskFile> files;
  VersionMap versions;
  if (!BuildImageFileMap(context, files, versions)) return;
  state.baseline = std::move(versions);
  state.lastHostSignature = hostSignature;
}

// Scans anew, so that what was just copied and deleted is agreed upon.
void AgreeOnHost(const fs::path& hostRoot, SyncState& state) {
  HostSnapshot host;
  if (!ScanHost(hostRoot, host)) return;
  state.baseline = VersionsOf(host);
  state.lastHostSignature = host.signature;
}

}  // namespace

void RunSyncPass(const fs::path& imagePath, const fs::path& hostRoot, SyncState& state,
                 const BuilderFactory& createBuilder) {
  ImageStamp stamp;
  if (!ReadImageStamp(imagePath, stamp)) return;
  HostSnapshot host;
  if (!ScanHost(hostRoot, host)) return;
  if (stamp.writeTime == state.lastImageWriteTime && stamp.size == state.lastImageSize &&
      host.signature == state.lastHostSignature) {
    return;
  }
  Outcome outcome;
  if (!ReconcileFiles(imagePath, hostRoot, host, state.baseline, outcome)) return;
  if (outcome.hostDeletions > 0) PruneHostFolders(hostRoot);
  // A failed rebuild agrees on the host all the same, deliberately.
  if (outcome.rebuildNeeded && RebuildImage(imagePath, hostRoot, stamp.size, createBuilder)) {
    AgreeOnImage(imagePath, host.signature, state);
  } else {
    AgreeOnHost(hostRoot, state);
  }
  // Stored as they come, even when they cannot be read.
  static_cast<void>(ReadImageStamp(imagePath, stamp));
  state.lastImageWriteTime = stamp.writeTime;
  state.lastImageSize = stamp.size;
}

}  // namespace quorbix::virtdisk::internal
