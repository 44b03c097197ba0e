// A flow as particles see it.
#pragma once
#include "fluids/advection/flow_solid.h"
#include "fluids/advection/row_sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A flow that carries particles: its velocity, and what bounds it.
class CarryingFlow {
 public:
  /// The grids of `velocity` have the cells of one layout.
  /// The sides `freeSides` (bits of `WallBit`) stand in mid-air; with `holds` what it carries
  /// doesn't pass them.
  CarryingFlow(const StaggeredVelocity& velocity, const GridBoundary& boundary, u8 freeSides = 0,
               bool holds = false);

  /// Whether a place (simulation units) lies in its grid, and not behind an open side of it.
  bool Holds(const Vec3d& p) const;
  /// And not in the cells behind a wall either, where a neighbour may begin.
  bool HoldsWithin(const Vec3d& p) const;
  bool IsBehindOpenSide(const Vec3d& p) const {
    return mBoundary->IsOutsideOpenSide(p - mLayout->simOrigin);
  }
  /// Whether a place lies behind a side through which gas leaves the user's box.
  bool IsOutside(const Vec3d& p) const;
  /// The end of a path of `time` seconds; outside of the grids the nearest sample counts.
  template <int Order>
  Vec3d Trace(const Vec3d& p, double time) const {
    const Vec3d c = mLayout->ToCells(p);
    // The way, not its end, so that what rests keeps its bits.
    const Vec3d end = TracePath<Order>(mVelocity, c, mVelocity.At(c), time * mLayout->inverseCell);
    return Moved(p, end - c);
  }
  /// How far paths of `time` seconds lead from the first `n` places, in cells, by order 0 to 3.
  void TraceWays(const RowVectors& cells, double time, i32 order, i32 n, RowVectors& ways) const;
  /// A place, or where a way of so many cells leads from it.
  Vec3d Moved(const Vec3d& p, const Vec3d& way) const {
    const Vec3d to = p + way * mLayout->simCell;
    return mHeldSides ? Held(p, to) : to;
  }
  Vec3d VelocityAt(const Vec3d& p) const { return mVelocity.At(mLayout->ToCells(p)); }

  const GridBoundary& Boundary() const { return *mBoundary; }
  const FlowSolid& Solid() const { return mSolid; }
  const GridLayout& Layout() const { return *mLayout; }

 private:
  /// The end of a way, brought back to the held sides that it passes.
  Vec3d Held(const Vec3d& from, Vec3d to) const;

  StaggeredVelocity mVelocity;
  const GridLayout* mLayout;
  const GridBoundary* mBoundary;
  FlowSolid mSolid;
  u8 mFreeSides, mHeldSides;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
