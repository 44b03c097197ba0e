#include "grids/grid_resampler.h"

#include "grids/fixed_blocks.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL {

namespace {

/// Calls f with a functor (target sample, value) for the write mode, so that the choice stands
/// outside of the cell loop.
template <class T, class F>
bool WithWriter(i32 mode, const EGrid<T>& source, const EGrid<T>& target, F&& f) {
  const double sourceMin = source.mRangeMin, sourceMax = source.mRangeMax;
  const double targetMin = target.mRangeMin, targetMax = target.mRangeMax;
  switch (mode) {
    case kWriteNormalise:
      return f([=](T& t, double v) { t = static_cast<T>((v - sourceMin) / sourceMax); });
    case kWriteScale:
      return f([=](T& t, double v) { t = static_cast<T>(v * targetMax + targetMin); });
    case kWriteMin: return f([](T& t, double v) { t = v < t ? static_cast<T>(v) : t; });
    case kWriteMax: return f([](T& t, double v) { t = v > t ? static_cast<T>(v) : t; });
    default: return f([](T& t, double v) { t = static_cast<T>(v); });
  }
}

/// Calls f with a functor (sample coordinates) -> value for the sample mode.
template <class T, class F>
bool WithSampler(i32 mode, const EGrid<T>& source, F&& f) {
  switch (mode) {
    case SAMPLE_MONOTONIC:
      return f([&](const Vec3d& c) {
        return SampleMonotonic(source, MakeMonotonicStencil(c, source.Dims()));
      });
    case SAMPLE_BSPLINE:
      return f([&](const Vec3d& c) {
        return Sample(source, c + Vec3d{0.5, 0.5, 0.5}, SAMPLE_BSPLINE);
      });
    case SAMPLE_COSINE:
    case SAMPLE_CUBIC: return f([&](const Vec3d& c) { return Sample(source, c, mode); });
    default: return f([&](const Vec3d& c) { return SampleLinear(source, c); });
  }
}

/// Calls row(y, z) for all rows of the box, and asks for a break once a layer.
template <class F>
bool ForEachRow(const VecInt3D& min, const VecInt3D& max, host::HostThread* thread, F&& row) {
  for (i32 z = min.z; z < max.z; ++z) {
    if (thread && thread->TestBreak()) return false;
    for (i32 y = min.y; y < max.y; ++y) row(y, z);
  }
  return true;
}

}  // namespace

template <class T>
bool EGridResamplerOf<T>::Init(const EGrid<T>* source, EGrid<T>* target, bool direct,
                               i32 sampleMode, i32 writeMode, const VecInt3D& offset,
                               bool includeBorder) {
  mSource = source;
  mTarget = target;
  mDirect = direct;
  mSampleMode = sampleMode;
  mWriteMode = writeMode;
  mOffset = offset;
  mIncludeBorder = includeBorder;
  return source && target && target->mNz > (includeBorder ? 0 : 2);
}

template <class T>
bool EGridResamplerOf<T>::Run(i32 threads, host::HostThread* thread) {
  const i32 border = mIncludeBorder ? 0 : 1;
  const VecInt3D low{border, border, border}, high = mTarget->Dims() - low;
  return ReduceBlocks(
      high.z - low.z, threads, i32{1},
      [&](i32 layer) -> i32 {
        const VecInt3D min{low.x, low.y, low.z + layer}, max{high.x, high.y, min.z + 1};
        return mDirect ? Copy(min, max, thread) : Interpolate(min, max, thread);
      },
      [](i32 all, i32 one) { return all & one; });
}

template <class T>
bool EGridResamplerOf<T>::Interpolate(const VecInt3D& min, const VecInt3D& max,
                                      host::HostThread* thread) {
  if (!mSource || !mTarget) return false;
  const EGrid<T>& source = *mSource;
  EGrid<T>& target = *mTarget;
  const GridLayout& to = target.mLayout;
  const GridLayout& from = source.mLayout;
  const Vec3d targetOffset = OffsetOf(target.mKind);
  const Vec3d sourceOffset = OffsetOf(source.mKind) + ToReal(mOffset);
  const auto coordinate = [&](int a, i32 i) {
    const double p = to.worldOrigin[a] + (i + targetOffset[a]) * to.worldCell[a];
    return (p - from.worldOrigin[a]) * from.worldToCell[a] - sourceOffset[a];
  };
  return WithSampler(mSampleMode, source, [&](auto sample) {
    return WithWriter<T>(mWriteMode, source, target, [&](auto write) {
      return ForEachRow(min, max, thread, [&](i32 y, i32 z) {
        T* row = target.mData + target.Index(0, y, z);
        const double cy = coordinate(1, y), cz = coordinate(2, z);
        for (i32 x = min.x; x < max.x; ++x) write(row[x], sample({coordinate(0, x), cy, cz}));
      });
    });
  });
}

template <class T>
bool EGridResamplerOf<T>::Copy(const VecInt3D& min, const VecInt3D& max, host::HostThread* thread) {
  if (!mSource || !mTarget) return false;
  const EGrid<T>& source = *mSource;
  EGrid<T>& target = *mTarget;
  return WithWriter<T>(mWriteMode, source, target, [&](auto write) {
    return ForEachRow(min, max, thread, [&](i32 y, i32 z) {
      const T* from = source.mData + source.Index(mOffset.x, y + mOffset.y, z + mOffset.z);
      T* to = target.mData + target.Index(0, y, z);
      for (i32 x = min.x; x < max.x; ++x) write(to[x], from[x]);
    });
  });
}

template <class T>
GridOverlap OverlapOf(const EGrid<T>& source, const EGrid<T>& target) {
  const VecInt3D a = source.mLayout.originCell, b = target.mLayout.originCell;
  const VecInt3D low = Max(a, b);
  const VecInt3D high = Min(a + source.Dims(), b + target.Dims());
  return {{low - b, high - b}, b - a};
}

template <class T>
std::unique_ptr<EGrid<T>> Resized(const EGrid<T>* old, const VecInt3D& dims, const Vec3d& worldSize,
                                  f32 cellSize, i32 kind, const Vec3d& worldOrigin,
                                  double initial) {
  auto grid = std::make_unique<EGrid<T>>(dims, worldSize, cellSize, kind, worldOrigin);
  if (!grid->mData) return grid;
  grid->Fill(static_cast<T>(initial));
  if (!old) return grid;
  grid->mRangeMin = old->mRangeMin;
  grid->mRangeMax = old->mRangeMax;
  if (!old->mData || old->mLayout.count <= 1 || grid->mLayout.count <= 1) return grid;
  const GridOverlap overlap = OverlapOf(*old, *grid);
  EGridResamplerOf<T> resampler;
  if (!overlap.box.IsEmpty() &&
      resampler.Init(old, grid.get(), true, SAMPLE_LINEAR, kWriteValue, overlap.offset, true))
    resampler.Copy(overlap.box.min, overlap.box.max, nullptr);
  return grid;
}

template class EGridResamplerOf<double>;
template class EGridResamplerOf<float>;
template GridOverlap OverlapOf(const EGrid<double>&, const EGrid<double>&);
template GridOverlap OverlapOf(const EGrid<float>&, const EGrid<float>&);
template std::unique_ptr<EGrid<double>> Resized(const EGrid<double>*, const VecInt3D&, const Vec3d&,
                                                f32, i32, const Vec3d&, double);
template std::unique_ptr<EGrid<float>> Resized(const EGrid<float>*, const VecInt3D&, const Vec3d&,
                                               f32, i32, const Vec3d&, double);

}  // namespace MELDO_GLOBAL
