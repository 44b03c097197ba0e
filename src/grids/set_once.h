// A flag that workers share.
#pragma once
#include <atomic>

namespace MELDO_GLOBAL {

/// Sets a flag that many share: once set, it is only read.
inline void SetOnce(std::atomic<bool>& flag, bool isSo) {
  if (isSo && !flag.load(std::memory_order_relaxed)) flag.store(true, std::memory_order_relaxed);
}

}  // namespace MELDO_GLOBAL
