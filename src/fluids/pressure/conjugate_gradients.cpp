#include "fluids/pressure/conjugate_gradients.h"

#include <cmath>

namespace MELDO_GLOBAL::MELDO_SULVA {

void ConjugateGradients::Release(bool full) {
  LatticeSolver::Release(full);
  if (full) mPartials = {};
}

bool ConjugateGradients::PrepareIteration() {
  if (!PrepareSystem()) return false;
  mPartials.resize(std::max(mDims.z, 1));
  return true;
}

double ConjugateGradients::StartResidual() {
  const i64 layer = i64{mDims.x} * mDims.y;
  ForEachBlock(mDims.z, mThreads, [&](i32 z) {
    const i64 first = z * layer, last = first + layer;
    const double* diagonal = mMatrix.Diagonal();
    double* r = mArrays[kRhs];
    double top = 0;
    for (i64 c = first; c < last; ++c) {
      if (diagonal[c] == 0) r[c] = 0;
      top = std::max(top, std::fabs(r[c]));
    }
    mPartials[z] = top;
    for (i32 a = kFirstOwn; a < mArrays.Count(); ++a) std::fill_n(mArrays[a] + first, layer, 0.0);
  });
  return *std::max_element(mPartials.begin(), mPartials.begin() + mDims.z);
}

double ConjugateGradients::Multiply() {
  ForEachLine([&](i32 c, i32 n, double& dot) {
    const double* s = mArrays[kS] + c;
    double* z = mArrays[kZ] + c;
    MultiplyLine(Bands(mMatrix, c), s, z, n);
    dot += DotLine(s, z, n);
  });
  double dot = 0;
  for (i32 z = 1; z < mDims.z - 1; ++z) dot += mPartials[z];
  return dot;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
