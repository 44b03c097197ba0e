#include "fluids/pressure/multigrid.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "fluids/pressure/layer_sweeps.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

LevelLine Multigrid::Level::LineAt(i32 y, i32 z) const {
  const i32 c = Cell(1, y, z);
  return {arrays[kValue] + c,
          arrays[kRhs] + c,
          arrays[kInverse] + c,
          {arrays[kWeight] + c, arrays[kWeight + 1] + c, arrays[kWeight + 2] + c},
          Offset(1),
          Offset(2)};
}

void Multigrid::Level::FindLines() {
  hasRows.assign(static_cast<std::size_t>(dims.y) * dims.z, 0);
  ForEachBlock(dims.z, threads, [&](i32 z) {
    for (i32 y = 0; y < dims.y; ++y) {
      const float* row = arrays[kInverse] + Cell(0, y, z);
      hasRows[dims.y * z + y] = std::any_of(row, row + dims.x, [](float v) { return v != 0; });
    }
  });
}

bool Multigrid::Level::Resize(const VecInt3D& size) {
  dims = size;
  // A line's kernels may look one cell beyond the last.
  return arrays.Resize(i64{dims.x} * dims.y * dims.z + 1);
}

void Multigrid::Free() {
  mFormed = mHasCoupled = mFollows = false;
  mCoupled.Free();
  mLeft = {};
  mLevels.clear();
  mScratch = {};
  mPartials = {};
  mLastCells = {};
  mLastFactor = {};
  mLastValues = {};
}

bool Multigrid::Build(const LatticeMatrix& matrix, i32 threads) {
  const bool sameSize =
      mFormed && mLevels.front().dims == matrix.Dims() && mHasAir == matrix.mHasAir;
  mHasAir = matrix.mHasAir;
  mFormed = mFollows = false;
  if (!SetSizes(matrix.Dims(), threads)) return false;
  const bool changed = TakeMatrix(matrix) || !sameSize;
  if (changed) {
    mHasCoupled = false;
    for (std::size_t l = 1; l < mLevels.size(); ++l) FormCoarse(mLevels[l - 1], mLevels[l]);
    for (Level& level : mLevels) level.FindLines();
    FactorLast();
  }
  mFormed = true;
  return true;
}

bool Multigrid::FollowCouplings(const LatticeMatrix& matrix) {
  if (mLevels.size() == 1) return false;
  mHasCoupled = mHasCoupled || mCoupled.Build(matrix, mScale, mLevels.front().threads);
  if (mHasCoupled) mLeft.resize(matrix.Rows());
  return mFollows = mHasCoupled;
}

void Multigrid::FactorLast() {
  const Level& level = mLevels.back();
  const float* inverse = level.arrays[kInverse];
  mLastCells.clear();
  for (i32 z = 1; z < level.dims.z - 1; ++z)
    for (i32 y = 1; y < level.dims.y - 1; ++y)
      for (i32 x = 1; x < level.dims.x - 1; ++x)
        if (inverse[level.Cell(x, y, z)] != 0) mLastCells.push_back(level.Cell(x, y, z));
  const std::size_t n = mLastCells.size();
  mLastFactor.assign(n * n, 0.0);
  mLastValues.resize(n);
  const auto at = [&](std::size_t i, std::size_t j) -> double& { return mLastFactor[i * n + j]; };
  for (std::size_t i = 0; i < n; ++i) {
    at(i, i) = 1.0 / inverse[mLastCells[i]];
    for (i32 axis = 0; axis < 3; ++axis) {
      const auto below = std::lower_bound(mLastCells.begin(), mLastCells.begin() + i,
                                          mLastCells[i] - level.Offset(axis));
      if (below == mLastCells.begin() + i || *below != mLastCells[i] - level.Offset(axis)) continue;
      at(i, below - mLastCells.begin()) = -level.arrays[kWeight + axis][*below];
    }
  }
  // A pivot that rounding alone keeps from 0 belongs to a region that is closed: its constant is
  // free, and 0 will do.
  for (std::size_t i = 0; i < n; ++i) {
    const double own = at(i, i);
    for (std::size_t j = 0; j < i; ++j) {
      double sum = at(i, j);
      for (std::size_t k = 0; k < j; ++k) sum -= at(i, k) * at(j, k);
      at(i, j) = sum;
    }
    double pivot = own;
    for (std::size_t j = 0; j < i; ++j) {
      const double entry = at(i, j) * at(j, j);
      pivot -= entry * at(i, j);
      at(i, j) = entry;
    }
    at(i, i) = pivot > 1e-5 * own ? 1 / pivot : 0.0;
  }
}

void Multigrid::SolveLast() {
  const Level& level = mLevels.back();
  const std::size_t n = mLastCells.size();
  const auto at = [&](std::size_t i, std::size_t j) { return mLastFactor[i * n + j]; };
  for (std::size_t i = 0; i < n; ++i) {
    double sum = level.arrays[kRhs][mLastCells[i]];
    for (std::size_t j = 0; j < i; ++j) sum -= at(i, j) * mLastValues[j];
    mLastValues[i] = sum;
  }
  for (std::size_t i = n; i-- > 0;) {
    double value = mLastValues[i] * at(i, i);
    for (std::size_t j = i + 1; j < n; ++j) value -= at(j, i) * mLastValues[j];
    mLastValues[i] = value;
    level.arrays[kValue][mLastCells[i]] = static_cast<float>(value);
  }
}

