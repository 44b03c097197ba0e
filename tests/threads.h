// A number of threads for the length of a scope.
#pragma once
#include "host/worker_pool.h"

namespace MELDO_GLOBAL {

/// Work is shared by so many threads until the scope ends.
struct Threads {
  explicit Threads(i32 count) { host::SetThreadCount(count); }
  ~Threads() { host::SetThreadCount(0); }
};

}  // namespace MELDO_GLOBAL
