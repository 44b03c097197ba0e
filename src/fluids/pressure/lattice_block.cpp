#include "fluids/pressure/lattice_block.h"

#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void LatticeBlock::Place(const std::array<const AxisTaps*, 3>& taps) {
  for (i32 a = 0; a < 3; ++a) {
    mLow[a] = taps[a]->node[0];
    mSize[a] = taps[a]->node[3] + 1 - mLow[a];
  }
}

bool LatticeBlock::AnyOf(std::span<const u8> marks, const VecInt3D& dims) const {
  bool any = false;
  ForEachCell({mLow, mLow + mSize},
              [&](i32 x, i32 y, i32 z) { any |= marks[(dims.y * z + y) * dims.x + x] != 0; });
  return any;
}

void LatticeBlock::Fill(const LatticeField& field, i32 from) {
  mValue.fill(0);
  mIsKnown.fill(false);
  const VecInt3D n = field.lattice.Dims();
  if (from < 0 || field.diagonal[from] == 0) return;
  const VecInt3D at = VecInt3D{from % n.x, from / n.x % n.y, from / (n.x * n.y)} - mLow;
  if (Min(at, VecInt3D{}) != VecInt3D{} ||
      Max(at, mSize - VecInt3D{1, 1, 1}) != mSize - VecInt3D{1, 1, 1})
    return;
  Connect(field, at);
  while (ContinueAll(field)) {
  }
}

void LatticeBlock::Connect(const LatticeField& field, const VecInt3D& from) {
  const VecInt3D n = field.lattice.Dims();
  std::array<VecInt3D, kMost> stack;
  i32 count = 0;
  const auto take = [&](const VecInt3D& at) {
    const VecInt3D cell = at + mLow;
    const i32 index = (n.y * cell.z + cell.y) * n.x + cell.x, own = IndexOf(at);
    mIsKnown[own] = true;
    mValue[own] = field.values[index];
    // What lies beyond the lattice leads nowhere.
    if (field.diagonal[index] != 0) stack[count++] = at;
  };
  take(from);
  while (count > 0) {
    const VecInt3D at = stack[--count];
    for (i32 axis = 0; axis < 3; ++axis)
      for (const i32 step : {-1, 1}) {
        VecInt3D next = at;
        next[axis] += step;
        if (next[axis] < 0 || next[axis] >= mSize[axis] || mIsKnown[IndexOf(next)]) continue;
        const VecInt3D face = Max(at, next) + mLow;
        if ((*field.open[axis])(face.x, face.y, face.z) > 0) take(next);
      }
  }
}

/// A straight line, as pressure rises towards a wall, goes before what is merely near.
bool LatticeBlock::ContinueTo(const LatticeField& field, const VecInt3D& at, double& value) const {
  double lines = 0, nearest = 0;
  i32 lineCount = 0, nearCount = 0;
  for (i32 axis = 0; axis < 3; ++axis)
    for (const i32 step : {-1, 1}) {
      VecInt3D one = at, two = at;
      one[axis] += step, two[axis] += 2 * step;
      if (one[axis] < 0 || one[axis] >= mSize[axis] || !mIsKnown[IndexOf(one)]) continue;
      const double near = mValue[IndexOf(one)];
      nearest += near, ++nearCount;
      if (two[axis] < 0 || two[axis] >= mSize[axis] || !mIsKnown[IndexOf(two)]) continue;
      const OuterAxis& cut = field.lattice[axis];
      const auto place = [&](const VecInt3D& cell) {
        return cut.CentreOf(cell[axis] + mLow[axis]);
      };
      const double slope = (near - mValue[IndexOf(two)]) / (place(one) - place(two));
      lines += near + slope * (place(at) - place(one)), ++lineCount;
    }
  if (nearCount == 0) return false;
  value = lineCount > 0 ? lines / lineCount : nearest / nearCount;
  return true;
}

bool LatticeBlock::ContinueAll(const LatticeField& field) {
  std::array<i32, kMost> found;
  std::array<double, kMost> values;
  i32 count = 0;
  ForEachCell({{0, 0, 0}, mSize}, [&](i32 x, i32 y, i32 z) {
    const VecInt3D at{x, y, z};
    if (mIsKnown[IndexOf(at)] || !ContinueTo(field, at, values[count])) return;
    found[count++] = IndexOf(at);
  });
  for (i32 i = 0; i < count; ++i) {
    mIsKnown[found[i]] = true;
    mValue[found[i]] = values[i];
  }
  return count > 0;
}

double LatticeBlock::Sample(const std::array<const AxisTaps*, 3>& taps) const {
  double sum = 0;
  for (i32 k = 0; k < 4; ++k)
    for (i32 j = 0; j < 4; ++j) {
      double line = 0;
      for (i32 i = 0; i < 4; ++i)
        line +=
            taps[0]->weight[i] *
            mValue[IndexOf(VecInt3D{taps[0]->node[i], taps[1]->node[j], taps[2]->node[k]} - mLow)];
      sum += taps[1]->weight[j] * taps[2]->weight[k] * line;
    }
  return sum;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
