#include "browser/rewrite_plan.h"

#include <string_view>

#include "common/fail.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::internal {
namespace {

constexpr std::string_view kTooLong = "new file content exceeds allocated cluster chain";
constexpr std::string_view kNoChain = "file has no allocated cluster chain";

}  // namespace

bool PlanRewrite(const VolumeIndex& volume, const std::string& path, std::uint64_t newBytes,
                 RewritePlan& plan, std::string& err) {
  const EntryRecord* file = volume.FindFile(path, err);
  if (file == nullptr) return false;
  if (newBytes > file->MostContent()) return Fail(err, kTooLong);
  plan.chain.clear();
  plan.sizeOffset = file->dirEntryOffset + dir_entry::kFileSize;
  if (file->firstCluster < fat::kFirstCluster) return newBytes == 0 || Fail(err, kNoChain);
  return volume.Chains().Collect(file->firstCluster, plan.chain, err);
}

}  // namespace quorbix::virtdisk::internal
