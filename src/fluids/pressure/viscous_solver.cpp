#include "fluids/pressure/viscous_solver.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kFewest = 2;  // cells of the last level, along each axis
// Of a diagonal: single precision leaves no less of a matrix that is next to singular.
constexpr double kFloor = 1e-6;

}  // namespace

void ViscousSolver::Begin(const VecInt3D& cells, i32 threads) {
  mThreads = threads;
  mCount = 0;
  VecInt3D n = cells;
  for (;;) {
    if (mLevels.size() == mCount) mLevels.push_back(std::make_unique<ViscousLevel>());
    if (!mLevels[mCount]->Fit(n, threads)) throw std::bad_alloc();
    mLevels[mCount]->mIsFinest = mCount == 0;
    ++mCount;
    if (std::max({n.x, n.y, n.z}) <= kFewest) break;
    for (int a = 0; a < 3; ++a) n[a] = (n[a] + 1) / 2;
  }
  if (!mArrays.Resize(Finest().Count())) throw std::bad_alloc();
  const i64 layer = Finest().Step(2);
  ForEachBlock(Finest().mDims.z, threads, [&](i32 z) {
    for (i32 a = 0; a < kArrays; ++a) std::fill_n(mArrays[a] + z * layer, layer, 0.0);
  });
}

void ViscousSolver::Free() {
  mLevels.clear();
  mCount = 0;
  mArrays.Free();
  mUnknowns = {};
  mFactor = {};
}

// ---- levels -----------------------------------------------------------------------------------

void ViscousSolver::BuildLevels() {
  for (std::size_t l = 0; l + 1 < mCount; ++l) mLevels[l]->Coarsen(*mLevels[l + 1], mThreads);
  Factorise();
}

/// The lower triangle L of A = L L^T, by rows, of the few unknowns of the last level.
void ViscousSolver::Factorise() {
  const ViscousLevel& last = *mLevels[mCount - 1];
  mUnknowns.clear();
  for (i32 axis = 0; axis < 3; ++axis)
    for (i32 i = 0; i < last.Count(); ++i)
      if (last.Role(axis, i) == FaceRole::Unknown) mUnknowns.push_back({axis, i});
  const std::size_t n = mUnknowns.size();
  std::vector<double> vectors(6 * last.Count(), 0.0);
  const std::array<const double*, 3> unit = {&vectors[0], &vectors[last.Count()],
                                             &vectors[2 * last.Count()]};
  const std::array<double*, 3> column = {&vectors[3 * last.Count()], &vectors[4 * last.Count()],
                                         &vectors[5 * last.Count()]};
  mFactor.assign(n * n, 0.0);
  mRoom.resize(n);
  for (std::size_t j = 0; j < n; ++j) {
    double& one = vectors[mUnknowns[j].axis * last.Count() + mUnknowns[j].index];
    one = 1;
    for (i32 layer = 1; layer < last.mDims.z - 1; ++layer) last.Multiply(layer, unit, column);
    one = 0;
    for (std::size_t i = 0; i < n; ++i)
      mFactor[i * n + j] = column[mUnknowns[i].axis][mUnknowns[i].index];
    mFactor[j * n + j] *= 1 + kFloor;
  }
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j <= i; ++j) {
      double sum = mFactor[i * n + j];
      const double own = sum;
      for (std::size_t k = 0; k < j; ++k) sum -= mFactor[i * n + k] * mFactor[j * n + k];
      mFactor[i * n + j] =
          i == j ? std::sqrt(std::max(sum, kFloor * own)) : sum / mFactor[j * n + j];
    }
}

void ViscousSolver::SolveCoarsest() {
  const ViscousLevel& last = *mLevels[mCount - 1];
  const std::size_t n = mUnknowns.size();
  for (std::size_t i = 0; i < n; ++i) {
    double sum = last.Values(ViscousLevel::kRhs + mUnknowns[i].axis)[mUnknowns[i].index];
    for (std::size_t k = 0; k < i; ++k) sum -= mFactor[i * n + k] * mRoom[k];
    mRoom[i] = sum / mFactor[i * n + i];
  }
  for (std::size_t i = n; i-- > 0;) {
    double sum = mRoom[i];
    for (std::size_t k = i + 1; k < n; ++k) sum -= mFactor[k * n + i] * mRoom[k];
    mRoom[i] = sum / mFactor[i * n + i];
    last.Solution(mUnknowns[i].axis)[mUnknowns[i].index] = static_cast<float>(mRoom[i]);
  }
}

void ViscousSolver::Cycle(std::size_t level) {
  if (level + 1 == mCount) return SolveCoarsest();
  ViscousLevel &fine = *mLevels[level], &coarse = *mLevels[level + 1];
  fine.Smooth(true, mThreads);
  fine.Restrict(coarse, mThreads);
  Cycle(level + 1);
  fine.Prolong(coarse, mThreads);
  fine.Smooth(false, mThreads);
}

// ---- iteration --------------------------------------------------------------------------------

/// f(layer) added up over the inner layers, in their order.
template <class F>
double ViscousSolver::SumLayers(F&& f) {
  return ReduceBlocks(
      Finest().mDims.z - 2, mThreads, 0.0, [&](i32 block) { return f(block + 1); },
      [](double a, double b) { return a + b; });
}

