// The memory of all grids together, with a limit that a run may set.
#pragma once
#include <cstddef>

#include "host/vector.h"

namespace MELDO_GLOBAL {

/// Limits the bytes that all grids hold at once; 0 lifts the limit. Forgets an earlier refusal.
void SetGridMemoryLimit(u64 bytes);
/// Bytes that all grids hold now.
u64 GridMemory();

/// An allocation that was refused: it would have exceeded the limit, or has more samples than an
/// index can number.
struct GridRefusal {
  VecInt3D dims{};   ///< of the grid
  double bytes = 0;  ///< that all grids together would have held; 0 without a refusal
};
/// The first refusal since `SetGridMemoryLimit`.
GridRefusal RefusedGrid();

/// Whether that many bytes more stay below the limit.
bool HasMemoryFor(double bytes);
/// Particles that found no room, with what there is: how many they would have been, and what those
/// that are new would have held. 0 without a refusal; `SetGridMemoryLimit` forgets it.
struct ParticleRefusal {
  double count = 0;
  double bytes = 0;
};
void RefuseParticles(double count, double bytes);
ParticleRefusal RefusedParticles();

/// Other memory that counts with that of the grids, as long as it lives.
class CountedMemory {
 public:
  CountedMemory() = default;
  CountedMemory(const CountedMemory&) = delete;
  CountedMemory& operator=(const CountedMemory&) = delete;
  ~CountedMemory() { Set(0); }
  void Set(u64 bytes);

 private:
  u64 mBytes = 0;
};

/// Aligned memory for a grid; null where it is refused or the system has none. Any thread.
void* AllocateGridMemory(const VecInt3D& dims, std::size_t sampleSize);
void FreeGridMemory(void* data, std::size_t bytes);

}  // namespace MELDO_GLOBAL
