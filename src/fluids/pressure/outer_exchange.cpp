// What passes between a container and the lattice round it.
#include <algorithm>
#include <cmath>

#include "fluids/pressure/outer_level.h"
#include "fluids/pressure/projection_kernels.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The faces of strays lie between other cells of the lattice than those that they stand in.
void OuterLevel::FindMovedFaces() {
  const VecInt3D fine = mFlow->GetLayout()->dims, n = mLattice.Dims();
  for (i32 axis = 0; axis < 3; ++axis) mMovedOut[axis].clear(), mMovedIn[axis].clear();
  mShut.clear();
  const auto placeOf = [&](i32 cell) {
    return VecInt3D{cell % n.x, cell / n.x % n.y, cell / (n.x * n.y)};
  };
  const auto addFace = [&](const OuterOwners::Stray& stray, i32 axis, bool high) {
    const VecInt3D face = stray.at + (high ? ExtraOf(axis) : VecInt3D{});
    const VecInt3D next = stray.at + (high ? ExtraOf(axis) : -ExtraOf(axis));
    const i32 index = mFlow->GetOpenFaces(axis)->Index(face.x, face.y, face.z);
    if (!((*mFlow->GetOpenFaces(axis))[index] > 0)) return;
    mMovedOut[axis].push_back(index);
    if (stray.owner == OuterOwners::kNone) return;
    const VecInt3D own = placeOf(stray.owner);
    VecInt3D other;
    if (next[axis] == 0 || next[axis] == fine[axis] - 1) {
      if (own[axis] != (high ? mLattice[axis].last - 1 : mLattice[axis].first) ||
          !mLattice.IsInnerCell(own.x, own.y, own.z)) {
        mShut.push_back({static_cast<i32>(&stray - mOwners.Strays().data()), axis, index, high});
        return;
      }
      other = own + (next - stray.at);
    } else {
      const i32 owner = mOwners.OwnerOf(next);
      if (owner < 0) return;
      other = placeOf(owner);
    }
    const VecInt3D way = other - own;
    if (std::abs(way.x) + std::abs(way.y) + std::abs(way.z) != 1) return;
    const i32 along = way.x != 0 ? 0 : way.y != 0 ? 1 : 2;
    const VecInt3D between = Max(own, other);
    mMovedIn[along].push_back(
        {mVelocity[along]->Index(between.x, between.y, between.z), axis, index});
  };
  for (const OuterOwners::Stray& stray : mOwners.Strays())
    for (i32 axis = 0; axis < 3; ++axis) addFace(stray, axis, false), addFace(stray, axis, true);
  for (i32 axis = 0; axis < 3; ++axis) {
    // A face between two strays was met from both.
    const auto sort = [](auto& list) {
      std::sort(list.begin(), list.end());
      list.erase(std::unique(list.begin(), list.end()), list.end());
    };
    sort(mMovedOut[axis]);
    sort(mMovedIn[axis]);
  }
}

template <class F>
OuterLevel::FaceSum OuterLevel::SumFace(i32 axis, const VecInt3D& cell, F&& speedAt) const {
  const EGrid<float>& open = *mFlow->GetOpenFaces(axis);
  CellBox box;
  for (i32 a = 0; a < 3; ++a) {
    box.min[a] = mCuts[a][cell[a]];
    box.max[a] = a == axis ? box.min[a] + 1 : mCuts[a][cell[a] + 1];
  }
  const std::vector<i32>& out = mMovedOut[axis];
  FaceSum sum;
  ForEachCell(box, [&](i32 x, i32 y, i32 z) {
    const i32 index = open.Index(x, y, z);
    if (!out.empty() && std::binary_search(out.begin(), out.end(), index)) return;
    sum.area += open[index];
    sum.flow += open[index] * speedAt(index);
  });
  sum.along = sum.area;
  AddMovedIn(axis, cell, speedAt, sum);
  return sum;
}

