#include "fluids/pressure/viscous_level.h"

#include <algorithm>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// No eigenvalue of D^-1 A is larger: a term of the energy has at most four faces.
constexpr float kLargest = 4;

/// The coarse samples about a fine one along an axis, and their weights: faces across that axis
/// stand on each other at every second one, others in the quarters of a coarse one.
struct Taps {
  i32 at[2];
  float weight[2];
  Taps(i32 fine, bool isAcross) {
    if (isAcross) {
      at[0] = fine >> 1, at[1] = (fine + 1) >> 1;
      weight[0] = weight[1] = 0.5F;
    } else {
      at[0] = fine >> 1, at[1] = at[0] + (fine & 1 ? 1 : -1);
      weight[0] = 0.75F, weight[1] = 0.25F;
    }
  }
};

/// The fine samples that a coarse one is a tap of.
struct Sources {
  i32 first, count;
  float weight[4];
  Sources(i32 coarse, bool isAcross, i32 last) {
    first = 2 * coarse - 1;
    if (isAcross) {
      count = 3;
      weight[0] = weight[2] = 0.5F, weight[1] = 1;
    } else {
      count = 4;
      weight[0] = weight[3] = 0.25F, weight[1] = weight[2] = 0.75F;
    }
    count = std::min(count, last - first + 1);
  }
};

}  // namespace

bool ViscousLevel::Fit(const VecInt3D& cells, i32 threads) {
  mCells = cells;
  mDims = cells + VecInt3D{3, 3, 3};
  if (!mCoefficients.Resize(Count()) || !mVectors.Resize(Count())) return false;
  const i64 layer = i64{mDims.x} * mDims.y;
  for (auto& roles : mRoles) roles.resize(Count());
  ForEachBlock(mDims.z, threads, [&](i32 z) {
    for (i32 a = 0; a < kCoefficients; ++a) std::fill_n(mCoefficients[a] + z * layer, layer, 0.0F);
    for (i32 a = 0; a < kVectors; ++a) std::fill_n(mVectors[a] + z * layer, layer, 0.0F);
    for (auto& roles : mRoles) std::fill_n(roles.begin() + z * layer, layer, FaceRole::Outside);
  });
  mRows.assign(static_cast<std::size_t>(mDims.y) * mDims.z, {});
  mEntries.resize(mDims.z);
  for (auto& entries : mEntries) entries.clear();
  mCurrent = kFirst;
  return true;
}

void ViscousLevel::Free() {
  mCoefficients.Free();
  mVectors.Free();
  mRoles = {};
  mRows = {};
  mEntries = {};
}

ViscousRow ViscousLevel::RowAt(i32 first) const {
  ViscousRow row{{}, {}, {}, {}, Step(1), Step(2)};
  for (i32 axis = 0; axis < 3; ++axis) {
    row.cell[axis] = Cell(axis) + first;
    row.edge[axis] = mCoefficients[kEdge + axis] + first;
    row.mass[axis] = mCoefficients[kMass + axis] + first;
    row.inverse[axis] = mCoefficients[kInverse + axis] + first;
  }
  return row;
}

void ViscousLevel::Close(i32 threads) {
  ForEachBlock(mDims.z - 2, threads, [&](i32 block) {
    const i32 layer = block + 1, n = mDims.x - 2;
    for (i32 y = 1; y < mDims.y - 1; ++y) {
      IndexRange& range = mRows[layer * mDims.y + y] = {mDims.x, 0};
      const i32 first = (layer * mDims.y + y) * mDims.x + 1;
      for (i32 axis = 0; axis < 3; ++axis) {
        float* inverse = mCoefficients[kInverse + axis] + first;
        InvertRow(RowAt(first), axis, inverse, n);
        FaceRole* role = mRoles[axis].data() + first;
        for (i32 i = 0; i < n; ++i) {
          if (role[i] != FaceRole::Unknown) inverse[i] = 0;
          if (inverse[i] == 0) {
            if (role[i] == FaceRole::Unknown) role[i] = FaceRole::Outside;
            continue;
          }
          range.first = std::min(range.first, i + 1);
          range.last = i + 2 > range.last ? i + 2 : range.last;
        }
      }
    }
  });
}

// ---- the next level ---------------------------------------------------------------------------

