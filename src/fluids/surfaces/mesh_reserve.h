// Memory for polygons that are going to be made.
#pragma once
#include "grids/egrid.h"
#include "grids/grid_memory.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Counts with the grids what the polygons of a level set take while they are made, as long as it
/// lives: by the edges between samples that the surface crosses, of which each has a point.
class MeshReserve {
 public:
  /// `level` in simulation units; `resolution` cells for one of the grid, along an axis;
  /// `pointsPerEdge` as the method makes them.
  MeshReserve(const EGrid<double>& grid, double level, double resolution, double pointsPerEdge,
              i32 threads);
  /// False where the limit of memory is below that; the run ends then, as with a grid.
  bool IsGranted() const { return mIsGranted; }

 private:
  CountedMemory mMemory;
  bool mIsGranted = false;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