/// The largest magnitude in rows of unknowns.
double ViscousSolver::LargestOf(i32 array) const {
  const ViscousLevel& level = Finest();
  return ReduceBlocks(
      level.mDims.z - 2, mThreads, 0.0,
      [&](i32 block) {
        double most = 0;
        level.ForEachRow(block + 1, [&](i32, i32, i32 first, i32 n) {
          for (i32 axis = 0; axis < 3; ++axis) {
            const double* values = mArrays[array + axis] + first;
            const float* inverse = level.Coefficients(ViscousLevel::kInverse + axis) + first;
            for (i32 i = 0; i < n; ++i)
              if (inverse[i] > 0) most = std::max(most, std::fabs(values[i]));
          }
        });
        return most;
      },
      [](double a, double b) { return std::max(a, b); });
}

void ViscousSolver::HandOver() {
  ViscousLevel& level = Finest();
  ForEachBlock(level.mDims.z - 2, mThreads, [&](i32 block) {
    level.ForEachRow(block + 1, [&](i32, i32, i32 first, i32 n) {
      for (i32 axis = 0; axis < 3; ++axis) {
        const double* left = mArrays[kLeft + axis] + first;
        float* rhs = level.Values(ViscousLevel::kRhs + axis) + first;
        for (i32 i = 0; i < n; ++i) rhs[i] = static_cast<float>(left[i]);
      }
    });
  });
}

/// The product of the matrix with an array; returns what the two give together.
double ViscousSolver::Multiply(i32 from) {
  const std::array<const double*, 3> s = {mArrays[from], mArrays[from + 1], mArrays[from + 2]};
  const std::array<double*, 3> product = {mArrays[kProduct], mArrays[kProduct + 1],
                                          mArrays[kProduct + 2]};
  return SumLayers([&](i32 layer) { return Finest().Multiply(layer, s, product); });
}

bool ViscousSolver::Solve(const SolverAccuracy& accuracy) {
  mIterations = 0;
  mResidual = 0;
  Finest().Close(mThreads);
  const ViscousLevel& level = Finest();
  const auto forEachFace = [&](i32 layer, auto&& f) {
    level.ForEachRow(layer, [&](i32, i32, i32 first, i32 n) {
      for (i32 axis = 0; axis < 3; ++axis) {
        const float* inverse = level.Coefficients(ViscousLevel::kInverse + axis) + first;
        f(axis, first, n, inverse);
      }
    });
  };
  const double largest = LargestOf(kLeft);
  // What is left from the velocities at hand. Where that is more than from rest, these are a
  // noise that viscosity takes away.
  Multiply(kVelocity);
  ForEachBlock(level.mDims.z - 2, mThreads, [&](i32 block) {
    forEachFace(block + 1, [&](i32 axis, i32 first, i32 n, const float*) {
      const double* left = mArrays[kLeft + axis] + first;
      double* product = mArrays[kProduct + axis] + first;
      for (i32 i = 0; i < n; ++i) product[i] = left[i] - product[i];
    });
  });
  const bool startsHere = LargestOf(kProduct) <= largest;
  ForEachBlock(level.mDims.z - 2, mThreads, [&](i32 block) {
    forEachFace(block + 1, [&](i32 axis, i32 first, i32 n, const float* inverse) {
      double *left = mArrays[kLeft + axis] + first, *velocity = mArrays[kVelocity + axis] + first;
      const double* product = mArrays[kProduct + axis] + first;
      for (i32 i = 0; i < n; ++i) {
        if (startsHere) left[i] = product[i];
        if (inverse[i] == 0) left[i] = 0;
        if (inverse[i] == 0 || !startsHere) velocity[i] = 0;
      }
    });
  });
  double rest = LargestOf(kLeft);
  const double enough = accuracy.tolerance * largest;
  mResidual = largest > 0 ? rest / largest : 0;
  if (!(rest > enough)) return std::isfinite(rest);
  BuildLevels();
  HandOver();
  double before = 0;
  while (mIterations < accuracy.maxIterations) {
    ++mIterations;
    Cycle(0);
    const double now = SumLayers([&](i32 layer) {
      double sum = 0;
      forEachFace(layer, [&](i32 axis, i32 first, i32 n, const float*) {
        sum += DotRow(mArrays[kLeft + axis] + first, level.Solution(axis) + first, n);
      });
      return sum;
    });
    const double beta = mIterations > 1 ? now / before : 0;
    before = now;
    ForEachBlock(level.mDims.z - 2, mThreads, [&](i32 block) {
      forEachFace(block + 1, [&](i32 axis, i32 first, i32 n, const float*) {
        TurnRow(level.Solution(axis) + first, beta, mArrays[kWay + axis] + first, n);
      });
    });
    const double alpha = now / Multiply(kWay);
    if (!std::isfinite(alpha)) return false;
    rest = ReduceBlocks(
        level.mDims.z - 2, mThreads, 0.0,
        [&](i32 block) {
          double most = 0;
          forEachFace(block + 1, [&](i32 axis, i32 first, i32 n, const float* inverse) {
            most = std::max(
                most, AdvanceRow(alpha, mArrays[kWay + axis] + first,
                                 mArrays[kProduct + axis] + first, inverse,
                                 mArrays[kVelocity + axis] + first, mArrays[kLeft + axis] + first,
                                 level.Values(ViscousLevel::kRhs + axis) + first, n));
          });
          return most;
        },
        [](double a, double b) { return std::max(a, b); });
    mResidual = rest / largest;
    if (!(rest > enough)) return std::isfinite(rest);
  }
  return false;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
