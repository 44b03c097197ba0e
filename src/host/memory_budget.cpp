#include "host/memory_budget.h"

#include <atomic>

namespace MELDO_GLOBAL::host {

namespace {

std::atomic<u64> gMemoryLimit{0};
std::atomic<u64> gMemoryInUse{0};

}  // namespace

void SetMemoryLimit(u64 bytes) { gMemoryLimit = bytes; }
u64 MemoryLimit() { return gMemoryLimit; }
void CountMemory(u64 bytes) { gMemoryInUse += bytes; }
void UncountMemory(u64 bytes) { gMemoryInUse -= bytes; }
u64 MemoryInUse() { return gMemoryInUse; }

bool MemoryAllows(double bytes) {
  const u64 limit = gMemoryLimit;
  return limit == 0 || static_cast<double>(gMemoryInUse) + bytes <= static_cast<double>(limit);
}

}  // namespace MELDO_GLOBAL::host
