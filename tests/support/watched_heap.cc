#include "support/watched_heap.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>

namespace {

long allocationsLeft = -1;  // that still succeed; negative: all do
long failuresLeft = 0;      // of those that come then
bool hasFailed = false;
std::size_t bytesInUse = 0;
std::size_t peakBytesInUse = 0;

void Free(void* memory) {
  bytesInUse -= ::malloc_usable_size(memory);
  std::free(memory);
}

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (allocationsLeft == 0 && failuresLeft > 0) {
    --failuresLeft;
    hasFailed = true;
    return nullptr;
  }
  if (allocationsLeft > 0) --allocationsLeft;
  void* memory = std::malloc(size == 0 ? 1 : size);
  bytesInUse += ::malloc_usable_size(memory);
  peakBytesInUse = std::max(peakBytesInUse, bytesInUse);
  return memory;
}

void* operator new(std::size_t size) {
  if (void* memory = operator new(size, std::nothrow)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { Free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { Free(memory); }
void operator delete(void* memory, std::size_t) noexcept { Free(memory); }

namespace quorbix::virtdisk::test {

std::size_t BytesInUse() { return bytesInUse; }

std::size_t PeakBytesInUse() { return peakBytesInUse; }

void ResetPeak() { peakBytesInUse = bytesInUse; }

void AllowAllocations(long allocations, long failures) {
  allocationsLeft = allocations;
  failuresLeft = failures;
  hasFailed = false;
}

bool HasFailedAllocation() { return hasFailed; }

}  // namespace quorbix::virtdisk::test
