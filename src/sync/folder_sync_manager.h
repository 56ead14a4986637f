#ifndef QUORBIX_VIRTDISK_SYNC_FOLDER_SYNC_MANAGER_H_
#define QUORBIX_VIRTDISK_SYNC_FOLDER_SYNC_MANAGER_H_

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <thread>

#include "quorbix/virtdisk/folder_sync_manager.h"
#include "sync/sync_pass.h"

namespace quorbix::virtdisk::internal {

class FolderSyncManager final : public IFolderSyncManager {
 public:
  // What the manager runs at each interval: image file, host folder, what is known of them.
  using Pass =
      std::function<void(const std::filesystem::path&, const std::filesystem::path&, SyncState&)>;

  FolderSyncManager();  // runs RunSyncPass
  explicit FolderSyncManager(Pass passToRun);
  ~FolderSyncManager() override;
  FolderSyncManager(const FolderSyncManager&) = delete;
  FolderSyncManager& operator=(const FolderSyncManager&) = delete;

  void Start(const std::filesystem::path& newImagePath, const std::filesystem::path& newHostRoot,
             unsigned int newIntervalMs) override;
  void Stop() override;
  void SyncNow() override;
  bool IsRunning() const override;

 private:
  // An exception of the join, which the standard allows for misuse only, ends the process.
  void EndWorker() noexcept;
  void RunWorker();
  bool WaitForNextCycle(std::unique_lock<std::mutex>& lock);
  void DoSync();  // one pass, with `syncMutex` held

  const Pass pass;

  // Written by Start only, while there is no worker.
  std::filesystem::path imagePath;
  std::filesystem::path hostRoot;
  std::uint32_t intervalMs = 5000;

  std::atomic<bool> stopRequested = false;
  std::thread worker;
  // The worker's own: released while it waits, held through its pass. Whoever asks it to stop does
  // not take it, or would wait for the pass before even asking.
  std::mutex waitMutex;
  std::condition_variable wakeUp;

  // Held through every pass, of the worker and of SyncNow; guards `state` and the files.
  std::mutex syncMutex;
  SyncState state;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_SYNC_FOLDER_SYNC_MANAGER_H_
