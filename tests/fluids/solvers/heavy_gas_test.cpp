// Gas with a density of its own in each cell, beside solids.
#include <gtest/gtest.h>

#include "fluids/advection/grid_advection.h"
#include "fluids/gas_rig.h"
#include "fluids/volume/mesh_solid.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

/// A closed box under gravity whose gas takes its weight from a channel that moves along.
struct HeavyRig : GasRig {
  static constexpr i32 kCells = 20;
  static constexpr double kCellSize = 0.1;
  explicit HeavyRig(i32 threads = 1) : GasRig({kCells, kCells, kCells}, kCellSize, threads) {
    host::BaseNode& channel = Add("channel_scalar", "rho");
    channel.Set(1050, 0.01);
    channel.Set(1051, 100.0);
    channel.Set(1052, 1.2);
    rho = Object<ScalarField>(channel);
    gasNode->Set(FluidSolver::kDensityChannelRow, LinkTo(channel));
    Add("force_gravity", "gravity");
    host::BaseNode& move = Add("grid_advection", "move rho");
    move.Set(GridAdvection::kTargetRow, LinkTo(channel));
    move.Set(GridAdvection::kSolverRow, LinkTo(*gasNode));
    Add("grid_advection", "move").Set(GridAdvection::kSolverRow, LinkTo(*gasNode));
  }
  void AddBox(const Vec3d& at, const Vec3d& size, double aboutZ, double aboutY) {
    solids.push_back(std::make_unique<MeshSolid>(
        TurnedBox(at, size, aboutZ, aboutY, kCellSize).mesh, kCellSize));
  }
  /// Steps from rest with the density weight(place in cells), in a container from `low` to `high`
  /// that grows by a cell to each side in every step.
  template <class F>
  void Run(i32 steps, F&& weight, Vec3d low = {}, Vec3d high = Vec3d{1, 1, 1} * kCells) {
    for (i32 i = 0; i < steps; ++i) {
      SetUp();
      Fit(low, high);
      low -= Vec3d{1, 1, 1}, high += Vec3d{1, 1, 1};
      gas->mFlow.mBoundary.mObstacles.clear();
      for (const auto& solid : solids) gas->mFlow.mBoundary.mObstacles.push_back(solid.get());
      RunGas(kEmitters);
      if (i == 0)
        Fill(*rho->GetGridForWrite(0), [&](const Vec3d& p) { return weight(p * (1 / kCellSize)); });
      RunOperators();
      for (const i32 stage : {kForcesEmission, kPressure, kFlip}) RunGas(stage);
      scene->SetStage(kFinish);
      rho->UpdateRange();
    }
  }
  double MaxSpeed() const {
    double most = 0;
    ForEachOpenFace([&](i32 axis, i32 face, double) {
      most = std::max(most, std::fabs((*gas->mFlow.mVelocity.GetGrid(axis))[face]));
    });
    return most;
  }
  /// Half the mass times the square of the speed, J.
  double KineticEnergy(double heaviest) const {
    double sum = 0;
    ForEachOpenFace([&](i32 axis, i32 face, double open) {
      const double v = (*gas->mFlow.mVelocity.GetGrid(axis))[face];
      sum += 0.5 * open * v * v;
    });
    return heaviest * sum * kCellSize * kCellSize * kCellSize;
  }

  ScalarField* rho = nullptr;
  std::vector<std::unique_ptr<MeshSolid>> solids;

 private:
  template <class F>
  void ForEachOpenFace(F&& f) const {
    const VecInt3D n = gas->mFlow.GetLayout()->dims;
    for (i32 axis = 0; axis < 3; ++axis) {
      const EGrid<float>& open = *gas->mFlow.GetOpenFaces(axis);
      ForEachCell({{1, 1, 1}, n - VecInt3D{1, 1, 1} + ExtraOf(axis)}, [&](i32 x, i32 y, i32 z) {
        const i32 face = open.Index(x, y, z);
        if (open[face] > 0) f(axis, face, open[face]);
      });
    }
  }
};

