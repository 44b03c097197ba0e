#include "fluids/flow/grid_cellstates.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>

#include "fluids/gas_rig.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

constexpr double kCell = 0.1;
const Vec3d kCentre3{0.85, 0.8, 0.75};
constexpr double kRadius = 0.33;

/// A box with a ball in it, after the stage that builds solids.
struct CellStates {
  GasRig rig{{16, 15, 14}, kCell};
  Flow& flow = rig.gas->mFlow;
  std::unique_ptr<EGrid<double>> surface;
  Grid_Cellstates states;

  explicit CellStates(bool openTop = false) {
    if (openTop) rig.Walls(1, 1, 1, 0, 1, 1);
    rig.Begin();
    EGrid<double>& phi = *flow.mBoundary.GetLevelSet();
    ForEachCell({{0, 0, 0}, phi.Dims()}, [&](i32 x, i32 y, i32 z) {
      const double ball = Length(phi.PositionOf(x, y, z) - kCentre3) - kRadius;
      phi(x, y, z) = std::min(phi(x, y, z), ball);
    });
    EXPECT_TRUE(flow.mFractions.Measure(2));
  }
  VecInt3D Cells() const { return flow.GetLayout()->dims; }
  void Run(i32 workers) {
    rig.scene->mThreadCount = workers;
    ASSERT_TRUE(states.Build(flow));
  }
  /// Calls f(state, centre of the face, index) for all faces of a component.
  template <class F>
  void ForEachFace(i32 axis, F&& f) const {
    const EGrid<double>& velocity = *flow.mVelocity.GetGrid(axis);
    const Grid<u8>& grid = *states.GetStates(axis);
    ASSERT_EQ(grid.Dims(), velocity.Dims());
    ForEachCell({{0, 0, 0}, grid.Dims()}, [&](i32 x, i32 y, i32 z) {
      f(grid(x, y, z), velocity.PositionOf(x, y, z), VecInt3D{x, y, z});
    });
  }
};

}  // namespace

TEST(CellStates, FacesInSolidsAndAtBordersAreFixed) {
  CellStates box;
  box.Run(3);
  for (i32 axis = 0; axis < 3; ++axis) {
    i32 solved = 0;
    const VecInt3D n = box.Cells() + ExtraOf(axis);
    box.ForEachFace(axis, [&](u8 state, const Vec3d& p, const VecInt3D& i) {
      const double distance = Length(p - kCentre3) - kRadius;
      const i32 border = std::min({i.x, i.y, i.z, n.x - 1 - i.x, n.y - 1 - i.y, n.z - 1 - i.z});
      const i32 own = std::min(i[axis], n[axis] - 1 - i[axis]);
      // The corners of a face reach 0.71 cells from its centre, and up to 0.08 out of the ball.
      if (border < 1 || own < 2 || distance < -0.1 * kCell) {
        EXPECT_EQ(state, kFaceFixed) << axis << " " << distance / kCell;
      } else if (distance > 0.72 * kCell) {
        EXPECT_EQ(state, kFaceSolved) << axis << " " << distance / kCell;
      }
      solved += state == kFaceSolved;
      EXPECT_NE(state, kFaceOutOfBand) << "a gas has no surface";
    });
    EXPECT_GT(solved, 1000);
  }
}

TEST(CellStates, AnOpenSideIsBorderAlone) {
  CellStates box(true);
  box.Run(2);
  const Grid<u8>& v = *box.states.GetStates(1);
  const i32 top = v.mNy - 1;
  EXPECT_EQ(v(3, top, 3), kFaceFixed);
  EXPECT_EQ(v(3, top - 1, 3), kFaceFixed);
  EXPECT_EQ(v(3, top - 2, 3), kFaceSolved);
  EXPECT_EQ((*box.states.GetStates(0))(3, v.mNy - 2, 3), kFaceFixed) << "the top row of cells";
  EXPECT_EQ((*box.states.GetStates(0))(3, v.mNy - 3, 3), kFaceSolved);
}

TEST(CellStates, FacesFarFromTheLiquidAreOutOfBand) {
  CellStates box;
  auto& surface = box.surface;
  surface = std::make_unique<EGrid<double>>(*box.flow.GetLayout(), kCentre);
  const double level = 0.5;
  box.flow.mSurface = surface.get();
  GasRig::Fill(*surface, [&](const Vec3d& p) { return p.y - level; });
  box.Run(2);
  for (i32 axis = 0; axis < 3; ++axis) {
    i32 far = 0;
    box.ForEachFace(axis, [&](u8 state, const Vec3d& p, const VecInt3D&) {
      if (state == kFaceFixed) return;
      const double cells = (p.y - level) / kCell;
      if (std::abs(cells - 3) < 1e-6) return;  // on the edge of the band
      EXPECT_EQ(state, cells < 3 ? kFaceSolved : kFaceOutOfBand) << axis << " " << cells;
      far += state == kFaceOutOfBand;
    });
    EXPECT_GT(far, 200);
  }
}

TEST(CellStates, NeedSolidsAndDoNotDependOnTheWorkers) {
  CellStates box;
  box.Run(1);
  const Grid<u8> one(*box.states.GetStates(2));
  box.Run(5);
  EXPECT_EQ(std::memcmp(one.mData, box.states.GetStates(2)->mData, one.mCount), 0);
  box.states.Release();
  EXPECT_EQ(box.states.GetStates(2), nullptr);
  box.flow.mBoundary.Release();
  EXPECT_FALSE(box.states.Build(box.flow));
  EXPECT_EQ(box.states.GetStates(2), nullptr);
}
