// The projection of a liquid on level sets of many shapes.
#include "fluids/pressure/grid_incompressibility_free_surface.h"

#include <gtest/gtest.h>

#include <cmath>

#include "projection_box.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

class LiquidProjection : public Grid_Incompressibility_FreeSurface {
 public:
  ProjectionFields fields;

 protected:
  bool GatherFields(ProjectionFields& out) override {
    out = fields;
    return true;
  }
  void GatherSolids(std::vector<MovingBody>&, std::vector<const VolumeBase*>&) const override {}
};

using Shape = std::function<double(const Vec3d& p, double n)>;  // signed distance, all in cells

/// Iterations of multigrid to 1e-6 after a step of gravity on a noisy velocity, in n^3 cells.
i32 Iterations(i32 n, const Shape& shape) {
  projection::Box box({n, n, n}, 1.0f / n, kWallsAll);
  EGrid<double> surface(box.layout, kCentre);
  ForEachCell({{0, 0, 0}, surface.Dims()}, [&](i32 x, i32 y, i32 z) {
    surface(x, y, z) = shape(ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5}, n) / n;
  });
  box.Randomise(3);
  for (auto& grid : box.velocity)
    for (i32 i = 0; i < grid->mCount; ++i) grid->mData[i] *= 0.1;
  for (i32 i = 0; i < box.velocity[1]->mCount; ++i) box.velocity[1]->mData[i] -= 0.2;
  LiquidProjection projection;
  projection.fields = box.projection.fields;
  projection.fields.source = nullptr;
  projection.fields.surface = &surface;
  projection.mLinearSolver = 2;
  projection.mDensity = 1000;
  projection.SetAccuracy({200, 1e-6}, 0.97, 0.25);
  projection.Project();
  const auto reports = projection.TakeReports();
  EXPECT_LT(reports[0].residual, 1.5e-6) << "as measured on the faces";
  return reports[0].iterations;
}

/// Blobs of differing size in one of two boxes of four cells.
double Drops(const Vec3d& p) {
  constexpr double kRoom = 4;
  const VecInt3D room{i32(p.x / kRoom), i32(p.y / kRoom), i32(p.z / kRoom)};
  const u32 noise = (room.x * 73856093u ^ room.y * 19349663u ^ room.z * 83492791u) * 2654435761u;
  if (noise >> 31) return 3;
  const double radius = 0.4 + (noise >> 8 & 255) / 170.0;
  return Length(p - (ToReal(room) + Vec3d{0.5, 0.5, 0.5}) * kRoom) - radius;
}

/// A hundred puddles on the floor.
double Puddles(const Vec3d& p, double n) {
  const double room = n / 10;
  const double x = std::fmod(p.x, room) - 0.5 * room, z = std::fmod(p.z, room) - 0.5 * room;
  return std::max(std::hypot(x, z) - 0.38 * room, p.y - 3.4);
}

}  // namespace

TEST(FreeSurface, IterationsDontGrowWithTheGridWhateverTheShape) {
  const std::pair<const char*, Shape> shapes[] = {
      {"waves",
       [](const Vec3d& p, double n) {
         return p.y - n * (0.4 + 0.1 * std::sin(6 * p.x / n) + 0.05 * std::cos(9 * p.z / n));
       }},
      {"a column", [](const Vec3d& p, double n) { return std::max(p.x - 0.3 * n, p.y - 0.6 * n); }},
      {"a sheet",
       [](const Vec3d& p, double n) { return std::abs(p.y - 0.3 * p.x - 0.4 * n) - 1.1; }},
      {"a film", [](const Vec3d& p, double) { return p.x - 2.3; }},
      {"puddles", Puddles},
      {"drops", [](const Vec3d& p, double) { return Drops(p); }},
      {"drops over a pool",
       [](const Vec3d& p, double n) { return p.y < 0.5 * n ? p.y - 0.4 * n : Drops(p); }},
  };
  for (const auto& [name, shape] : shapes) {
    const i32 coarse = Iterations(32, shape), fine = Iterations(64, shape);
    EXPECT_LE(coarse, 14) << name;
    EXPECT_LE(fine, coarse + 4) << name;
  }
}