/// Adds the fine faces that strays bring to a face of the lattice.
template <class F>
void OuterLevel::AddMovedIn(i32 axis, const VecInt3D& cell, F&& speedAt, FaceSum& sum) const {
  const std::vector<MovedFace>& in = mMovedIn[axis];
  if (in.empty()) return;
  const VecInt3D face = mLattice.InnerFace(cell);
  const i32 own = mVelocity[axis]->Index(face.x, face.y, face.z);
  for (auto moved = std::lower_bound(in.begin(), in.end(), MovedFace{own, 0, 0});
       moved != in.end() && moved->face == own; ++moved) {
    const double area = (*mFlow->GetOpenFaces(moved->axis))[moved->index];
    sum.area += area;
    if (moved->axis != axis) continue;
    sum.along += area;
    sum.flow += area * speedAt(moved->index);
  }
}

OuterLevel::FaceSum OuterLevel::SumFace(i32 axis, const VecInt3D& cell) const {
  const EGrid<double>& velocity = *mFlow->mVelocity.GetGrid(axis);
  return SumFace(axis, cell, [&](i32 index) { return velocity[index]; });
}

/// Row by row, as they lie in memory: adds a row of fine faces to the faces of the lattice that it
/// crosses.
template <bool kFlows>
void OuterLevel::AddFaceRow(i32 axis, i32 row, FaceSum* sums) const {
  const EGrid<float>& open = *mFlow->GetOpenFaces(axis);
  const float* part = open.mData + row;
  const double* speed = mFlow->mVelocity.GetGrid(axis)->mData + row;
  const std::vector<i32>& out = mMovedOut[axis];
  const auto moved = std::lower_bound(out.begin(), out.end(), row);
  const bool isWhole = moved == out.end() || *moved >= row + open.mNx;
  const i32 count = mLattice.InnerDims().x + (axis == 0 ? 1 : 0);
  for (i32 i = 0; i < count; ++i) {
    const i32 last = axis == 0 ? mCuts[0][i] + 1 : mCuts[0][i + 1];
    double area = sums[i].area, flow = sums[i].flow;
    for (i32 x = mCuts[0][i]; x < last; ++x) {
      if (!isWhole && std::binary_search(moved, out.end(), row + x)) continue;
      area += part[x];
      if constexpr (kFlows) flow += part[x] * speed[x];
    }
    sums[i].area = area;
    sums[i].flow = flow;
  }
}

/// The same as `SumFace` for all faces of a layer of the lattice, x counting fastest, the flows if
/// they are asked for.
std::vector<OuterLevel::FaceSum> OuterLevel::SumLayer(i32 axis, i32 k, bool flows) const {
  const EGrid<float>& open = *mFlow->GetOpenFaces(axis);
  const VecInt3D count = mLattice.InnerDims() + ExtraOf(axis);
  std::vector<FaceSum> sums(static_cast<std::size_t>(count.x) * count.y);
  const i32 high = axis == 2 ? mCuts[2][k] + 1 : mCuts[2][k + 1];
  for (i32 z = mCuts[2][k]; z < high; ++z)
    for (i32 j = 0; j < count.y; ++j) {
      const i32 end = axis == 1 ? mCuts[1][j] + 1 : mCuts[1][j + 1];
      for (i32 y = mCuts[1][j]; y < end; ++y) {
        FaceSum* own = sums.data() + i64{count.x} * j;
        const i32 row = open.Index(0, y, z);
        flows ? AddFaceRow<true>(axis, row, own) : AddFaceRow<false>(axis, row, own);
      }
    }
  const EGrid<double>& velocity = *mFlow->mVelocity.GetGrid(axis);
  ForEachCell({{0, 0, k}, {count.x, count.y, k + 1}}, [&](i32 i, i32 j, i32) {
    FaceSum& sum = sums[i64{count.x} * j + i];
    sum.along = sum.area;
    AddMovedIn(
        axis, {i, j, k}, [&](i32 index) { return velocity[index]; }, sum);
  });
  return sums;
}

