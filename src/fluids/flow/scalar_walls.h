// What scalar fields hold in solids and beyond the sides of their grid.
#pragma once
#include <memory>
#include <vector>

#include "fluids/flow/grid_boundary.h"
#include "fluids/flow/solid_cells.h"
#include "fluids/flow/thin_faces.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The closed cells of a grid: those whose centre lies in a solid, thin ones included, or in the
/// outermost layer behind a wall. They hold nothing but what is emitted into them; while a field
/// moves along paths, those beside open cells continue what is there, so that no path that ends
/// near a solid reads emptiness, and so do cells that a solid has just left. Works on cell-centred
/// fields over the cells of the flow; nothing depends on the number of workers.
class ScalarWalls {
 public:
  /// What matters of a field's range.
  struct Values {
    double nothing = 0;  ///< the low end
    double outside = 0;  ///< of the air that comes in through open sides
    double initial = 0;  ///< where nothing has arrived yet
  };
  /// What closed cells held above nothing.
  struct Held {
    double stuck = 0;  ///< it has no way out
    double given = 0;  ///< open cells take it
    double gone = 0;   ///< the solid took it out through an open side
  };

  /// Finds the closed cells of a step; what was closed before tells what solids cover and leave. A
  /// first step asks the solids where they come from. `flags` may be null; `boundary` and `thin`
  /// have to last for the step.
  void Build(const GridBoundary& boundary, const Grid<u8>* flags, const ThinFaces& thin,
             i32 threads);
  /// There is no step before the next one.
  void Release();
  void Persist(StateArchive& archive);

  /// Closed cells that hold nothing and cells that a solid has left take the mean of the nearest
  /// open cells that touch them, with `all` also closed ones that hold something; the layer outside
  /// open sides takes `outside`. Returns what cells that a solid has left hold more than before.
  double Fill(const Values& values, bool all, Grid<double>& field) const;
  /// The layer outside open sides alone.
  void FillOutside(const Values& values, Grid<double>& field) const;
  /// Closed cells lose what they hold; behind walls and outside of open sides the outermost layer
  /// continues the field.
  void Clear(const Values& values, Grid<double>& field) const;
  /// What closed cells hold goes to their nearest open cells in equal shares, as far as there are
  /// some within `reach` cells on every axis, not behind a thin wall; what lies in such a wall goes
  /// where it moves to. What finds none and an open side as near has left. Cells that a solid has
  /// just left take nothing: they lie behind it. What a field started with doesn't count in cells
  /// that were closed from the start: nothing brought it there.
  Held HandOver(const Values& values, i32 reach, Grid<double>& field) const;
  /// What closed cells hold: paths take along what a solid has just covered.
  Held FindHeld(const Values& values, const Grid<double>& field) const;
  /// The field stands on the centres of these cells.
  bool Fits(const Grid<double>& field) const;
  /// A solid has left cells in this step.
  bool HasLeft() const { return !mLeft.empty() || !mPassed.empty(); }
  /// There has been a `Build`.
  bool IsBuilt() const { return mState != nullptr; }
  bool IsClosed(const VecInt3D& cell) const { return (*mState)(cell.x, cell.y, cell.z) == kClosed; }

 private:
  enum State : u8 { kOpen = 0, kClosed = 1, kLeft = 2 };

  struct Beside {
    i32 cell;
    u32 open;  ///< which of the 27 cells round it count, in order of z, y, x
  };
  struct Run {
    i32 first, last;  ///< inner cells, by index
  };
  /// A cell that a thin wall has passed over, and how the wall moves.
  struct Passed {
    i32 cell;
    Vec3d motion;
  };
  struct Layer {
    std::vector<Beside> beside;
    std::vector<Run> closed;
    std::vector<i32> outside;  ///< cells of the outermost layer at open sides
  };
  void MarkRow(const GridBoundary& boundary, const Grid<u8>* flags, const ThinFaces& thin, i32 y,
               i32 z);
  void ListLeft();
  void ListRow(i32 y, i32 z, Layer& layer) const;
  u32 OpenRound(i32 cell) const;
  u32 ReachableOf(u32 open, i32 cell) const;
  /// Whether the cell existed in the step before, and as a closed one.
  bool WasThere(const VecInt3D& cell, bool& wasClosed) const;
  VecInt3D CellAt(i32 index) const;
  void FillOne(const Beside& b, Grid<double>& field) const;
  void MarkStart(const GridBoundary& boundary, const std::vector<GridBoundary::Mover>& movers);
  void MarkPassed(const std::vector<GridBoundary::Mover>& movers);
  /// An open side lies within `reach` cells.
  bool IsNearOpenSide(const VecInt3D& cell, i32 reach) const;
  bool IsParted(const VecInt3D& cell, const VecInt3D& taker) const;
  bool LiesBehind(const VecInt3D& cell, const VecInt3D& taker) const;
  template <class Counts, class F>
  void ForEachOpenNearest(const VecInt3D& cell, i32 reach, Counts&& counts, F&& f) const;
  template <class Counts>
  bool Give(const VecInt3D& cell, i32 reach, double held, Grid<double>& field,
            Counts&& counts) const;
  Held GivePassed(const Values& values, i32 reach, Grid<double>& field) const;

  std::unique_ptr<EGrid<u8>> mState, mBefore;
  std::vector<Beside> mLeft;  ///< cells that a solid left, each behind those that it continues
  std::vector<Passed> mPassed;
  std::vector<Layer> mLayers;
  const GridBoundary* mBoundary = nullptr;
  const ThinFaces* mThin = nullptr;  ///< null without thin walls
  bool mIsFirst = false;             ///< this is the first step
  i32 mThreads = 1;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