/// f(line, phase of the red half, n, z) for all lines.
template <class F>
void Multigrid::ForEachLine(const Level& level, F&& f) {
  const i32 n = level.dims.x - 2;
  ForEachBlock(std::max(0, level.dims.z - 2), level.threads, [&](i32 block) {
    const i32 z = block + 1;
    for (i32 y = 1; y < level.dims.y - 1; ++y)
      if (level.HasRows(y, z)) f(level.LineAt(y, z), (y + z) & 1, n, y, z);
  });
}

/// As `SweepLayers`: f(sweep, line, phase of the red half, n, y, z) for all lines of each layer.
template <class F>
void Multigrid::SweepLines(const Level& level, i32 count, F&& f) {
  const i32 n = level.dims.x - 2;
  SweepLayers(1, level.dims.z - 1, count, level.threads, [&](i32 sweep, i32 z) {
    for (i32 y = 1; y < level.dims.y - 1; ++y)
      if (level.HasRows(y, z)) f(sweep, level.LineAt(y, z), (y + z) & 1, n, y, z);
  });
}

void Multigrid::CorrectByCouplings() {
  Level& level = mLevels.front();
  ForEachLine(level, [&](const LevelLine& line, i32 red, i32 n, i32 y, i32 z) {
    LeftOverLine(line, red, mLeft.data() + level.Cell(1, y, z), n);
  });
  mCoupled.Correct(mLeft.data(), level.arrays[kValue], level.threads);
}

void Multigrid::Descend(std::size_t l) {
  if (l + 1 == mLevels.size()) {
    SolveLast();
    return;
  }
  Level &level = mLevels[l], &next = mLevels[l + 1];
  SweepLines(level, 2, [](i32 sweep, const LevelLine& line, i32 red, i32 n, i32, i32) {
    if (sweep == 0)
      StartLine(line, red, n);
    else
      RelaxLine(line, red + 1, n);
  });
  if (mFollows) {
    CorrectByCouplings();
  } else {
    Restrict(level, next);
    Descend(l + 1);
    Prolong(level, next);
  }
  if (l > 0)
    Ascend(level, [](const LevelLine& line, i32 red, i32 n, i32, i32) { RelaxLine(line, red, n); });
}

/// The half sweeps after the correction; `last` makes the second one.
template <class F>
void Multigrid::Ascend(const Level& level, F&& last) {
  SweepLines(level, 2, [&](i32 sweep, const LevelLine& line, i32 red, i32 n, i32 y, i32 z) {
    if (sweep == 0)
      RelaxLine(line, red + 1, n);
    else
      last(line, red, n, y, z);
  });
}

double Multigrid::Cycle(const double* b) {
  const Level& level = mLevels.front();
  std::fill(mPartials.begin(), mPartials.end(), 0.0);
  if (mLevels.size() == 1) {
    SolveLast();
    for (const i32 c : mLastCells) mPartials[0] += level.arrays[kValue][c] * b[c];
    return mPartials[0];
  }
  Descend(0);
  Ascend(level, [&](const LevelLine& line, i32 red, i32 n, i32 y, i32 z) {
    mPartials[z] += RelaxDotLine(line, red, b + level.Cell(1, y, z), n);
  });
  double dot = 0;
  for (const double partial : mPartials) dot += partial;
  return dot;
}

void Multigrid::Restrict(Level& fine, const Level& coarse) {
  const i32 layers = coarse.dims.z - 2;
  const i32 workers = std::clamp(std::min(fine.threads, layers), 1, host::kMaxWorkers);
  const auto run = [&](i32 w) {
    RestrictLayers(fine, coarse, 1 + layers * w / workers, 1 + layers * (w + 1) / workers,
                   mScratch[w]);
  };
  if (workers == 1)
    run(0);
  else
    host::WorkerPool::Instance().Run(workers, run);
  for (const Stray& stray : fine.strays)
    if (stray.parent >= 0) coarse.arrays[kRhs][stray.parent] += stray.value;
}

