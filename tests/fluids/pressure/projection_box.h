// A box of gas with walls and solids, as the solver would set it up for a projection.
#pragma once
#include <array>
#include <functional>
#include <memory>
#include <vector>

#include "fluids/flow/grid_boundary.h"
#include "fluids/pressure/grid_incompressibility.h"
#include "fluids/volume/volume_base.h"
#include "fluids/volume/volume_fractions.h"
#include "grids/random_stream.h"
#include "host/worker_pool.h"

namespace projection {

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

/// A layout of `cells` cells with the origin at `origin` cells; 100 host units are 1.
inline GridLayout MakeLayout(const VecInt3D& cells, f32 h, const Vec3d& origin = {}) {
  GridLayout layout;
  layout.Set(cells, ToReal(cells) * (100.0 * h), h, origin * (100.0 * h));
  return layout;
}

/// A volume from a formula.
class FormulaVolume : public VolumeBase {
 public:
  FormulaVolume(const GridLayout& layout, const std::function<double(const Vec3d&)>& distance) {
    mGrid = std::make_unique<EGrid<double>>(layout, kNode);
    ForEachCell({{0, 0, 0}, mGrid->Dims()}, [&](i32 x, i32 y, i32 z) {
      (*mGrid)(x, y, z) = distance(mGrid->PositionOf(x, y, z));
    });
    mBoxMin = layout.simOrigin;
    mBoxMax = layout.simMax;
  }
};

/// The projection on fields of its own.
class Projection : public Grid_Incompressibility {
 public:
  ProjectionFields fields;
  std::vector<MovingBody> moving;
  std::vector<const VolumeBase*> resting;

  void Gate(Duration* duration, SceneTime* time) { mDuration = duration, mTime = time; }

 protected:
  bool GatherFields(ProjectionFields& out) override {
    out = fields;
    return true;
  }
  void GatherSolids(std::vector<MovingBody>& bodies,
                    std::vector<const VolumeBase*>& others) const override {
    bodies = moving;
    others = resting;
  }
};

struct Box {
  GridLayout layout;
  GridBoundary boundary;
  Grid_VolumeFractions fractions;
  std::array<std::unique_ptr<EGrid<double>>, 3> velocity;
  std::unique_ptr<EGrid<double>> source;
  Projection projection;

  Box(const VecInt3D& cells, f32 h, u8 walls, std::vector<VolumeBase*> obstacles = {},
      const Vec3d& origin = {})
      : layout(MakeLayout(cells, h, origin)) {
    boundary.mWalls = walls;
    boundary.mObstacles = std::move(obstacles);
    boundary.mLevelSet = std::make_unique<EGrid<double>>(layout, kNode);
    boundary.Build(host::ThreadCount());
    fractions.mSource = {boundary.GetLevelSet(), nullptr};
    fractions.mMethod = FractionMethod::Analytic;
    fractions.mKinds = kFractionCell | kFractionFaces;
    fractions.mInvert = true;
    fractions.Measure(host::ThreadCount());
    for (i32 axis = 0; axis < 3; ++axis) {
      velocity[axis] = std::make_unique<EGrid<double>>(layout, axis);
      projection.fields.velocity[axis] = velocity[axis].get();
      projection.fields.open[axis] = fractions.GetRead(axis, 1);
    }
    source = std::make_unique<EGrid<double>>(layout, kCentre);
    projection.fields.openCell = fractions.GetRead(0, 0);
    projection.fields.source = source.get();
    projection.fields.dt = 0.02;
    projection.mLinearSolver = 0;
    projection.mDensity = 1.23;
  }

  void Randomise(u32 seed) {
    RandomStream random;
    random.Seed(seed);
    for (auto& grid : velocity)
      for (i32 i = 0; i < grid->mCount; ++i) grid->mData[i] = 2 * random.NextUnit() - 1;
  }

  void Project() { projection.Project(); }

  /// The volume flow out of a cell through the open parts of its faces, 1/s.
  double Divergence(i32 x, i32 y, i32 z) const {
    double sum = 0;
    for (i32 axis = 0; axis < 3; ++axis) {
      VecInt3D high{x, y, z};
      ++high[axis];
      const EGrid<float>& open = *fractions.GetRead(axis, 1);
      sum += open(high.x, high.y, high.z) * (*velocity[axis])(high.x, high.y, high.z) -
             open(x, y, z) * (*velocity[axis])(x, y, z);
    }
    return sum / layout.cellSize;
  }
  template <class F>
  void ForEachInnerCell(F&& f) const {
    ForEachCell({{1, 1, 1}, layout.dims - VecInt3D{1, 1, 1}}, f);
  }
  bool IsOpen(i32 x, i32 y, i32 z) const {
    for (i32 axis = 0; axis < 3; ++axis) {
      VecInt3D high{x, y, z};
      ++high[axis];
      const EGrid<float>& open = *fractions.GetRead(axis, 1);
      if (open(x, y, z) > 0 || open(high.x, high.y, high.z) > 0) return true;
    }
    return false;
  }
  double LargestDivergence() const {
    double top = 0;
    ForEachInnerCell(
        [&](i32 x, i32 y, i32 z) { top = std::max(top, std::fabs(Divergence(x, y, z))); });
    return top;
  }
  std::vector<double> Faces() const {
    std::vector<double> all;
    for (const auto& grid : velocity)
      all.insert(all.end(), grid->mData, grid->mData + grid->mCount);
    return all;
  }
};

inline double LargestDifference(const std::vector<double>& a, const std::vector<double>& b) {
  double top = 0;
  for (std::size_t i = 0; i < a.size(); ++i) top = std::max(top, std::fabs(a[i] - b[i]));
  return top;
}

/// A ball at `centre` (cells) of `radius` (cells), on a grid that covers it with a margin of 4.
inline std::unique_ptr<FormulaVolume> Ball(const Vec3d& centre, double radius, f32 h) {
  const i32 reach = static_cast<i32>(std::ceil(radius)) + 4;
  const Vec3d low{std::floor(centre.x) - reach, std::floor(centre.y) - reach,
                  std::floor(centre.z) - reach};
  const i32 n = 2 * reach + 1;
  return std::make_unique<FormulaVolume>(MakeLayout({n, n, n}, h, low), [=](const Vec3d& p) {
    return Length(p - centre * double(h)) - radius * h;
  });
}

}  // namespace projection
