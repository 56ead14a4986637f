#ifndef QUORBIX_VIRTDISK_BUILD_PREVIEW_H_
#define QUORBIX_VIRTDISK_BUILD_PREVIEW_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "quorbix/virtdisk/export.h"

namespace quorbix::virtdisk {

// What a build would make of one entry of the folder.
enum class BuildFate {
  kCopied,   // in the image
  kLeftOut,  // not in the image, and listed by SkippedFiles; `reason` is the text in the brackets
  kPassedOver,  // not in the image, and listed nowhere: a pipe, a socket, a device, or a link that
                // leads nowhere or to one of these
};

// One entry of the folder, or below it.
struct BuildPreviewEntry {
  // Stands for the folder itself where an entry's number is asked for.
  static constexpr std::size_t kRoot = std::numeric_limits<std::size_t>::max();

  // Relative to the folder, in the host's own bytes; empty for the folder itself. A text, because
  // the path class takes many times the memory in deep trees.
  std::string hostPath;
  BuildFate fate = BuildFate::kCopied;
  // With kLeftOut. "dir-iter: " and a message means that the folder is in the image, in an entry of
  // its own, and what it holds is left out (from there on).
  std::string reason;

  // The rest is about what is copied.
  std::string imagePath;     // "/DOCS/README.TXT", with short names
  bool isDirectory = false;  // a folder, or a link to one
  std::uint64_t bytes = 0;   // of a file's content
  // In the image, but no listing shows it: the base of its short name, or of a directory's above
  // it, is blank. That is what becomes of names whose only dot is their first character.
  bool isHidden = false;
  bool isBehindLink = false;  // a link, or below a link to a folder
  // The same host file or folder was met before, as entry `metBefore`: a hard link, or another way
  // that a link leads. Everything is copied once for each way.
  bool isMetAgain = false;
  std::size_t metBefore = kRoot;
  std::size_t directory = kRoot;  // the entry of the directory that holds it
};

// What a build of a folder would put into an image, whatever the image's size.
struct BuildPreview {
  std::vector<BuildPreviewEntry> entries;  // in the order in which a build meets them
  std::uint64_t files = 0;                 // that are copied, hidden ones too
  std::uint64_t directories = 0;           // likewise, the root not counted
  std::uint64_t fileBytes = 0;             // of those files together
  std::uint64_t hidden = 0;                // of both, those that no listing shows
  std::uint64_t leftOut = 0;               // entries with kLeftOut
  // The walk ended early: what it had met by then fits into no image. Links that lead back up, and
  // so go on for ever, end like that.
  bool isEndless = false;
};

// What becomes of a preview in an image of one size.
struct ImageFit {
  bool builds = false;        // IFatImageBuilder::Build returns true
  std::string message;        // what LastError says then, or why the build fails
  std::uint64_t dropped = 0;  // empty files that find no slot: that fails no build
  bool holds = false;         // it builds, and nothing is dropped
  // The numbers of those files among the preview's entries.
  std::vector<std::size_t> droppedEntries;

  // The volume, all 0 where no image of this size can be made.
  std::uint32_t clusterBytes = 0;
  std::uint32_t clusters = 0;        // that can hold something
  std::uint64_t clustersNeeded = 0;  // by everything that is copied, whether or not it fits
  // Whether other FAT tools take the volume for what it is. They refuse one whose FAT has no words
  // for its last clusters, and take one of fewer than 4,085 clusters for FAT12.
  bool isCommonlyRead = false;
};

// Looks at `folder` as IFatImageBuilder::Build would, and tells in `preview` what it would copy:
// the same order, the same short names, links followed, the same entries left out.
// Opens every file to see whether that can be done, and reads those alone, of 64 KiB at most, whose
// size may not be that of their content: files that are empty or take no room on the host, as what
// the system makes up. Host files may change until the build.
//
// On failure returns false, says why in `err` and leaves `preview` empty:
//   "Source folder does not exist: " + path
//   "Source path is not a directory: " + path
//   "Source folder cannot be looked at: " + path + " (" + system message + ")"
// Throws nothing but std::bad_alloc. May run on several threads at once.
[[nodiscard]] QUORBIX_VIRTDISK_EXPORT bool PreviewBuild(const std::filesystem::path& folder,
                                                        BuildPreview& preview, std::string& err);

// Tells what an image of `imageBytes` bytes would do with the entries of `preview`: a build with
// this size has the same outcome, as long as the folder stays as it is.
[[nodiscard]] QUORBIX_VIRTDISK_EXPORT ImageFit FitIntoImage(const BuildPreview& preview,
                                                            std::uint64_t imageBytes);

// Returns the smallest whole number of MiB, above `aboveBytes`, that holds the entries of `preview`
// and is commonly read; in bytes, and 0 when there is none. No size changes the root's 511 entries.
[[nodiscard]] QUORBIX_VIRTDISK_EXPORT std::uint64_t SmallestImage(const BuildPreview& preview,
                                                                  std::uint64_t aboveBytes = 0);

}  // namespace quorbix::virtdisk

#endif  // QUORBIX_VIRTDISK_BUILD_PREVIEW_H_
