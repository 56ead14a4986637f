#ifndef QUORBIX_VIRTDISK_TOOL_COMMANDS_H_
#define QUORBIX_VIRTDISK_TOOL_COMMANDS_H_

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <quorbix/virtdisk/guarded_folder_sync.h>

#include "terminal/console.h"

namespace quorbix::virtdisk::tool {

// One function per subcommand. Each returns the program's exit status.

struct BuildOptions {
  std::filesystem::path folder;
  std::filesystem::path image;
  std::optional<std::uint64_t> size;  // bytes; nothing: the smallest that will do
  std::optional<std::string> label;   // nothing: the folder's last name
  bool inPlace = false;               // write into the image that exists
  bool force = false;                 // replace what is no image
  bool strict = false;
  bool verbose = false;  // list every remark
  bool json = false;
};
int RunBuild(Console& console, const BuildOptions& options);

struct MeasureOptions {
  std::filesystem::path folder;
  bool json = false;
};
int RunMeasure(Console& console, const MeasureOptions& options);

struct InfoOptions {
  std::filesystem::path image;
  bool json = false;
};
int RunInfo(Console& console, const InfoOptions& options);

struct ListOptions {
  std::filesystem::path image;
  std::string path = "/";
  bool recursive = false;
  bool details = false;
  bool all = false;    // with the entries that no listing of the library shows
  bool force = false;  // also a volume that would be misread, here and below
  bool json = false;
};
int RunList(Console& console, const ListOptions& options);

struct FindOptions {
  std::filesystem::path image;
  std::string text;
  bool all = false;
  bool force = false;
  bool json = false;
};
int RunFind(Console& console, const FindOptions& options);

struct TreeOptions {
  std::filesystem::path image;
  std::string path = "/";
  bool all = false;
  bool force = false;
  bool json = false;
};
int RunTree(Console& console, const TreeOptions& options);

struct CatOptions {
  std::filesystem::path image;
  std::string path;
  bool force = false;
  bool json = false;
};
int RunCat(Console& console, const CatOptions& options);

struct GetOptions {
  std::filesystem::path image;
  std::string path;
  std::filesystem::path destination;
  bool all = false;
  bool force = false;  // and to replace files that exist
  bool json = false;
};
int RunGet(Console& console, const GetOptions& options);

struct PutOptions {
  std::filesystem::path image;
  std::string path;
  std::filesystem::path file;
  bool inPlace = false;  // write into the image itself
  bool force = false;    // even where the volume is no FAT16, or the image write-protected
  bool json = false;
};
int RunPut(Console& console, const PutOptions& options);

struct MapOptions {
  std::filesystem::path image;
  std::filesystem::path picture;  // empty: draw on the console
  bool force = false;             // replace what it did not draw
  bool json = false;
};
int RunMap(Console& console, const MapOptions& options);

struct VerifyOptions {
  std::filesystem::path image;
  bool json = false;
};
int RunVerify(Console& console, const VerifyOptions& options);

struct SyncOptions {
  std::filesystem::path image;
  std::filesystem::path folder;
  GuardedSyncOptions guarded;
  std::vector<GuardedHazard> accepted;
  std::uint32_t intervalMs = 60'000;  // the longest time between two looks
  bool once = false;
  bool dryRun = false;           // tell what would be done, touch nothing
  std::filesystem::path status;  // file that is rewritten after every pass; empty: none
  bool json = false;
};
int RunSync(Console& console, const SyncOptions& options);

struct RestoreOptions {
  std::filesystem::path image;
  std::string id;                // empty: list the trash
  std::filesystem::path target;  // empty: the old name
  std::filesystem::path folder;  // that the pair's files were in
  std::filesystem::path state;   // empty: beside the image
  bool force = false;            // what stands there goes to the trash
  bool json = false;
};
int RunRestore(Console& console, const RestoreOptions& options);

struct DemoOptions {
  std::filesystem::path folder;  // empty: a sample of its own
  bool keep = false;
  bool json = false;
};
int RunDemo(Console& console, const DemoOptions& options);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_COMMANDS_H_
