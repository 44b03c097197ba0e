// How a value reaches a cell of a channel.
#pragma once
#include <vector>

#include "grids/layer_owner.h"
#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// How an emission combines with what a cell holds.
enum class EmissionMode : i32 { Add = 0, Set = 1, AddToLimit = 2 };

/// What a handler needs to know of an emission's settings; filled by the emitter once per run.
struct EmissionWrite {
  i32 mode = 0;           ///< `EmissionMode`; any other number writes nothing
  bool splat = false;     ///< trilinear weights over 8 samples instead of one cell
  bool hasLimit = false;  ///< a limit is linked; otherwise the upper end of the value range
  double limit = 0;       ///< of a scalar, mode AddToLimit
  Vec3d vectorLimit{};    ///< of a vector, mode AddToLimit
};

/// Writes values of type `T` somewhere.
template <class T>
class iEmissionHandler {
 public:
  virtual ~iEmissionHandler() = default;
  /// Writes `value` at `position` (simulation units). `indices` names the cell directly, one index
  /// per component grid; empty means: find it from the position. May run on all workers at once as
  /// long as they write different cells. A splat also reaches cells of neighbours: it leaves out
  /// the layers that `owner` doesn't own.
  virtual void Emit(const T& value, const Vec3d& position, const EmissionWrite& write,
                    const std::vector<i32>& indices, const LayerOwner& owner) = 0;
  /// The same for a run of cells, in order: one call for many.
  virtual void EmitRow(const T* values, const Vec3d* positions, i32 count,
                       const EmissionWrite& write, const LayerOwner& owner) = 0;
  /// On the pipeline thread, or where nobody else writes.
  void Emit(const T& value, const Vec3d& position, const EmissionWrite& write,
            const std::vector<i32>& indices = {}) {
    Emit(value, position, write, indices, LayerOwner{});
  }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