/// Unknown with an unknown among the four faces in it, else fixed with a fixed one, so that walls
/// stay where they are.
FaceRole ViscousLevel::RoleOfCoarse(i32 axis, const VecInt3D& at) const {
  bool isFixed = false;
  VecInt3D high = at * 2 + VecInt3D{1, 1, 1};
  high[axis] -= 1;
  for (i32 z = 2 * at.z; z <= std::min(high.z, mCells.z + 1); ++z)
    for (i32 y = 2 * at.y; y <= std::min(high.y, mCells.y + 1); ++y)
      for (i32 x = 2 * at.x; x <= std::min(high.x, mCells.x + 1); ++x) {
        const FaceRole role = Role(axis, Index(x, y, z));
        if (role == FaceRole::Unknown) return role;
        isFixed |= role == FaceRole::Fixed;
      }
  return isFixed ? FaceRole::Fixed : FaceRole::Outside;
}

void ViscousLevel::FindRoles(ViscousLevel& coarse, i32 z) const {
  for (i32 y = 0; y <= coarse.mCells.y; ++y)
    for (i32 x = 0; x <= coarse.mCells.x; ++x)
      for (i32 axis = 0; axis < 3; ++axis)
        coarse.Role(axis, coarse.Index(x, y, z)) = RoleOfCoarse(axis, {x, y, z});
}

/// The sum of f(fine sample) over what a coarse volume holds: along axes across which its sample
/// lies, half of what is to both sides of it; along others, two.
template <class F>
float ViscousLevel::SumOf(const VecInt3D& at, const VecInt3D& isAcross, F&& f) const {
  VecInt3D low, high;
  for (int a = 0; a < 3; ++a) {
    low[a] = 2 * at[a] - isAcross[a];
    high[a] = std::min(2 * at[a] + 1, mCells[a] + 1);
  }
  float sum = 0;
  for (i32 z = low.z; z <= high.z; ++z)
    for (i32 y = low.y; y <= high.y; ++y) {
      const float weight =
          (isAcross.z && z != 2 * at.z ? 0.5F : 1.0F) * (isAcross.y && y != 2 * at.y ? 0.5F : 1.0F);
      for (i32 x = low.x; x <= high.x; ++x)
        sum += (isAcross.x && x != 2 * at.x ? 0.5F : 1.0F) * weight * f(Index(x, y, z));
    }
  return sum;
}

/// Differences over twice the distance in eight times the volume: terms of the energy that are a
/// quarter of the sum. Where a face of a term is missing, the term is left out: as a face at rest
/// it would hold what is free. What a fixed face holds counts with the mass of the one that it
/// holds, since the coarse one in its place may be free.
void ViscousLevel::SumLayer(ViscousLevel& coarse, i32 z) const {
  const auto isThere = [&](i32 axis, i32 i) { return coarse.Role(axis, i) != FaceRole::Outside; };
  for (i32 y = 0; y <= coarse.mCells.y; ++y)
    for (i32 x = 0; x <= coarse.mCells.x; ++x) {
      const i32 i = coarse.Index(x, y, z);
      const VecInt3D at{x, y, z};
      for (i32 axis = 0; axis < 3; ++axis) {
        const i32 step = Step(axis), p = axis == 0 ? 1 : 0, q = axis == 2 ? 1 : 2;
        const float *cell = Cell(axis), *mass = mCoefficients[kMass + axis],
                    *edge = mCoefficients[kEdge + axis];
        const FaceRole* role = mRoles[axis].data();
        if (coarse.Role(axis, i) == FaceRole::Unknown)
          coarse.mCoefficients[kMass + axis][i] = SumOf(at, ExtraOf(axis), [&](i32 k) {
            if (role[k] != FaceRole::Unknown) return 0.0F;
            return mass[k] + (role[k - step] == FaceRole::Fixed ? cell[k - step] : 0.0F) +
                   (role[k + step] == FaceRole::Fixed ? cell[k] : 0.0F);
          });
        if (isThere(axis, i) && isThere(axis, i + coarse.Step(axis)))
          coarse.mCoefficients[kCell + axis][i] =
              0.25F * SumOf(at, {}, [&](i32 k) {
                const bool isHeld = role[k] == FaceRole::Fixed || role[k + step] == FaceRole::Fixed;
                return isHeld ? 0.0F : cell[k];
              });
        if (isThere(p, i) && isThere(p, i - coarse.Step(q)) && isThere(q, i) &&
            isThere(q, i - coarse.Step(p)))
          coarse.mCoefficients[kEdge + axis][i] =
              0.25F * SumOf(at, VecInt3D{1, 1, 1} - ExtraOf(axis), [&](i32 k) { return edge[k]; });
      }
    }
}

