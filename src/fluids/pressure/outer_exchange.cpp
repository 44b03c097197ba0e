// What passes between a container and the lattice round it.
#include <algorithm>

#include "fluids/pressure/outer_level.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void OuterLevel::Average(bool onlySides) {
  const VecInt3D inner = mLattice.InnerDims();
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<double>& velocity = *mFlow->mVelocity.GetGrid(axis);
    const EGrid<float>* fine = mFlow->GetOpenFaces(axis);
    if (!fine) return;
    VecInt3D count = inner;
    ++count[axis];
    ForEachBlock(count.z, Threads(), [&](i32 k) {
      ForEachCell({{0, 0, k}, {count.x, count.y, k + 1}}, [&](i32 i, i32 j, i32) {
        const VecInt3D cell{i, j, k};
        if (onlySides && cell[axis] > 0 && cell[axis] < inner[axis]) return;
        CellBox box;
        VecInt3D face;
        for (i32 a = 0; a < 3; ++a) {
          box.min[a] = mCuts[a][cell[a]];
          box.max[a] = a == axis ? box.min[a] + 1 : mCuts[a][cell[a] + 1];
          face[a] = mLattice[a].first + cell[a];
        }
        double area = 0, flow = 0;
        ForEachCell(box, [&](i32 x, i32 y, i32 z) {
          const i32 index = velocity.Index(x, y, z);
          const double open = (*fine)[index];
          area += open;
          flow += open * velocity[index];
        });
        (*mVelocity[axis])(face.x, face.y, face.z) = area > 0 ? flow / area : 0.0;
      });
    });
  }
}

void OuterLevel::SumInner(const ProjectionFields& fields, std::span<const double> rhs) {
  const VecInt3D inner = mLattice.InnerDims();
  mInner.assign(static_cast<std::size_t>(CountOf(inner)), 0.0);
  ForEachBlock(inner.z, Threads(), [&](i32 k) {
    double* layer = mInner.data() + i64{inner.x} * inner.y * k;
    for (i32 z = mCuts[2][k]; z < mCuts[2][k + 1]; ++z)
      for (i32 j = 0; j < inner.y; ++j)
        for (i32 y = mCuts[1][j]; y < mCuts[1][j + 1]; ++y) {
          const double* row = rhs.data() + fields.openCell->Index(0, y, z);
          for (i32 i = 0; i < inner.x; ++i)
            for (i32 x = mCuts[0][i]; x < mCuts[0][i + 1]; ++x) layer[j * inner.x + i] += row[x];
        }
  });
}

void OuterLevel::AverageDensity(const EGrid<double>& fine) {
  const VecInt3D n = mLattice.Dims(), inner = mLattice.InnerDims();
  if (!mMixture || !mMixture->mLayout.Equals(mVolume->mLayout))
    mMixture = std::make_unique<EGrid<double>>(mVolume->mLayout, kCentre);
  if (!mMixture->mData) return mMixture.reset();
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
      (*mMixture)(x, y, z) = count > 0 ? sum / count : 0.0;
    });
  });
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
