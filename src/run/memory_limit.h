// How much memory a run may take, and what a step is going to need.
#pragma once
#include <filesystem>
#include <string>

#include "framework/bounds.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::app {

/// Memory that this process can have now: what the machine, and each control group that holds the
/// process, has free; bytes. `root` is where the system's files are looked for.
u64 FreeMemory(const std::filesystem::path& root);
u64 MachineMemory();

/// Bytes as "812 MB" or "1.2 TB", in units of 1000.
std::string FormatBytes(double bytes);

/// Bytes that the grids of a scene take when its objects cover their boxes: all buffers that live
/// at once at the peak of a step.
double EstimateGridMemory(const MELDO_SULVA::Scene& scene,
                          const MELDO_SULVA::NegotiatedBounds& bounds);

/// What one object takes of that.
struct MemoryWant {
  const MELDO_SULVA::iBase* object = nullptr;
  double bytes = 0;
};
/// The object that takes most; none where no object takes any.
MemoryWant LargestWant(const MELDO_SULVA::Scene& scene,
                       const MELDO_SULVA::NegotiatedBounds& bounds);

/// Holds a run to its memory: looks at every box before the grids of a scene grow to it, and limits
/// the grids together, as it lives. Then the limit is again what it was.
class MemoryGuard {
 public:
  explicit MemoryGuard(u64 limit);
  ~MemoryGuard();
  MemoryGuard(const MemoryGuard&) = delete;
  MemoryGuard& operator=(const MemoryGuard&) = delete;

  /// Whether what the objects are about to cover fits; if not, `Refusal` says why.
  bool Allows(const MELDO_SULVA::Scene& scene, const MELDO_SULVA::NegotiatedBounds& bounds);
  /// False once a single grid was refused, as that of a volume may be, or particles were;
  /// `Refusal` says why.
  bool CheckGrids(const MELDO_SULVA::Scene& scene);
  /// The system gave no memory for something else than a grid; `Refusal` says for whom.
  void NoteFailure(const MELDO_SULVA::Scene& scene);
  /// One sentence; empty as long as everything fitted.
  const std::string& Refusal() const { return mRefusal; }

 private:
  /// `share`: what the largest part of it is for, or nothing.
  void Refuse(const std::string& what, const std::string& share, double cells, double bytes,
              const MELDO_SULVA::Scene& scene);
  bool CheckParticles(const MELDO_SULVA::Scene& scene);
  bool CheckMeshes();
  void AddAdvice(const MELDO_SULVA::Scene& scene);

  u64 mLimit, mOuterLimit;
  std::string mRefusal;
};

}  // namespace MELDO_GLOBAL::app
