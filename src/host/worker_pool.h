// Worker threads with one break flag.
#pragma once
#include <atomic>
#include <cstddef>
#include <memory>
#include <type_traits>

#include "host/types.h"

namespace MELDO_GLOBAL::host {

inline constexpr i32 kMaxWorkers = 64;

/// Workers that the machine offers, at most 64; `SetThreadCount` fixes another number (0 lifts it).
i32 ThreadCount();
void SetThreadCount(i32 count);

/// The thread of an evaluation: work polls it and leaves early when it was told to stop.
class HostThread {
 public:
  bool TestBreak() const { return mBreak.load(std::memory_order_relaxed); }
  void Stop() { mBreak.store(true, std::memory_order_relaxed); }
  void Clear() { mBreak.store(false, std::memory_order_relaxed); }

 private:
  std::atomic<bool> mBreak{false};
};

/// The one thread whose break flag the interrupt signals set.
HostThread& MainThread();
/// Makes the interrupt, termination and hang-up signals (the last unless it is ignored) set the
/// break flag of `MainThread`; a second signal ends the process at once.
void InstallInterruptHandlers();

/// The process-wide pool: share 0 runs on the caller, share i on the i-th idle worker, and the call
/// returns when all shares are done. Any threads may run work at once; shares that find no idle
/// worker go to who is free first, so none may wait for another. A run in a share runs in line.
class WorkerPool {
 public:
  static WorkerPool& Instance();

  /// Runs `share(index)` for every index below `count`, on the caller and idle workers. All are
  /// done when it returns or throws: the first exception of a share goes on to the caller. Throws
  /// std::invalid_argument for more than 64 shares.
  template <class Share>
  void Run(i32 count, Share&& share) {
    using F = std::remove_reference_t<Share>;
    RunShares(
        count, [](void* f, i32 index) { (*static_cast<F*>(f))(index); },
        const_cast<void*>(static_cast<const void*>(std::addressof(share))));
  }

 private:
  WorkerPool();
  ~WorkerPool();
  using Invoke = void (*)(void* context, i32 index);
  void RunShares(i32 count, Invoke invoke, void* context);

  struct Impl;
  std::unique_ptr<Impl> mImpl;
};

}  // namespace MELDO_GLOBAL::host
