// Grids as a ray reads them: by places in the world.
#pragma once
#include "grids/sampling.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

/// From places in host units to sample coordinates of a grid of cell centres.
struct CellMap {
  Vec3d origin{}, scale{};
  VecInt3D dims{};

  CellMap() = default;
  explicit CellMap(const GridLayout& layout)
      : origin(layout.worldOrigin), scale(layout.worldToCell), dims(layout.dims) {}
  Vec3d operator()(const Vec3d& world) const {
    return (world - origin) * scale - Vec3d{0.5, 0.5, 0.5};
  }
  /// 0 <= c < dims on all axes.
  bool Holds(const Vec3d& c) const {
    return c.x >= 0 && c.y >= 0 && c.z >= 0 && c.x < dims.x && c.y < dims.y && c.z < dims.z;
  }
};

/// One scalar grid; null where there is none.
struct FieldView {
  const EGrid<double>* grid = nullptr;
  CellMap map;
  bool cubic = false;

  FieldView() = default;
  explicit FieldView(const EGrid<double>& g, bool useCubic = false)
      : grid(&g), map(g.mLayout), cubic(useCubic) {}
  explicit operator bool() const { return grid != nullptr; }
  double operator()(const Vec3d& world) const {
    const Vec3d c = map(world);
    return cubic ? Sample(*grid, c, SAMPLE_CUBIC) : SampleLinear(*grid, c);
  }
};

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
