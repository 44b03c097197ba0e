#include <random>

#include "fluids/flow/wall_velocities.h"
#include "fluids/gas_rig.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using host::InExcludeData;

namespace {

VecInt3D DimsAfterFit(GasRig& rig, const Vec3d& min, const Vec3d& max) {
  rig.SetUp();
  rig.Fit(min, max);
  return rig.gas->mFlow.GetLayout() ? rig.gas->mFlow.GetLayout()->dims : VecInt3D{};
}

StaggeredGrids GridsOf(const VelocityField& v) {
  return {v.GetGrid(0), v.GetGrid(1), v.GetGrid(2)};
}

void FillRandom(EGrid<double>& g, u32 seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> unit(-1, 1);
  for (i32 i = 0; i < g.mCount; ++i) g[i] = unit(random);
}

/// Velocity through the open part of a face.
double Flux(const GasRig& rig, i32 axis, i32 x, i32 y, i32 z) {
  return (*rig.gas->mFlow.GetOpenFaces(axis))(x, y, z) *
         (*rig.gas->mFlow.mVelocity.GetGrid(axis))(x, y, z);
}

}  // namespace

TEST(FluidSolverBounds, FollowTheContentInsideTheUsersBox) {
  GasRig rig({40, 40, 40});
  // Padding of 5 cells round a content of 4.
  EXPECT_EQ(DimsAfterFit(rig, {18, 18, 18}, {22, 22, 22}), (VecInt3D{14, 14, 14}));
  EXPECT_EQ(rig.gas->mFlow.GetLayout()->originCell, (VecInt3D{13, 13, 13}));
  // Content that isn't on the lattice is snapped outwards.
  EXPECT_EQ(DimsAfterFit(rig, {18.5, 18, 18}, {21.5, 22, 22}), (VecInt3D{14, 14, 14}));
  // The box, and one layer round it, is the limit.
  EXPECT_EQ(DimsAfterFit(rig, {-9, 2, 38}, {60, 4, 39}), (VecInt3D{42, 10, 8}));
  EXPECT_EQ(rig.gas->mFlow.GetLayout()->originCell, (VecInt3D{-1, -1, 33}));
}

TEST(FluidSolverBounds, WithoutContentInTheBoxTheSolverHasNoGrids) {
  GasRig rig({10, 10, 10});
  EXPECT_EQ(DimsAfterFit(rig, {20, 0, 0}, {30, 10, 10}), (VecInt3D{}));
  EXPECT_FALSE(rig.gas->Has(FLAG_ACTIVE));
  // Touching counts, from the widened box on.
  EXPECT_EQ(DimsAfterFit(rig, {11, 0, 0}, {30, 10, 10}).x, 5);
  EXPECT_TRUE(rig.gas->Has(FLAG_ACTIVE));
  // A point of content still gives cells.
  rig.gasNode->Set(1009, i32{0});
  rig.gasNode->Set(FluidSolver::kSidesRow, i32{1});
  EXPECT_EQ(DimsAfterFit(rig, {5, 5, 5}, {5, 5, 5}), (VecInt3D{2, 2, 2}));
  rig.scene->mTime.stepDuration = 0;
  EXPECT_EQ(DimsAfterFit(rig, {0, 0, 0}, {10, 10, 10}), (VecInt3D{}));
}

TEST(FluidSolverBounds, TheNodeIsTheLowCornerLessTheOffset) {
  GasRig rig({10, 10, 10});
  rig.gasNode->SetPlacement({30, 0, 0}, {}, {1, 1, 1});
  rig.gasNode->Set(1028, Vec3d{0, 0.5, 0});
  DimsAfterFit(rig, {-50, -50, -50}, {50, 50, 50});
  EXPECT_EQ(rig.gas->mFlow.GetLayout()->originCell, (VecInt3D{2, -6, -1}));
  EXPECT_EQ(rig.gas->mFlow.GetLayout()->dims, (VecInt3D{12, 12, 12}));
}

