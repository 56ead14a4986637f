// The synchroniser's reader over the bytes of an image: parse, list and hash, read every file.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "sync/cluster_chain.h"
#include "sync/fat_context.h"
#include "sync/hash_bytes.h"
#include "sync/image_file_map.h"

namespace fs = std::filesystem;
using namespace quorbix::virtdisk::internal;

namespace {

// Reading is cut short on images whose files share their clusters many times over.
constexpr std::uint64_t kReadBudget = 16u << 20;  // bytes

void Require(bool condition) {
  if (!condition) std::abort();
}

void CheckPath(const fs::path& path) {
  Require(!path.empty() && path.is_relative());
  Require(path.native().find('\0') == std::string::npos);
  for (const fs::path& element : path) {
    Require(!element.empty() && element != "." && element != "..");
    Require(element.native().size() <= 12);
  }
}

// Listing hashes chains where they lie; reading copies them. Both must mean the same bytes.
void CheckContent(const FatContext& context, const FileVersion& version, std::uint64_t& budget) {
  std::vector<std::uint8_t> bytes;
  const bool readable = ReadClusterChain(context, version.firstCluster, bytes, version.size);
  Require(version.contentHash == (readable ? HashBytes(bytes) : 0));
  Require(version.size == 0 || bytes.size() <= version.size);
  Require(bytes.size() <= context.image.size());
  budget -= std::min<std::uint64_t>(budget, bytes.size() + 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FatContext context;
  context.image.Assign({data, size});
  std::string error;
  if (!ParseLoadedImage(context, error)) {
    Require(!error.empty());
    return 0;
  }
  std::vector<DiskFile> files;
  VersionMap versions;
  const bool whole = BuildImageFileMap(context, files, versions);
  Require(files.size() <= size / 32 && versions.size() <= files.size());
  if (!whole) return 0;
  std::uint64_t budget = kReadBudget;
  for (const DiskFile& file : files) {
    CheckPath(file.relPath);
    if (budget > 0) CheckContent(context, file.version, budget);
  }
  return 0;
}
