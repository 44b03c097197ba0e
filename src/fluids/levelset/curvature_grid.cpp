#include "fluids/levelset/curvature_grid.h"

#include <cmath>

#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Derivatives at a sample.
struct Derivatives {
  double x, y, z, xx, yy, zz, xy, xz, yz;
  double Squared() const { return x * x + y * y + z * z; }
};

/// `p` points to the sample, `sy` and `sz` are the steps of its rows and layers.
Derivatives CentralDerivatives(const double* p, i32 sy, i32 sz, double h) {
  const double f = 0.5 / h, g = 1 / (h * h);
  const auto first = [&](i32 s) { return (p[s] - p[-s]) * f; };
  const auto second = [&](i32 s) { return (p[s] + p[-s] - 2 * p[0]) * g; };
  const auto mixed = [&](i32 s, i32 t) {
    return ((p[s + t] - p[s - t]) - (p[t - s] - p[-s - t])) * (0.25 * g);
  };
  return {first(1),   first(sy),    first(sz),    second(1),    second(sy),
          second(sz), mixed(1, sy), mixed(1, sz), mixed(sy, sz)};
}

double MeanCurvature(const double* p, i32 sy, i32 sz, double h) {
  const Derivatives d = CentralDerivatives(p, sy, sz, h);
  const double s = d.Squared();
  if (s == 0) return 0;
  return ((d.yy + d.zz) * d.x * d.x + (d.xx + d.zz) * d.y * d.y + (d.xx + d.yy) * d.z * d.z -
          2 * (d.x * d.y * d.xy + d.x * d.z * d.xz + d.y * d.z * d.yz)) /
         (s * std::sqrt(s));
}

double GaussianCurvature(const double* p, i32 sy, i32 sz, double h) {
  const Derivatives d = CentralDerivatives(p, sy, sz, h);
  const double s = d.Squared();
  if (s == 0) return 0;
  const double mixed = d.x * d.y * (d.xz * d.yz - d.zz * d.xy) +
                       d.y * d.z * (d.xz * d.xy - d.yz * d.xx) +
                       d.x * d.z * (d.yz * d.xy - d.yy * d.xz);
  const double straight = (d.yy * d.zz - d.yz * d.yz) * d.x * d.x +
                          (d.xx * d.zz - d.xz * d.xz) * d.y * d.y +
                          (d.xx * d.yy - d.xy * d.xy) * d.z * d.z;
  return (2 * mixed + straight) / (s * s);
}

/// The component along `a` of the unit normal half a step ahead on that axis.
double FaceNormal(const double* p, i32 a, i32 b, i32 c) {
  const double along = p[a] - p[0];
  const auto across = [&](i32 s) { return 0.25 * ((p[s] + p[a + s]) - (p[-s] + p[a - s])); };
  const double g = across(b), k = across(c);
  const double length = std::sqrt(along * along + g * g + k * k);
  return length > 0 ? along / length : 0;
}

double NormalDivergence(const double* p, i32 sy, i32 sz, double h) {
  const auto along = [&](i32 a, i32 b, i32 c) {
    return FaceNormal(p, a, b, c) - FaceNormal(p - a, a, b, c);
  };
  return (along(1, sy, sz) + along(sy, 1, sz) + along(sz, 1, sy)) / h;
}

template <class F>
void FillCurvature(const EGrid<double>& phi, EGrid<double>& out, const CellBox& box,
                   host::HostThread* thread, F&& curvature) {
  const double h = phi.mLayout.cellSize;
  const bool limited = out.mRangeMax > out.mRangeMin;
  ForEachBlock(box.max.z - box.min.z, host::ThreadCount(), [&](i32 layer) {
    if (thread && thread->TestBreak()) return;
    const i32 z = box.min.z + layer;
    ForEachCell({{box.min.x, box.min.y, z}, {box.max.x, box.max.y, z + 1}},
                [&](i32 x, i32 y, i32 k) {
                  const i32 i = phi.Index(x, y, k);
                  const double value = curvature(phi.mData + i, phi.mNx, phi.mSlice, h);
                  out[i] = limited ? std::clamp(value, out.mRangeMin, out.mRangeMax) : value;
                });
  });
}

}  // namespace

bool CurvatureGrid::Run(const CellBox* box, host::HostThread* thread) const {
  if (!mLevelSet || !mCurvature || !mLevelSet->mData || !mCurvature->mData ||
      mLevelSet->Dims() != mCurvature->Dims())
    return false;
  CellBox inner{{1, 1, 1}, mLevelSet->Dims() - VecInt3D{1, 1, 1}};
  if (box) inner = Clip(*box, inner.min, inner.max);
  if (inner.IsEmpty()) return false;
  const auto fill = [&](auto&& curvature) {
    FillCurvature(*mLevelSet, *mCurvature, inner, thread, curvature);
  };
  switch (mMode) {
    case kMean: fill([](auto... at) { return MeanCurvature(at...); }); break;
    case kGaussian: fill([](auto... at) { return GaussianCurvature(at...); }); break;
    case kNormals: fill([](auto... at) { return NormalDivergence(at...); }); break;
  }
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
