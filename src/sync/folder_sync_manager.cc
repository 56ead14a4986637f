#include "sync/folder_sync_manager.h"

#include <pthread.h>

#include <chrono>
#include <utility>

namespace quorbix::virtdisk {
namespace internal {
namespace fs = std::filesystem;

namespace {

constexpr char kWorkerName[] = "fat-sync";

}  // namespace

FolderSyncManager::FolderSyncManager()
    : FolderSyncManager([](const fs::path& image, const fs::path& host, SyncState& known) {
        RunSyncPass(image, host, known);
      }) {}

FolderSyncManager::FolderSyncManager(Pass passToRun) : pass(std::move(passToRun)) {}

FolderSyncManager::~FolderSyncManager() { EndWorker(); }

void FolderSyncManager::Start(const fs::path& newImagePath, const fs::path& newHostRoot,
                              unsigned int newIntervalMs) {
  EndWorker();
  imagePath = newImagePath;
  hostRoot = newHostRoot;
  intervalMs = newIntervalMs;
  stopRequested = false;
  state = SyncState();
  worker = std::thread([this] { RunWorker(); });
}

void FolderSyncManager::Stop() { EndWorker(); }

void FolderSyncManager::SyncNow() {
  const std::lock_guard lock(syncMutex);
  DoSync();
}

bool FolderSyncManager::IsRunning() const { return worker.joinable() && !stopRequested; }

void FolderSyncManager::EndWorker() noexcept {
  stopRequested = true;
  wakeUp.notify_all();
  if (worker.joinable()) worker.join();
}

void FolderSyncManager::RunWorker() {
  ::pthread_setname_np(::pthread_self(), kWorkerName);
  while (!stopRequested) {
    std::unique_lock waitLock(waitMutex);
    if (!WaitForNextCycle(waitLock)) return;
    // A pass of SyncNow that is under way makes this one superfluous.
    const std::unique_lock syncLock(syncMutex, std::try_to_lock);
    if (syncLock.owns_lock()) DoSync();
  }
}

bool FolderSyncManager::WaitForNextCycle(std::unique_lock<std::mutex>& lock) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(intervalMs);
  return !wakeUp.wait_until(lock, deadline, [this] { return stopRequested.load(); });
}

void FolderSyncManager::DoSync() { pass(imagePath, hostRoot, state); }

}  // namespace internal

std::unique_ptr<IFolderSyncManager> CreateFolderSyncManager() {
  return std::make_unique<internal::FolderSyncManager>();
}

}  // namespace quorbix::virtdisk