void OuterLevel::Average(bool onlySides) {
  const VecInt3D inner = mLattice.InnerDims();
  for (i32 axis = 0; axis < 3; ++axis) {
    const VecInt3D count = inner + ExtraOf(axis);
    ForEachBlock(count.z, Threads(), [&](i32 k) {
      const std::vector<FaceSum> all = onlySides ? std::vector<FaceSum>() : SumLayer(axis, k, true);
      ForEachCell({{0, 0, k}, {count.x, count.y, k + 1}}, [&](i32 i, i32 j, i32) {
        const VecInt3D cell{i, j, k}, face = mLattice.InnerFace(cell);
        if (onlySides && cell[axis] > 0 && cell[axis] < inner[axis]) return;
        const FaceSum sum = onlySides ? SumFace(axis, cell) : all[i64{count.x} * j + i];
        (*mVelocity[axis])(face.x, face.y, face.z) = sum.along > 0 ? sum.flow / sum.along : 0.0;
      });
    });
  }
}

/// Cells that no gas is known of count as the mean of all.
void OuterLevel::AverageDensity(const ProjectionFields& fields) {
  mReference = mDensity;
  for (i32 axis = 0; axis < 3; ++axis)
    if (!fields.density[axis] || !AverageDensity(*fields.density[axis], mMixture[axis])) {
      mMixture = {};
      return;
    }
  double sum = 0;
  i64 count = 0;
  const EGrid<double>& any = *mMixture[2];
  for (i32 i = 0; i < any.mCount; ++i)
    if (any[i] > 0) sum += any[i], ++count;
  if (count > 0) mReference = sum / static_cast<double>(count);
  for (auto& mixture : mMixture)
    for (i32 i = 0; i < mixture->mCount; ++i)
      if (!((*mixture)[i] > 0)) (*mixture)[i] = mReference;
}

/// What is taken out of the faces on the sides as they are fine is the mean of that, not what the
/// mean of the density would make of it.
void OuterLevel::MatchSides(const ProjectionFields& fields) {
  if (!mMixture[2] || mUniform == Vec3d{}) return;
  const VecInt3D inner = mLattice.InnerDims(), n = mLattice.Dims(), fine = fields.openCell->Dims();
  const VecInt3D steps{1, n.x, n.x * n.y}, fineSteps{1, fine.x, fine.x * fine.y};
  const VariableDensity fineLaw{
      mReference, {fields.density[0]->mData, fields.density[1]->mData, fields.density[2]->mData}};
  const VariableDensity law{mReference,
                            {mMixture[0]->mData, mMixture[1]->mData, mMixture[2]->mData}};
  for (i32 axis = 0; axis < 3; ++axis) {
    const VecInt3D faces = fine + ExtraOf(axis);
    const auto shareAt = [&, along = fineLaw.Along(axis)](i32 index) {
      const VecInt3D at{index % faces.x, index / faces.x % faces.y, index / (faces.x * faces.y)};
      const i32 cell = Dot(at, fineSteps);
      return along(cell, cell - fineSteps[axis]);
    };
    for (const bool high : {false, true}) {
      if (!IsFree(axis, high)) continue;
      CellBox side{{0, 0, 0}, inner};
      side.min[axis] = high ? inner[axis] : 0;
      side.max[axis] = side.min[axis] + 1;
      ForEachCell(side, [&](i32 i, i32 j, i32 k) {
        const FaceSum sum = SumFace(axis, {i, j, k}, shareAt);
        if (!(sum.along > 0)) return;
        const VecInt3D face = mLattice.InnerFace({i, j, k});
        const i32 cell = Dot(face, steps);
        (*mVelocity[axis])(face.x, face.y, face.z) +=
            mUniform[axis] * (law.Along(axis)(cell, cell - steps[axis]) - sum.flow / sum.along);
      });
    }
  }
}

