// What solids and walls leave open of the lattice round a container.
#include <algorithm>
#include <cmath>

#include "fluids/pressure/outer_level.h"
#include "fluids/volume/thin_walls.h"
#include "fluids/volume/volume_base.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// The bits of `kHighWall` and `kLowWall` of an axis.
u8 BitOf(i32 axis, bool high) { return (high ? kHighWall : kLowWall)[axis]; }

}  // namespace

/// Calls f(face) for the faces of an axis that aren't inner ones.
template <class F>
void OuterLevel::ForEachOutsideFaceOf(i32 axis, F&& f) const {
  const VecInt3D n = mVelocity[axis]->Dims();
  ForEachBlock(n.z, Threads(), [&](i32 layer) {
    ForEachCell({{0, 0, layer}, {n.x, n.y, layer + 1}}, [&](i32 x, i32 y, i32 z) {
      if (!mLattice.IsInnerFace(axis, {x, y, z})) f(VecInt3D{x, y, z});
    });
  });
}

bool OuterLevel::EndsAtWall(i32 axis, bool high) const {
  const std::vector<double>& lines = mLattice[axis].lines;
  if (!(mWalls & BitOf(axis, high))) return false;
  return high ? lines[lines.size() - 2] >= mHigh[axis] : lines[1] <= mLow[axis];
}

float OuterLevel::OpenOutside(i32 axis, const VecInt3D& face) const {
  const VecInt3D n = mLattice.Dims();
  if (face[axis] == 0 || face[axis] == n[axis]) return 0;
  for (i32 a = 0; a < 3; ++a)
    if (a != axis && (face[a] == 0 || face[a] == n[a] - 1)) return 0;
  if (face[axis] == 1 && EndsAtWall(axis, false)) return 0;
  if (face[axis] == n[axis] - 1 && EndsAtWall(axis, true)) return 0;
  double most = 0;
  for (const VolumeBase* obstacle : mFlow->mBoundary.mObstacles)
    if (obstacle->Has(FLAG_ENABLED) && obstacle->HasGridData() && !obstacle->IsSheet())
      most = std::max(most, SolidPart(*obstacle, axis, face));
  return static_cast<float>((1 - most) * mLattice.AreaOf(axis, face) /
                            mLattice[axis].DistanceAt(face[axis]));
}

namespace {

/// On a way through planes from `first` to `last`, a wall stands between the centres `low` and
/// `high` of two cells, with open space on both of its sides.
template <class Open>
bool IsParted(i32 first, i32 last, double low, double high, Open&& open) {
  i32 closedFrom = -1;  // after an open plane
  bool seenOpen = false;
  for (i32 plane = first; plane <= last; ++plane) {
    if (!open(plane)) {
      if (seenOpen && closedFrom < 0) closedFrom = plane;
      continue;
    }
    const double middle = 0.5 * (closedFrom + plane - 1);
    if (closedFrom >= 0 && middle >= low && middle < high) return true;
    closedFrom = -1;
    seenOpen = true;
  }
  return false;
}

}  // namespace

/// How many of the straight ways across a face an obstacle closes, as a share.
double OuterLevel::SolidPart(const VolumeBase& obstacle, i32 axis, const VecInt3D& face) const {
  constexpr i32 kPoints = 4, kMostPlanes = 16;
  const double h = mFlow->GetLayout()->cellSize;
  const GridLayout& box = obstacle.GetGrid()->mLayout;
  const std::vector<double>& lines = mLattice[axis].lines;
  Vec3d low, high;
  for (i32 a = 0; a < 3; ++a) {
    low[a] = mLattice[a].lines[face[a] - (a == axis ? 1 : 0)];
    high[a] = mLattice[a].lines[face[a] + 1];
    if (low[a] * h >= box.simMax[a] || high[a] * h < box.simOrigin[a]) return 0;
  }
  const double size = high[axis] - low[axis];
  const i32 planes = std::clamp(static_cast<i32>(std::ceil(size)), 2, kMostPlanes);
  const auto planeOf = [&](i32 cell) {
    return (mLattice[axis].CentreOf(cell) - low[axis]) / size * planes;
  };
  const i32 p = axis == 0 ? 1 : 0, q = axis == 2 ? 1 : 2;
  i32 closed = 0;
  for (i32 i = 0; i < kPoints * kPoints; ++i) {
    Vec3d at;
    at[p] = low[p] + (high[p] - low[p]) * (i % kPoints + 0.5) / kPoints;
    at[q] = low[q] + (high[q] - low[q]) * (i / kPoints + 0.5) / kPoints;
    const auto isOpen = [&](double along) {
      at[axis] = along;
      return !obstacle.IsInBounds(at * h) || !(obstacle.DistanceAtWorld(at * h) < 0);
    };
    closed += !isOpen(lines[face[axis]]) ||
              IsParted(0, planes, planeOf(face[axis] - 1), planeOf(face[axis]),
                       [&](i32 plane) { return isOpen(low[axis] + size * plane / planes); });
  }
  return closed / double{kPoints * kPoints};
}