/// Solids that cut cells at all angles.
void AddSolids(i32 kind, HeavyRig& rig) {
  if (kind == 0) rig.AddBox({10, 10, 10}, {12, 3, 9}, 0.35, 0.2);
  if (kind == 1) rig.AddBox({10, 4.3, 10}, {60, 3.1, 60}, 0, 0);   // a floor
  if (kind == 2) rig.AddBox({10, 2.3, 10}, {60, 5, 60}, 0.09, 0);  // all but level
  if (kind == 3) rig.AddBox({10, 10, 10}, {0, 12, 12}, 1.2, 0.3);  // a sheet
  if (kind == 4)
    for (const double x : {5.3, 14.1}) rig.AddBox({x, 9.7, 10}, {5, 5, 5}, 0.7, x);
}

}  // namespace

TEST(HeavyGas, RestsOnSolidsWhereHeavyGasLiesBelow) {
  const auto alike = [](const Vec3d&) { return 1.2; };
  const auto layered = [](const Vec3d& p) { return p.y < 9 ? 3.0 : 1.0; };
  const auto graded = [](const Vec3d& p) { return 3 - 0.1 * p.y; };
  for (i32 kind = 0; kind < 5; ++kind) {
    HeavyRig rig, two, slope;
    for (HeavyRig* one : {&rig, &two, &slope}) AddSolids(kind, *one);
    rig.Run(3, alike);
    EXPECT_LT(rig.MaxSpeed(), 1e-8) << kind;
    two.Run(3, layered);
    EXPECT_LT(two.MaxSpeed(), 1e-6) << kind;
    slope.Run(3, graded);
    EXPECT_LT(slope.MaxSpeed(), 1e-6) << kind;
  }
}

TEST(HeavyGas, RestsInAContainerThatGrows) {
  for (i32 kind = -1; kind < 5; ++kind) {
    HeavyRig rig, constant;
    constant.gasNode->Erase(FluidSolver::kDensityChannelRow);
    for (HeavyRig* one : {&rig, &constant}) {
      AddSolids(kind, *one);
      one->Run(3, [](const Vec3d&) { return 1.2; }, {9, 9, 9}, {11, 11, 11});
    }
    // Two blocks in the sides of a container leave 1.5e-4 m/s, whatever the density is.
    EXPECT_LT(rig.MaxSpeed(), kind < 4 ? 1e-6 : 1e-3) << kind;
    EXPECT_NEAR(rig.MaxSpeed(), constant.MaxSpeed(), 1e-8) << kind;
    // Neither what trimming has emptied nor what was gained is a hole.
    const EGrid<double>& rho = *rig.rho->GetGrid(0);
    ForEachCell({{1, 1, 1}, rho.Dims() - VecInt3D{1, 1, 1}}, [&](i32 x, i32 y, i32 z) {
      if (!rig.gas->mFlow.mWallCells.IsClosed({x, y, z})) {
        ASSERT_NEAR(rho(x, y, z), 1.2, 1e-12) << kind << " " << x << " " << y << " " << z;
      }
    });
  }
}

// Heavy gas over a light one falls past solids, and gains no more than gravity gives.
TEST(HeavyGas, GainsWhatGravityGives) {
  const auto weight = [](const Vec3d& p) { return p.y > 13 && p.y < 17 && p.x < 10 ? 1.8 : 1.2; };
  for (const bool follows : {false, true})
    for (i32 kind = -1; kind < 5; ++kind) {
      HeavyRig rig;
      AddSolids(kind, rig);
      if (follows)
        rig.Run(15, weight, {9, 9, 9}, {11, 11, 11});
      else
        rig.Run(15, weight);
      EXPECT_GT(rig.MaxSpeed(), 0.3) << kind;
      EXPECT_LT(rig.MaxSpeed(), 3) << kind << " " << follows;
      // 0.4 x 1 x 2 m^3 that sink by 1.3 m.
      EXPECT_LT(rig.KineticEnergy(1.8), 0.6 * 0.4 * 1 * 2 * 9.81 * 1.3) << kind << " " << follows;
    }
}
