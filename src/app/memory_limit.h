// How much memory a run may take, and what a step is going to need.
#pragma once
#include <string>

#include "framework/scene.h"

namespace MELDO_GLOBAL::app {

/// Memory that the machine, or the container that holds this process, gives it at most; bytes.
u64 MachineMemory();

/// Bytes as "812 MB" or "1.2 TB", in units of 1000.
std::string FormatBytes(double bytes);

/// Bytes that the grids of a scene take when channels and solvers cover `cells` cells: all buffers
/// that live at once at the peak of a step.
double EstimateGridMemory(const MELDO_SULVA::Scene& scene, double cells);

/// Looks at every box before the grids of a scene grow to it.
class MemoryGuard {
 public:
  explicit MemoryGuard(u64 limit) : mLimit(limit) {}
  /// Whether the box (simulation units) fits; if not, `Refusal` says why.
  bool Allows(const MELDO_SULVA::Scene& scene, const Vec3d& min, const Vec3d& max);
  /// One sentence; empty as long as everything fitted.
  const std::string& Refusal() const { return mRefusal; }

 private:
  u64 mLimit;
  std::string mRefusal;
};

}  // namespace MELDO_GLOBAL::app