bool OuterLevel::AverageDensity(const EGrid<double>& fine,
                                std::unique_ptr<EGrid<double>>& mixture) const {
  const VecInt3D n = mLattice.Dims(), inner = mLattice.InnerDims();
  if (!mixture || !mixture->mLayout.Equals(mVolume->mLayout))
    mixture = std::make_unique<EGrid<double>>(mVolume->mLayout, kCentre);
  if (!mixture->mData) return false;
  ForEachBlock(n.z, Threads(), [&](i32 z) {
    ForEachCell({{0, 0, z}, {n.x, n.y, z + 1}}, [&](i32 x, i32 y, i32) {
      // Outside it is as at the nearest side.
      const VecInt3D cell{x, y, z};
      CellBox box;
      for (i32 a = 0; a < 3; ++a) {
        const i32 i = std::clamp(cell[a] - mLattice[a].first, 0, inner[a] - 1);
        const bool isBelow = cell[a] < mLattice[a].first, isAbove = cell[a] >= mLattice[a].last;
        box.min[a] = isAbove ? mCuts[a][i + 1] - 1 : mCuts[a][i];
        box.max[a] = isBelow ? mCuts[a][i] + 1 : mCuts[a][i + 1];
      }
      double sum = 0;
      i32 count = 0;
      ForEachCell(box, [&](i32 i, i32 j, i32 k) {
        const double density = fine(i, j, k);
        if (density > 0) sum += density, ++count;
      });
      (*mixture)(x, y, z) = count > 0 ? sum / count : 0.0;
    });
  });
  return true;
}

void OuterLevel::Sample(i32 axis, const CellBox& box, bool onlyOpen) {
  if (box.IsEmpty()) return;
  EGrid<double>& fine = *mFlow->mVelocity.GetGridForWrite(axis);
  const EGrid<float>* open = onlyOpen ? mFlow->GetOpenFaces(axis) : nullptr;
  LatticeTaps taps;
  for (i32 a = 0; a < 3; ++a)
    taps[a] = mLattice.TapsOf(a, axis, fine.mLayout.originCell[a], {box.min[a], box.max[a]});
  Resample(mVelocity[axis]->mData, mVelocity[axis]->Dims(), taps, Threads(),
           [&](i32 x, i32 y, i32 z, double value) {
             const i32 index = fine.Index(box.min.x + x, box.min.y + y, box.min.z + z);
             if (!open || (*open)[index] > 0) fine[index] = value;
           });
}

void OuterLevel::Continue(const GridLayout& before) {
  if (!HasFlow() || mVelocity[0]->mLayout.cellSize != before.cellSize) return;
  const GridLayout& layout = *mFlow->GetLayout();
  for (i32 axis = 0; axis < 3; ++axis) {
    const VecInt3D n = layout.dims + ExtraOf(axis);
    CellBox old = Clip({before.originCell - layout.originCell,
                        before.originCell - layout.originCell + before.dims + ExtraOf(axis)},
                       {0, 0, 0}, n);
    CellBox rest{{0, 0, 0}, n};
    if (old.IsEmpty()) {
      Sample(axis, rest, false);
      continue;
    }
    for (i32 a = 2; a >= 0; --a) {
      CellBox below = rest, above = rest;
      below.max[a] = rest.min[a] = old.min[a];
      above.min[a] = rest.max[a] = old.max[a];
      Sample(axis, below, false);
      Sample(axis, above, false);
    }
  }
}

void OuterLevel::WriteSides() {
  for (i32 axis = 0; axis < 3; ++axis)
    for (const bool high : {false, true}) {
      if (!IsFree(axis, high)) continue;
      for (i32 component = 0; component < 3; ++component) {
        CellBox box{{0, 0, 0}, mFlow->GetLayout()->dims + ExtraOf(component)};
        for (i32 a = 0; a < 3; ++a) {
          if (a == axis) continue;
          // Where such a side meets one of the user's box, that one rules.
          box.min[a] += IsFree(a, false) ? 0 : 1;
          box.max[a] -= IsFree(a, true) ? 0 : 1;
        }
        (high ? box.min : box.max)[axis] = high ? box.max[axis] - 1 : 1;
        Sample(component, box, true);
      }
    }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
