// What keeps the particles of a liquid evenly dense.
#pragma once
#include "fluids/flow/flow.h"
#include "fluids/particles/even_cells.h"
#include "fluids/particles/particle_sort.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Asks a liquid to swell where its particles are too close and to shrink where they are too far
/// apart, by a source of divergence for a projection.
///
/// A cell holds r of its rest, `mPerCell`, by the measure that the surface goes by too
/// (`CellFilling`): what the two took for even differed beside walls, and moved a pool in circles.
/// With so few particles that chance would be most of that it is by weights of linear interpolation
/// that reach twice as far. It asks for the divergence
/// q (r - 1) / dt, with the share q of `kShare`; at the surface, where r is small by itself, it
/// asks for nothing: chance would only let it swell there. Beside cells that a solid cuts only what
/// r is above what distances may err by counts. With `mKeepsVolume` it asks for that less the mean
/// of all such cells: a liquid that shrinks as a whole, and keeps its velocity, spins slower.
class EvenDensity {
 public:
  /// Adds to the flow's source, from particles sorted over its cells. False without grids or
  /// memory, and in a step of no length.
  bool AddSource(const ParticleSort& sort, Flow& flow) const;

  double mPerCell = 8;        ///< particles in a cell of the liquid at rest
  bool mKeepsVolume = false;  ///< something else sees to the volume of the whole
  /// Cells that still particles share out, which are as they should be; null where none are.
  const EvenCells* mEven = nullptr;
  /// The same if they are those of the flow.
  const EvenCells* EvenOf(const Flow& flow) const {
    return mEven && mEven->mData && mEven->Dims() == flow.GetLayout()->dims ? mEven : nullptr;
  }

  static constexpr double kShare = 0.5;  ///< of an excess that goes in a step
  static constexpr double kMost = 0.5;   ///< largest excess that counts

 private:
  /// What is open about a cell, in cells, and what of it cells are that a solid cuts.
  struct Room {
    double open = 0, cut = 0;
  };
  /// By the wide weights, as `MeasureWide`.
  static Room WideRoom(const EGrid<float>& open, const VecInt3D& at);
  /// Sums of particles about cells.
  void MeasureWide(const ParticleSort& sort, Flow& flow, Grid<double>& dense) const;
  /// Turns the particles of cells into their excess; returns its mean. roomOf(cell, its index).
  template <class RoomOf>
  double FindExcess(const EGrid<double>& phi, const EGrid<float>& open, i32 reach,
                    const RoomOf& roomOf, i32 threads, Grid<double>& dense) const;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
