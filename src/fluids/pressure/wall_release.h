// Where a liquid lets go of walls.
#pragma once
#include <span>
#include <vector>

#include "fluids/pressure/closed_regions.h"
#include "fluids/pressure/projection_fields.h"
#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Nothing holds a liquid to a wall: the cells beside closed faces may grow empty, and only push.
/// Their pressure p and what they lose to others, w, obey 0 <= p, 0 <= w, p w = 0 (Batty, Bertails
/// and Bridson 2007, with cells in place of faces). The set of cells that let go, where p = 0, is
/// found by turns: those that would pull let go, those that would be squeezed hold again
/// (Hintermueller, Ito and Kunisch 2002).
///
/// A cell that has let go counts as air whose surface lies in its middle, as long as `Restore`
/// isn't called. In closed regions pressure has no level, and nothing lets go.
class WallRelease {
 public:
  /// What a turn looks at.
  struct Solved {
    const ProjectionFields& fields;
    const ClosedRegions& regions;
    std::span<const double> pressure;  ///< by cell
    double density;                    ///< of the liquid, where `fields` have none
  };
  /// Changes the set, and the level set `surface` with it, by the pressures that were found with
  /// it; false when it stands.
  bool Update(const Solved& solved, EGrid<double>& surface, i32 threads);
  bool IsEmpty() const { return mCells.empty(); }

  /// Gives the level set its values back; forgets all.
  void Restore(EGrid<double>* surface);

 private:
  struct Cell {
    i32 index;
    double phi;  ///< before it let go
  };
  void FindPulled(const Solved& solved, double least, i32 z, std::vector<i32>& found) const;
  double Outflow(const Solved& solved, const EGrid<double>& surface, const VecInt3D& cell) const;

  std::vector<Cell> mCells;
  std::vector<std::vector<i32>> mFound;  ///< by layer
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
