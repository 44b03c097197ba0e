#include "fluids/advection/carrying_flow.h"

#include <algorithm>

namespace MELDO_GLOBAL::MELDO_SULVA {

CarryingFlow::CarryingFlow(const StaggeredVelocity& velocity, const GridBoundary& boundary,
                           u8 freeSides, bool holds)
    : mVelocity(velocity),
      mLayout(&velocity.Component(0).mLayout),
      mBoundary(&boundary),
      mSolid(boundary),
      mFreeSides(freeSides),
      mHeldSides(holds ? freeSides : u8{0}) {}

Vec3d CarryingFlow::Held(const Vec3d& from, Vec3d to) const {
  if (!mLayout->Contains(from, false)) return to;
  const double half = mLayout->halfCell;
  for (int a = 0; a < 3; ++a) {
    if (mHeldSides & kLowWall[a]) to[a] = std::max(to[a], mLayout->simOrigin[a] + half);
    if (mHeldSides & kHighWall[a]) to[a] = std::min(to[a], mLayout->simMax[a] - half);
  }
  return to;
}

void CarryingFlow::TraceWays(const RowVectors& cells, double time, i32 order, i32 n,
                             RowVectors& ways) const {
  RowVectors velocity;
  SampleVelocity(mVelocity, cells, cells, 0.0, n, velocity);
  TraceRow(mVelocity, cells, velocity, time * mLayout->inverseCell, order, n, ways);
  for (i32 axis = 0; axis < 3; ++axis) {
    double* way = ways.axis[axis].v;
    const double* from = cells.axis[axis].v;
    for (i32 i = 0; i < n; ++i) way[i] -= from[i];
  }
}

bool CarryingFlow::Holds(const Vec3d& p) const {
  return mLayout->Contains(p, false) && !IsBehindOpenSide(p);
}

bool CarryingFlow::HoldsWithin(const Vec3d& p) const {
  if (!Holds(p)) return false;
  const Vec3d c = mLayout->ToCells(p);
  for (int a = 0; a < 3; ++a) {
    if ((mBoundary->mWalls & kLowWall[a]) && c[a] < 1) return false;
    if ((mBoundary->mWalls & kHighWall[a]) && c[a] >= mLayout->dims[a] - 1) return false;
  }
  return true;
}

bool CarryingFlow::IsOutside(const Vec3d& p) const {
  const Vec3d c = mLayout->ToCells(p);
  const u8 shut = mBoundary->mWalls | mFreeSides;
  for (int a = 0; a < 3; ++a) {
    if (!(shut & kLowWall[a]) && c[a] < 1) return true;
    if (!(shut & kHighWall[a]) && c[a] > mLayout->dims[a] - 1) return true;
  }
  return false;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