void OuterLevel::FindOwners() {
  const GridLayout& layout = *mFlow->GetLayout();
  OwnerSearch search;
  search.lattice = &mLattice;
  search.cuts = &mCuts;
  search.origin = layout.originCell;
  search.freeSides = mFree;
  search.threads = Threads();
  for (i32 axis = 0; axis < 3; ++axis) search.open[axis] = mFlow->GetOpenFaces(axis);
  for (const VolumeBase* obstacle : mFlow->mBoundary.mObstacles) {
    if (!obstacle->Has(FLAG_ENABLED) || !obstacle->HasGridData()) continue;
    const GridLayout& own = obstacle->GetGrid()->mLayout;
    const VecInt3D low = own.originCell - layout.originCell;
    search.solids.push_back({low, low + own.dims});
    if (const ThinWalls* walls = obstacle->GetThinWalls())
      search.walls.push_back({walls, own.originCell});
  }
  mOwners.Find(search);
  FindMovedFaces();
}

/// What fine faces leave open between the cells that those on both of their sides belong to.
void OuterLevel::MeasureInner() {
  const VecInt3D inner = mLattice.InnerDims();
  for (i32 axis = 0; axis < 3; ++axis) {
    const VecInt3D count = inner + ExtraOf(axis);
    ForEachBlock(count.z, Threads(), [&](i32 k) {
      const std::vector<FaceSum> all = SumLayer(axis, k, false);
      ForEachCell({{0, 0, k}, {count.x, count.y, k + 1}}, [&](i32 i, i32 j, i32) {
        const VecInt3D face = mLattice.InnerFace({i, j, k});
        (*mOpen[axis])(face.x, face.y, face.z) = static_cast<float>(
            all[i64{count.x} * j + i].area / mLattice[axis].DistanceAt(face[axis]));
      });
    });
  }
}

/// A sheet, or a wall that lies between two centres, closes the face between these as far as it
/// reaches over it, though it doesn't touch it, and all of it where it stands on the straight way
/// between them and is no mere splinter. So of two cells that no face leads from one to the other
/// none is reached round the corner of a wall that stands askew.
void OuterLevel::CloseThinWalls() {
  constexpr double kSplinter = 0.125;  // of a face
  std::array<std::vector<double>, 3> closed;
  std::array<std::vector<u8>, 3> isCrossed;
  std::array<std::vector<double>, 3> centres;
  for (i32 a = 0; a < 3; ++a) centres[a] = mLattice.NodesOf(a, kCentre);
  const auto below = [](const std::vector<double>& places, double place) {
    return static_cast<i32>(std::upper_bound(places.begin(), places.end(), place) - places.begin());
  };
  for (const VolumeBase* obstacle : mFlow->mBoundary.mObstacles) {
    const ThinWalls* walls = obstacle->Has(FLAG_ENABLED) ? obstacle->GetThinWalls() : nullptr;
    if (!walls) continue;
    for (const ThinWalls::Face& fine : walls->Faces()) {
      const VecInt3D at = fine.at + obstacle->GetGrid()->mLayout.originCell;
      VecInt3D face;
      bool isThere = true, isCentral = true;
      for (i32 a = 0; a < 3; ++a) {
        face[a] =
            a == fine.axis ? below(centres[a], at[a]) : below(mLattice[a].lines, at[a] + 0.5) - 1;
        isThere &= face[a] > 0 && face[a] < mLattice.Dims()[a];
        isCentral &=
            a == fine.axis || (isThere && OuterLattice::CellHolding(centres[a][face[a]]) == at[a]);
      }
      if (!isThere || !IsBesideOutside(fine.axis, face, at[fine.axis])) continue;
      const EGrid<float>& grid = *mOutside[fine.axis];
      std::vector<double>& sum = closed[fine.axis];
      sum.resize(grid.mCount);
      isCrossed[fine.axis].resize(grid.mCount);
      const i32 index = grid.Index(face.x, face.y, face.z);
      sum[index] += 1;
      isCrossed[fine.axis][index] |= isCentral ? 1 : 0;
    }
  }
  for (i32 axis = 0; axis < 3; ++axis) {
    if (closed[axis].empty()) continue;
    const VecInt3D n = mVelocity[axis]->Dims();
    ForEachBlock(n.z, Threads(), [&](i32 layer) {
      ForEachCell({{0, 0, layer}, {n.x, n.y, layer + 1}}, [&](i32 x, i32 y, i32 z) {
        const i32 i = mOutside[axis]->Index(x, y, z);
        if (closed[axis][i] == 0) return;
        const double part = closed[axis][i] / mLattice.AreaOf(axis, {x, y, z});
        const bool isShut = part >= 1 || (isCrossed[axis][i] && part > kSplinter);
        const auto open = static_cast<float>(isShut ? 0 : 1 - part);
        (*mOpen[axis])[i] *= open;
        (*mOutside[axis])[i] *= open;
      });
    });
  }
}

