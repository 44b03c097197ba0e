// Gaps between solids that are too narrow for distances at nodes.
#pragma once
#include <utility>
#include <vector>

#include "fluids/flow/grid_boundary.h"
#include "fluids/flow/solid_cells.h"
#include "fluids/volume/volume_fractions.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class SolidSurfaces;
class StateArchive;

/// Where two sides of solids face each other less than two cells apart, a node between them knows
/// the nearer one alone: what the distances leave open there is too little, and nothing where no
/// node lies between. In the cells of such gaps, between two obstacles, parts of one, or an
/// obstacle and a wall of the container, the open parts of faces are measured from the triangles,
/// and a cell can hold smoke when a quarter of it is open. A gap of half a cell leads through some
/// of its cells then, wherever it lies; a narrower one is told of.
class NarrowGaps {
 public:
  /// A place where a gap is narrower than half a cell.
  struct Place {
    const VolumeBase* one;
    const VolumeBase* other;  ///< maybe the same; null for a wall of the container
    Vec3d at;                 ///< simulation units
    double width;             ///< cells
  };

  /// Finds the gaps between the obstacles as they stand, `levelSet` being built; nothing when they
  /// stand where they stood. The result doesn't depend on `threads`.
  void Build(const GridBoundary& boundary, i32 threads);
  /// Forgets the gaps, not what was told of.
  void Release() {
    mState = {};
    mLayers.clear();
  }

  /// Writes the open parts of faces and cells into the fractions of a flow.
  void Open(Grid_VolumeFractions& fractions) const;
  /// Marks the cells that hold smoke.
  void Mark(SolidCells& cells) const;
  /// Gaps that are too narrow to tell how they lie, each pair of solids once as long as this lasts.
  std::vector<Place> TakePlaces() { return std::exchange(mPlaces, {}); }
  /// What was told of; the gaps themselves are found again.
  void Persist(StateArchive& archive);

 private:
  struct Face {
    VecInt3D at;
    i32 axis;
    float open;
  };
  struct Cell {
    VecInt3D at;
    float open;
  };
  /// Where a gap seems narrow: a point in it and the solids on its sides.
  struct Suspect {
    Vec3d at;
    i32 one, other;
  };
  struct Layer {
    std::vector<Face> faces;
    std::vector<Cell> cells;
    std::vector<Suspect> suspects;
  };
  struct State {
    std::vector<std::pair<const VolumeBase*, u32>> obstacles;
    VecInt3D dims, origin;
    double cell = 0;
    u8 walls = 0;
    friend bool operator==(const State&, const State&) = default;
  };
  static State StateOf(const GridBoundary& boundary);
  void ScanLayer(const GridBoundary& boundary, const SolidSurfaces& solids, i32 z,
                 Layer& found) const;
  void AddCell(const SolidSurfaces& solids, const GridLayout& layout, const VecInt3D& cell,
               u32 pinched, Layer& found) const;
  void FindPlaces(const SolidSurfaces& solids, const GridLayout& layout);

  State mState;
  std::vector<Layer> mLayers;
  std::vector<Place> mPlaces;
  std::vector<std::pair<u64, u64>> mTold;  // nodes, the lower first; 0 for a wall
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
