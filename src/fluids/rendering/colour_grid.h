// Three components per cell, stored together for reading along rays.
#pragma once
#include <memory>

#include "fluids/rendering/field_view.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

/// A grid of colours in single precision, read trilinearly at places in the world; all components
/// of a corner come in one load.
class ColourGrid {
 public:
  bool IsEmpty() const { return !mTexels; }
  void Clear() { mTexels.reset(); }
  /// Copies three grids of one shape.
  void Take(const EGrid<double>& x, const EGrid<double>& y, const EGrid<double>& z) {
    mMap = CellMap(x.mLayout);
    mDims = x.Dims();
    mTexels = std::make_unique<Texel[]>(x.mCount);
    for (i32 i = 0; i < x.mCount; ++i)
      mTexels[i] = Texel{static_cast<f32>(x[i]), static_cast<f32>(y[i]), static_cast<f32>(z[i]), 0};
  }

  /// Where a place lies in the cells; grids of one shape share it.
  struct Place {
    i32 index;
    f32 fx, fy, fz;
  };
  Place PlaceOf(const Vec3d& world) const {
    const Vec3d c = mMap(world);
    const AxisStencil x = LinearStencil(c.x, mDims.x), y = LinearStencil(c.y, mDims.y),
                      z = LinearStencil(c.z, mDims.z);
    return {(z.index * mDims.y + y.index) * mDims.x + x.index, static_cast<f32>(x.fraction),
            static_cast<f32>(y.fraction), static_cast<f32>(z.fraction)};
  }
  Vec3d At(const Place& place) const {
    const Texel* p = mTexels.get() + place.index;
    const i32 ny = mDims.x, nz = mDims.x * mDims.y;
    const auto mix = [](const Texel& a, const Texel& b, f32 t) { return a + (b - a) * t; };
    const Texel low = mix(mix(p[0], p[1], place.fx), mix(p[ny], p[ny + 1], place.fx), place.fy);
    const Texel high =
        mix(mix(p[nz], p[nz + 1], place.fx), mix(p[nz + ny], p[nz + ny + 1], place.fx), place.fy);
    const Texel v = mix(low, high, place.fz);
    return {v[0], v[1], v[2]};
  }
  Vec3d At(const Vec3d& world) const { return At(PlaceOf(world)); }

 private:
  using Texel = f32 __attribute__((vector_size(16)));
  CellMap mMap;
  VecInt3D mDims{};
  std::unique_ptr<Texel[]> mTexels;
};

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