void ViscousLevel::Coarsen(ViscousLevel& coarse, i32 threads) {
  ForEachBlock(coarse.mCells.z + 1, threads, [&](i32 z) { FindRoles(coarse, z); });
  ForEachBlock(coarse.mCells.z + 1, threads, [&](i32 z) { SumLayer(coarse, z); });
  coarse.Close(threads);
  FindShares(coarse, threads);
}

void ViscousLevel::FindShares(ViscousLevel& coarse, i32 threads) {
  for (i32 axis = 0; axis < 3; ++axis) {
    float* isThere = coarse.mVectors[kSecond + axis];
    for (i64 i = 0; i < coarse.Count(); ++i)
      isThere[i] = coarse.mRoles[axis][i] == FaceRole::Outside ? 0.0F : 1.0F;
  }
  ForEachBlock(mDims.z - 2, threads, [&](i32 block) {
    std::vector<float> row;
    ForEachRow(block + 1, [&](i32 y, i32 z, i32 first, i32 n) {
      for (i32 axis = 0; axis < 3; ++axis) {
        InterpolateRow(coarse, axis, coarse.mVectors[kSecond + axis], y, z, row);
        float* share = mVectors[kShare + axis] + first;
        const i32 x0 = first - Index(0, y, z);
        for (i32 i = 0; i < n; ++i)
          share[i] = Role(axis, first + i) == FaceRole::Unknown && row[x0 + i] > 0 ? 1 / row[x0 + i]
                                                                                   : 0.0F;
      }
    });
  });
  for (i32 axis = 0; axis < 3; ++axis)
    std::fill_n(coarse.mVectors[kSecond + axis], coarse.Count(), 0.0F);
}

void ViscousLevel::InterpolateRow(const ViscousLevel& coarse, i32 axis, const float* values, i32 y,
                                  i32 z, std::vector<float>& row) const {
  const Taps ty(y, axis == 1), tz(z, axis == 2);
  const i32 count = coarse.mDims.x;
  // Behind the row, the line of coarse faces that it comes from.
  row.assign(mDims.x + count, 0.0F);
  float* line = row.data() + mDims.x;
  for (i32 k = 0; k < 2; ++k)
    for (i32 j = 0; j < 2; ++j) {
      const float weight = ty.weight[j] * tz.weight[k];
      const float* from = values + coarse.Index(-1, ty.at[j], tz.at[k]);
      for (i32 x = 0; x < count; ++x) line[x] += weight * from[x];
    }
  for (i32 x = 0; x <= mCells.x; ++x) {
    const Taps tx(x, axis == 0);
    row[x] = tx.weight[0] * line[tx.at[0] + 1] + tx.weight[1] * line[tx.at[1] + 1];
  }
}

// ---- rounds -----------------------------------------------------------------------------------

double ViscousLevel::Multiply(i32 layer, const std::array<const double*, 3>& s,
                              const std::array<double*, 3>& product) const {
  double dot = 0;
  ForEachRow(layer, [&](i32, i32, i32 first, i32 n) {
    const double* const from[3] = {s[0] + first, s[1] + first, s[2] + first};
    double* const to[3] = {product[0] + first, product[1] + first, product[2] + first};
    dot += MultiplyRow(RowAt(first), from, to, n);
  });
  for (const ViscousEntry& entry : mEntries[layer]) {
    const double part = double{entry.value} * s[entry.otherAxis][entry.column];
    product[entry.axis][entry.row] += part;
    dot += s[entry.axis][entry.row] * part;
  }
  return dot;
}

void ViscousLevel::SmoothLayer(i32 layer, float momentum, float step) const {
  const i32 x = mCurrent, y = Spare();
  const auto at = [&](i32 vector, i32 axis, i32 first) { return mVectors[vector + axis] + first; };
  ForEachRow(layer, [&](i32, i32, i32 i, i32 n) {
    const float* const b[3] = {at(kRhs, 0, i), at(kRhs, 1, i), at(kRhs, 2, i)};
    const float* const from[3] = {at(x, 0, i), at(x, 1, i), at(x, 2, i)};
    float* const change[3] = {at(kChange, 0, i), at(kChange, 1, i), at(kChange, 2, i)};
    float* const to[3] = {at(y, 0, i), at(y, 1, i), at(y, 2, i)};
    SmoothRow(RowAt(i), b, from, momentum, step, change, to, n);
  });
  for (const ViscousEntry& entry : mEntries[layer]) {
    const float part = step * mCoefficients[kInverse + entry.axis][entry.row] * entry.value *
                       mVectors[x + entry.otherAxis][entry.column];
    mVectors[kChange + entry.axis][entry.row] -= part;
    mVectors[y + entry.axis][entry.row] -= part;
  }
}

