#include "quorbix/virtdisk/fat16_fs_image.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "browser/release_slack.h"
#include "browser/rewrite_plan.h"
#include "browser/volume_index.h"
#include "common/byte_order.h"

namespace quorbix::virtdisk {

struct Fat16FsImage::Impl {
  // Replaces the held image, and forgets no index before the new bytes are there.
  void HoldCopyOf(const std::vector<std::uint8_t>& newImage);

  void WriteClusterChain(const std::vector<std::uint16_t>& chain,
                         const std::vector<std::uint8_t>& content);  // and zeros after it

  std::vector<std::uint8_t> image;
  internal::MemorySource source{image};
  internal::VolumeIndex volume{source};
};

void Fat16FsImage::Impl::HoldCopyOf(const std::vector<std::uint8_t>& newImage) {
  if (internal::WastesMemory(image.capacity(), newImage.size())) {
    image = std::vector<std::uint8_t>(newImage);
  } else {
    image = newImage;
  }
  source = internal::MemorySource(image);
}

void Fat16FsImage::Impl::WriteClusterChain(const std::vector<std::uint16_t>& chain,
                                           const std::vector<std::uint8_t>& content) {
  const std::uint64_t clusterBytes = volume.Chains().ClusterBytes();
  auto next = content.begin();
  for (const std::uint16_t cluster : chain) {
    std::uint8_t* data = &image[volume.Chains().ClusterOffset(cluster)];
    const auto left = static_cast<std::uint64_t>(content.end() - next);
    const std::uint64_t part = std::min(left, clusterBytes);
    std::copy_n(next, part, data);
    std::fill(data + part, data + clusterBytes, std::uint8_t{0});
    next += static_cast<std::ptrdiff_t>(part);
  }
}

Fat16FsImage::Fat16FsImage() : impl(std::make_unique<Impl>()) {}

Fat16FsImage::~Fat16FsImage() = default;

bool Fat16FsImage::LoadFromBytes(const std::vector<std::uint8_t>& image, std::string& err) {
  impl->HoldCopyOf(image);
  return impl->volume.Parse(err);
}

const Fat16FsInfo& Fat16FsImage::Info() const { return impl->volume.Info(); }

const std::vector<std::uint8_t>& Fat16FsImage::ImageBytes() const { return impl->image; }

bool Fat16FsImage::ListDirectory(const std::string& path, std::vector<Fat16FsEntry>& results,
                                 std::string& err) const {
  return impl->volume.ListDirectory(path, results, err);
}

bool Fat16FsImage::Search(const std::string& query, std::vector<Fat16FsEntry>& results,
                          std::string& err) const {
  return impl->volume.Search(query, results, err);
}

bool Fat16FsImage::ReadFile(const std::string& path, std::vector<std::uint8_t>& content,
                            std::string& err) const {
  const internal::EntryRecord* file = impl->volume.FindFile(path, err);
  content.clear();
  if (file == nullptr) return false;
  if (file->size == 0) return true;
  internal::ContentReader reader = impl->volume.Open(file->firstCluster, file->size);
  content.reserve(reader.Total());
  std::span<const std::uint8_t> piece;
  do {
    if (!reader.Next(piece, err)) return false;
    content.insert(content.end(), piece.begin(), piece.end());
  } while (!piece.empty());
  return true;
}

bool Fat16FsImage::WriteExistingFile(const std::string& path,
                                     const std::vector<std::uint8_t>& newContent,
                                     std::string& err) {
  internal::RewritePlan plan;
  if (!internal::PlanRewrite(impl->volume, path, newContent.size(), plan, err)) return false;
  impl->WriteClusterChain(plan.chain, newContent);
  internal::StoreU32(&impl->image[plan.sizeOffset], static_cast<std::uint32_t>(newContent.size()));
  return impl->volume.Parse(err);
}

}  // namespace quorbix::virtdisk