TEST(FluidSolverBounds, ALatticeThatDoesNotRoundNeverDrifts) {
  for (const double h : {0.1, 0.035, 0.2, 1.0 / 3, 0.07}) {
    GasRig rig({60, 60, 60}, h);
    rig.gasNode->Set(1009, i32{0});
    rig.gasNode->Set(FluidSolver::kSidesRow, i32{1});
    const VecInt3D dims = DimsAfterFit(rig, {7, 8, 9}, {50, 51, 52});
    EXPECT_EQ(dims, (VecInt3D{43, 43, 43})) << h;
    const GridLayout first = *rig.gas->mFlow.GetLayout();
    // What a grid reports as its own box must give the same grid again.
    const double cell = rig.scene->mDomain.cellSize;
    rig.Fit(first.simOrigin * (1 / cell), first.simMax * (1 / cell));
    EXPECT_TRUE(rig.gas->mFlow.GetLayout()->Equals(first)) << h;
  }
}

TEST(FluidSolverBounds, GrowthLeavesEveryOldCellBitEqual) {
  GasRig rig({64, 64, 64}, 0.035);
  DimsAfterFit(rig, {20, 20, 20}, {30, 30, 30});
  EGrid<double>* before[3];
  std::unique_ptr<EGrid<double>> kept[3];
  for (i32 a = 0; a < 3; ++a) {
    before[a] = rig.gas->mFlow.mVelocity.GetGrid(a);
    FillRandom(*before[a], 7 + a);
    kept[a] = std::make_unique<EGrid<double>>(*before[a]);
  }
  DimsAfterFit(rig, {17, 20, 15}, {31, 36, 30});
  for (i32 a = 0; a < 3; ++a) {
    const EGrid<double>& grown = *rig.gas->mFlow.mVelocity.GetGrid(a);
    ASSERT_NE(grown.Dims(), kept[a]->Dims());
    const VecInt3D shift = kept[a]->mLayout.originCell - grown.mLayout.originCell;
    ForEachCell({{0, 0, 0}, kept[a]->Dims()}, [&](i32 x, i32 y, i32 z) {
      ASSERT_EQ(grown(x + shift.x, y + shift.y, z + shift.z), (*kept[a])(x, y, z));
    });
    EXPECT_EQ(grown(0, 0, 0), 0);
  }
}

TEST(WallVelocities, NormalFlowStopsAtWallsAndPassesOpenSides) {
  GasRig rig({4, 4, 4});
  rig.Begin();
  VelocityField& velocity = rig.gas->mFlow.mVelocity;
  for (i32 a = 0; a < 3; ++a) velocity.GetGrid(a)->Fill(3);
  SetWallVelocities(GridsOf(velocity), kWallLowX | kWallHighY, 1.0);
  const EGrid<double>&u = *velocity.GetGrid(0), &v = *velocity.GetGrid(1);
  EXPECT_EQ(u(0, 3, 3), 0);
  EXPECT_EQ(u(1, 3, 3), 0);
  EXPECT_EQ(u(2, 3, 3), 3);
  EXPECT_EQ(u(6, 3, 3), 3);  // open: the inner face copied outwards
  EXPECT_EQ(v(3, 0, 3), 3);
  EXPECT_EQ(v(3, 5, 3), 0);
  EXPECT_EQ(v(3, 6, 3), 0);
}

TEST(WallVelocities, TangentialLayersFollowTheFactorAtWallsAlone) {
  GasRig rig({4, 4, 4});
  rig.Begin();
  VelocityField& velocity = rig.gas->mFlow.mVelocity;
  const auto run = [&](u8 walls, double factor) {
    for (i32 a = 0; a < 3; ++a) velocity.GetGrid(a)->Fill(3);
    EGrid<double>& u = *velocity.GetGrid(0);
    for (i32 x = 0; x < u.mNx; ++x) u(x, 0, 3) = 7;
    SetWallVelocities(GridsOf(velocity), walls, factor);
  };
  run(kWallLowY, 0.5);
  const EGrid<double>& u = *velocity.GetGrid(0);
  EXPECT_EQ(u(3, 0, 3), 1.5);
  EXPECT_EQ(u(2, 0, 3), 1.5);
  EXPECT_EQ(u(1, 0, 3), 1.5);  // to both ends, as on all other sides
  EXPECT_EQ(u(u.mNx - 2, 0, 3), 1.5);
  EXPECT_EQ((*velocity.GetGrid(2))(3, 0, 3), 1.5);
  run(0, 0.5);
  EXPECT_EQ(u(3, 0, 3), 7);
}

