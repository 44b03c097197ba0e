// Gaps between solids that are too narrow for distances at nodes.
#pragma once
#include <optional>
#include <utility>
#include <vector>

#include "fluids/flow/gap_probe.h"
#include "fluids/flow/grid_boundary.h"
#include "fluids/flow/solid_cells.h"
#include "fluids/volume/volume_fractions.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class StateArchive;

/// Where two sides of solids face each other less than two cells apart, a node between them knows
/// the nearer one alone: what the distances leave open there is too little, and nothing where no
/// node lies between. In the cells of such gaps, between two obstacles, parts of one, or an
/// obstacle and a wall of the container, the open parts of faces are measured from the triangles,
/// and a cell can hold smoke when a quarter of it is open. A gap of half a cell leads through some
/// of its cells then, wherever it lies; a narrower one is told of where it leads somewhere and its
/// sides don't come nearer or part. A room of one cell between opposite walls of the container is
/// such a gap too.
class NarrowGaps {
 public:
  /// A place where a gap is narrower than half a cell.
  struct Place {
    const VolumeBase* one;
    const VolumeBase* other;  ///< maybe the same; null for a wall of the container
    Vec3d at;                 ///< simulation units
    double width;             ///< cells
  };

  /// Finds the gaps between the obstacles as they stand, the level set being built. Cells are
  /// measured once for as long as the solids round them stay. The result doesn't depend on
  /// `threads`.
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
  /// Where a gap seems narrow: a point in it and the solids on its sides.
  struct Suspect {
    Vec3d at;
    i32 one, other;
  };
  /// A cell that may lie in a gap.
  struct Cell {
    VecInt3D at;  ///< in cells of the domain
    u32 pinched;  ///< which of its nodes are, see `MeasureCell`
    bool isGap = false;
    float open = 1;          ///< what is open of it if it is one, and of its faces
    float faces[3][2] = {};  ///< by axis, low and high
    std::optional<Suspect> suspect{};
  };
  using Layer = std::vector<Cell>;  ///< in order of y and x
  struct Obstacle {
    const VolumeBase* volume;
    u32 revision;
    bool moves;
    CellBox box;  ///< of its grid, in cells of the domain
    bool operator==(const Obstacle& other) const {
      return volume == other.volume && revision == other.revision && moves == other.moves;
    }
  };
  struct State {
    std::vector<Obstacle> obstacles;
    VecInt3D dims, origin;
    double cell = 0;
    u8 walls = 0;
    friend bool operator==(const State&, const State&) = default;
    /// Opposite walls stand a cell apart: all nodes lie in one of them.
    bool IsThinRoom() const;
    /// A wall may be one of the sides of a gap there.
    bool IsNearWall(const VecInt3D& cell) const;
  };
  /// What was found for the solids as they stood before.
  struct Past {
    State state;
    std::vector<Layer> layers;
    bool isOfSameSolids = false;   ///< in other places maybe
    std::vector<CellBox> changed;  ///< where these are or were, in cells of the domain

    Past(State from, std::vector<Layer> found, const State& now);
    /// What was measured of a cell, as long as it holds; null if it has to be measured.
    const Cell* Find(const Cell& cell, const State& now) const;
  };
  static State StateOf(const GridBoundary& boundary);
  IndexRange RowInReach(const SolidSurfaces& solids, i32 y, i32 z) const;
  void ScanLayer(const EGrid<double>& level, const SolidSurfaces& solids, i32 z,
                 Layer& found) const;
  void MeasureCell(const SolidSurfaces& solids, const GridLayout& layout, Cell& cell) const;
  /// Tells of a gap, if it is one.
  void Tell(const SolidSurfaces& solids, const GapProbe::Gap& gap, double cell);
  void FindPlaces(const SolidSurfaces& solids, double cell);

  State mState;
  std::vector<Layer> mLayers;
  std::vector<Place> mPlaces;
  std::vector<Suspect> mSuspects;          // of cells that were measured just now
  std::vector<std::pair<u64, u64>> mTold;  // nodes, the lower first; 0 for a wall
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
