#ifndef QUORBIX_VIRTDISK_TOOL_BUILD_NOTES_H_
#define QUORBIX_VIRTDISK_TOOL_BUILD_NOTES_H_

#include <cstdint>
#include <string>
#include <vector>

#include <quorbix/virtdisk/build_preview.h>

namespace quorbix::virtdisk::tool {

// An entry that the image shows under another name than the host.
struct Renamed {
  std::string host;          // path relative to the folder
  std::string image;         // name
  bool inCaseAlone = false;  // the names differ in ASCII letter case only
};

// A link that a build followed, to a folder or a file.
struct FollowedLink {
  std::string host;           // path relative to the folder
  std::uint64_t entries = 0;  // that came into the image through it, itself included
  bool isMetAgain = false;    // it leads to what is copied by another way too, as `metBefore`
  std::string metBefore;      // path relative to the folder; empty for the folder itself
  // It lies behind another one, among whose entries it is counted, and is met again there.
  bool isBehindLink = false;
};

// What may surprise about an image that was built, in the order in which a build meets it.
struct BuildNotes {
  std::vector<std::string> leftOut;     // host path, and reason in brackets
  std::vector<std::string> passedOver;  // what is neither a file nor a folder; relative paths
  std::vector<Renamed> renamed;
  std::vector<FollowedLink> links;   // of those behind a link, the ones that are met again
  std::uint64_t hiddenEntries = 0;   // in the image, but in no listing
  std::vector<std::string> hidden;   // of those, all that do not lie in another; relative paths
  std::uint64_t metAgain = 0;        // entries that were copied before, under another path
  std::vector<std::string> dropped;  // empty files that found no slot; relative paths
};

// From a preview, how its entries fit into the image, and the builder's list of what it left out.
BuildNotes TakeNotes(const BuildPreview& preview, const ImageFit& fit,
                     const std::vector<std::string>& skipped);

// Renamed in more than letter case.
std::uint64_t CountRenamed(const BuildNotes& notes);

// An item of the builder's list in better words: a file that may not be read is told as that, not
// as one that may have changed.
std::string ExplainSkipped(const std::string& item);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_BUILD_NOTES_H_