TEST(FluidSolver, SleepsInTheStartFrame) {
  GasRig rig({4, 4, 4});
  rig.scene->mTime.frameIndex = 0;
  rig.SetUp();
  EXPECT_FALSE(rig.gas->IsDirty());
  rig.scene->mTime.frameIndex = 1;
  rig.SetUp();
  EXPECT_TRUE(rig.gas->IsDirty());
  rig.scene->mFlags &= ~Scene::kTimeChanged;
  rig.SetUp();
  EXPECT_FALSE(rig.gas->IsDirty());
}

TEST(FluidSolver, AClosedBoxAtRestStaysAtRest) {
  GasRig rig({8, 8, 8});
  host::BaseNode& advection = rig.Add("grid_advection", "move");
  advection.Set(1005, LinkTo(*rig.gasNode));
  for (i32 i = 0; i < 5; ++i) rig.Step();
  for (i32 a = 0; a < 3; ++a) {
    const EGrid<double>& g = *rig.gas->mFlow.mVelocity.GetGrid(a);
    for (i32 i = 0; i < g.mCount; ++i) ASSERT_EQ(g[i], 0);
  }
  EXPECT_EQ(rig.gas->mMaxSpeedSq, 1e-8);
}

TEST(FluidSolver, ProjectionLeavesNoDivergenceWithClosedAndOpenSides) {
  for (const bool open : {false, true}) {
    GasRig rig({10, 12, 8});
    if (open) rig.Walls(1, 1, 1, 0, 1, 1);
    rig.Begin();
    for (i32 a = 0; a < 3; ++a) FillRandom(*rig.gas->mFlow.mVelocity.GetGrid(a), 11 + a);
    rig.RunGas(kForcesEmission);
    rig.RunGas(kPressure);
    const GridLayout& layout = *rig.gas->mFlow.GetLayout();
    double most = 0, flow = 0;
    ForEachCell({{1, 1, 1}, layout.dims - VecInt3D{1, 1, 1}}, [&](i32 x, i32 y, i32 z) {
      double sum = 0;
      for (i32 a = 0; a < 3; ++a) {
        const VecInt3D up = ExtraOf(a);
        sum += Flux(rig, a, x + up.x, y + up.y, z + up.z) - Flux(rig, a, x, y, z);
        flow = std::max(flow, std::abs(Flux(rig, a, x, y, z)));
      }
      most = std::max(most, std::abs(sum) / layout.cellSize);
    });
    const auto& u = *rig.gas->mFlow.mVelocity.GetGrid(0);
    const auto& v = *rig.gas->mFlow.mVelocity.GetGrid(1);
    EXPECT_LT(most, 1e-8) << open;
    EXPECT_GT(flow, 0.1) << open;
    EXPECT_EQ(u(1, 4, 4), 0);
    EXPECT_EQ(v(4, v.mNy - 2, 4) != 0, open);
    rig.RunGas(kFlip);
  }
}

TEST(FluidSolver, TheDivergenceSourceLivesForOneStepAndSetsTheOutflow) {
  GasRig rig({8, 8, 8});
  rig.Walls(1, 1, 1, 0, 1, 1);
  rig.Begin();
  EGrid<double>& source = *rig.gas->mFlow.mDivergence.GetGrid(0);
  source(4, 4, 4) = 2.0;
  rig.RunGas(kPressure);
  const EGrid<double>& v = *rig.gas->mFlow.mVelocity.GetGrid(1);
  const double h = v.mLayout.cellSize;
  double outflow = 0;
  for (i32 z = 1; z < v.mNz - 1; ++z)
    for (i32 x = 1; x < v.mNx - 1; ++x) outflow += Flux(rig, 1, x, v.mNy - 2, z) * h * h;
  EXPECT_NEAR(outflow, 2.0 * h * h * h, 1e-9);
  EXPECT_EQ(source(4, 4, 4), 0);
}