void ViscousLevel::Smooth(bool isFresh, i32 threads) {
  constexpr float first = 4.0F / (3 * kLargest), second = 12.0F / (5 * kLargest), kept = 0.2F;
  if (isFresh) {
    mCurrent = kFirst;
    ForEachBlock(mDims.z - 2, threads, [&](i32 block) {
      ForEachRow(block + 1, [&](i32, i32, i32 i, i32 n) {
        for (i32 axis = 0; axis < 3; ++axis)
          StartRow(mCoefficients[kInverse + axis] + i, mVectors[kRhs + axis] + i, first,
                   mVectors[kChange + axis] + i, mVectors[kFirst + axis] + i, n);
      });
    });
  } else {
    ForEachBlock(mDims.z - 2, threads, [&](i32 block) { SmoothLayer(block + 1, 0, first); });
    mCurrent = Spare();
  }
  ForEachBlock(mDims.z - 2, threads, [&](i32 block) { SmoothLayer(block + 1, kept, second); });
  mCurrent = Spare();
}

void ViscousLevel::LeaveLayer(i32 layer) const {
  const auto at = [&](i32 vector, i32 axis, i32 first) { return mVectors[vector + axis] + first; };
  const i32 left = Spare();
  ForEachRow(layer, [&](i32, i32, i32 i, i32 n) {
    const float* const b[3] = {at(kRhs, 0, i), at(kRhs, 1, i), at(kRhs, 2, i)};
    const float* const x[3] = {at(mCurrent, 0, i), at(mCurrent, 1, i), at(mCurrent, 2, i)};
    const float* const share[3] = {at(kShare, 0, i), at(kShare, 1, i), at(kShare, 2, i)};
    float* const to[3] = {at(left, 0, i), at(left, 1, i), at(left, 2, i)};
    LeaveRow(RowAt(i), b, x, share, to, n);
  });
  for (const ViscousEntry& entry : mEntries[layer])
    mVectors[left + entry.axis][entry.row] -= mVectors[kShare + entry.axis][entry.row] *
                                              entry.value *
                                              mVectors[mCurrent + entry.otherAxis][entry.column];
}

void ViscousLevel::Restrict(ViscousLevel& coarse, i32 threads) {
  ForEachBlock(mDims.z - 2, threads, [&](i32 block) { LeaveLayer(block + 1); });
  const i32 left = Spare();
  ForEachBlock(coarse.mDims.z - 2, threads, [&](i32 block) {
    std::vector<float> line(mDims.x);
    coarse.ForEachRow(block + 1, [&](i32 y, i32 z, i32 first, i32 n) {
      const i32 x0 = first - coarse.Index(0, y, z);
      for (i32 axis = 0; axis < 3; ++axis) {
        const Sources sy(y, axis == 1, mCells.y + 1), sz(z, axis == 2, mCells.z + 1);
        std::fill(line.begin(), line.end(), 0.0F);
        for (i32 k = 0; k < sz.count; ++k)
          for (i32 j = 0; j < sy.count; ++j) {
            const float weight = sy.weight[j] * sz.weight[k];
            const float* from = mVectors[left + axis] + Index(-1, sy.first + j, sz.first + k);
            for (i32 x = 0; x < mDims.x; ++x) line[x] += weight * from[x];
          }
        float* to = coarse.mVectors[kRhs + axis] + first;
        for (i32 i = 0; i < n; ++i) {
          const Sources sx(x0 + i, axis == 0, mCells.x + 1);
          float sum = 0;
          for (i32 k = 0; k < sx.count; ++k) sum += sx.weight[k] * line[sx.first + k + 1];
          to[i] = sum;
        }
      }
    });
  });
}

void ViscousLevel::Prolong(const ViscousLevel& coarse, i32 threads) {
  ForEachBlock(mDims.z - 2, threads, [&](i32 block) {
    std::vector<float> row;
    ForEachRow(block + 1, [&](i32 y, i32 z, i32 first, i32 n) {
      const i32 x0 = first - Index(0, y, z);
      for (i32 axis = 0; axis < 3; ++axis) {
        InterpolateRow(coarse, axis, coarse.Solution(axis), y, z, row);
        const float* share = mVectors[kShare + axis] + first;
        float* to = mVectors[mCurrent + axis] + first;
        for (i32 i = 0; i < n; ++i) to[i] += share[i] * row[x0 + i];
      }
    });
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