void Multigrid::RestrictLayers(Level& fine, const Level& coarse, i32 first, i32 last,
                               std::vector<float>& scratch) {
  // Left-overs are made layer by layer, of which a coarse layer needs four; outermost cells stay 0.
  const i32 nx = fine.dims.x, ny = fine.dims.y, n = nx - 2, m = coarse.dims.x - 2;
  const std::size_t layer = static_cast<std::size_t>(nx) * ny;
  scratch.assign(4 * layer + 1, 0.0F);
  i32 held[4] = {-1, -1, -1, -1};
  const auto lineOf = [&](i32 y, i32 z) { return &scratch[(z & 3) * layer + y * nx + 1]; };
  const auto hold = [&](i32 z) {
    if (held[z & 3] == z) return;
    held[z & 3] = z;
    for (i32 y = 1; y < ny - 1; ++y) {
      if (z < 1 || z >= fine.dims.z - 1 || !fine.HasRows(y, z))
        std::fill_n(lineOf(y, z), n, 0.0F);
      else
        LeftOverLine(fine.LineAt(y, z), (y + z) & 1, lineOf(y, z), n);
    }
    if (z < 1 || z >= fine.dims.z - 1) return;
    const bool own = z >= (first - 1) * fine.factor.z + 1 && z < (last - 1) * fine.factor.z + 1;
    for (i32 k = fine.firstStrays[z]; k < fine.firstStrays[z + 1]; ++k) {
      float& left = scratch[(z & 3) * layer + fine.strays[k].cell % layer];
      if (own) fine.strays[k].value = left;
      left = 0;
    }
  };
  const VecInt3D f = fine.factor;
  for (i32 Z = first; Z < last; ++Z) {
    const i32 z0 = (Z - 1) * f.z + 1, z1 = std::min(z0 + f.z, fine.dims.z - 1);
    for (i32 z = z0 - (f.z - 1); z < z1 + (f.z - 1); ++z) hold(z);
    for (i32 Y = 1; Y < coarse.dims.y - 1; ++Y) {
      if (!coarse.HasRows(Y, Z)) continue;
      const LevelLine line = coarse.LineAt(Y, Z);
      const float* share = coarse.arrays[kShare] + coarse.Cell(1, Y, Z);
      float* rhs = coarse.arrays[kRhs] + coarse.Cell(1, Y, Z);
      std::fill_n(rhs, m, 0.0F);
      const i32 y0 = (Y - 1) * f.y + 1, y1 = std::min(y0 + f.y, ny - 1);
      for (i32 z = z0; z < z1; ++z)
        for (i32 y = y0; y < y1; ++y) {
          const float* own = lineOf(y, z);
          RestrictAlong(own, line.weight[0], share, f.x == 2, rhs, m);
          if (f.y == 2) {
            const i32 step = y == y0 ? -1 : 1;
            RestrictAcross(own, lineOf(y + step, z), line.weight[1] - (step < 0 ? line.ny : 0),
                           share, step * line.ny, f.x == 2, rhs, m);
          }
          if (f.z == 2) {
            const i32 step = z == z0 ? -1 : 1;
            RestrictAcross(own, lineOf(y, z + step), line.weight[2] - (step < 0 ? line.nz : 0),
                           share, step * line.nz, f.x == 2, rhs, m);
          }
        }
      for (i32 i = 0; i < m; ++i)
        if (line.inverse[i] == 0) rhs[i] = 0;
    }
  }
}

void Multigrid::Prolong(Level& fine, const Level& coarse) {
  for (Stray& stray : fine.strays) stray.value = fine.arrays[kValue][stray.cell];
  const i32 n = fine.dims.x - 2, m = coarse.dims.x - 2;
  const VecInt3D f = fine.factor;
  const i32 layers = coarse.dims.z - 2;
  const i32 workers = std::clamp(std::min(fine.threads, layers), 1, host::kMaxWorkers);
  const auto run = [&](i32 w) {
    std::vector<float>& base = mScratch[w];
    base.resize(std::max<std::size_t>(base.size(), m));
    for (i32 Z = 1 + layers * w / workers; Z < 1 + layers * (w + 1) / workers; ++Z)
      for (i32 Y = 1; Y < coarse.dims.y - 1; ++Y) {
        if (!coarse.HasRows(Y, Z)) continue;
        const LevelLine line = coarse.LineAt(Y, Z);
        const float* share = coarse.arrays[kShare] + coarse.Cell(1, Y, Z);
        for (i32 k = 0; k < f.y * f.z; ++k) {
          const i32 sideY = k % f.y, sideZ = k / f.y;
          const i32 y = (Y - 1) * f.y + 1 + sideY, z = (Z - 1) * f.z + 1 + sideZ;
          if (y >= fine.dims.y - 1 || z >= fine.dims.z - 1) continue;
          const i32 stepY = f.y == 1 ? 0 : sideY ? line.ny : -line.ny;
          const i32 stepZ = f.z == 1 ? 0 : sideZ ? line.nz : -line.nz;
          CorrectionLine(line.value, share, stepY, line.weight[1] - (sideY ? 0 : line.ny), stepZ,
                         line.weight[2] - (sideZ ? 0 : line.nz), base.data(), m);
          const LevelLine to = fine.LineAt(y, z);
          ProlongLine(base.data(), line.value, share, line.weight[0], f.x == 2, to.inverse,
                      (y + z) & 1, to.value, n);
        }
      }
  };
  if (workers == 1)
    run(0);
  else
    host::WorkerPool::Instance().Run(workers, run);
  for (const Stray& stray : fine.strays)
    fine.arrays[kValue][stray.cell] =
        stray.value + (stray.parent >= 0 ? coarse.arrays[kValue][stray.parent] : 0.0F);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