/// A face of the lattice isn't an inner one, or it is one on a side of the container and a plane
/// of the domain crosses the way from there to the centre outside.
bool OuterLevel::IsBesideOutside(i32 axis, const VecInt3D& face, i32 plane) const {
  if (!mLattice.IsInnerFace(axis, face)) return true;
  const OuterAxis& cut = mLattice[axis];
  return (face[axis] == cut.first && plane < cut.lines[cut.first]) ||
         (face[axis] == cut.last && plane > cut.lines[cut.last]);
}

/// Cells that samples beside them have to look at more closely: those at the end of the lattice, in
/// solids, and beside closed faces.
void OuterLevel::MarkCutCells() {
  const VecInt3D n = mLattice.Dims();
  mIsCut.assign(static_cast<std::size_t>(CountOf(n)), 0);
  ForEachBlock(n.z, Threads(), [&](i32 layer) {
    ForEachCell({{0, 0, layer}, {n.x, n.y, layer + 1}}, [&](i32 x, i32 y, i32 z) {
      const VecInt3D cell{x, y, z};
      bool isCut = false;
      for (i32 axis = 0; axis < 3; ++axis) {
        const VecInt3D above = cell + ExtraOf(axis);
        isCut |= cell[axis] == 0 || cell[axis] == n[axis] - 1;
        isCut |= cell[axis] > 1 && !((*mOpen[axis])(x, y, z) > 0);
        isCut |= cell[axis] < n[axis] - 2 && !((*mOpen[axis])(above.x, above.y, above.z) > 0);
      }
      mIsCut[(n.y * z + y) * n.x + x] = isCut ? 1 : 0;
    });
  });
}

Vec3d OuterLevel::PlaceOf(const VecInt3D& cell) const {
  Vec3d place;
  for (i32 a = 0; a < 3; ++a) place[a] = mLattice[a].CentreOf(cell[a]);
  const GridLayout& layout = *mFlow->GetLayout();
  return place * double{layout.cellSize} * layout.simToWorld;
}

void OuterLevel::MeasureOpen() {
  const VecInt3D n = mLattice.Dims();
  ForEachBlock(n.z, Threads(), [&](i32 layer) {
    ForEachCell({{0, 0, layer}, {n.x, n.y, layer + 1}}, [&](i32 x, i32 y, i32 z) {
      (*mVolume)(x, y, z) = static_cast<float>(mLattice.VolumeOf({x, y, z}));
    });
  });
  for (i32 axis = 0; axis < 3; ++axis) {
    mOutside[axis]->Fill(0);
    ForEachOutsideFaceOf(axis, [&](const VecInt3D& face) {
      const float open = OpenOutside(axis, face);
      (*mOpen[axis])(face.x, face.y, face.z) = (*mOutside[axis])(face.x, face.y, face.z) = open;
    });
  }
  for (i32 a = 0; a < 3; ++a) {
    mCuts[a].clear();
    for (i32 line = mLattice[a].first; line <= mLattice[a].last; ++line)
      mCuts[a].push_back(static_cast<i32>(mLattice[a].lines[line]) -
                         mFlow->GetLayout()->originCell[a]);
  }
  FindOwners();
  MeasureInner();
  CloseThinWalls();
  MarkCutCells();
  Average(false);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
