#include <gtest/gtest.h>

#include "fluids/gas_rig.h"
#include "fluids/operators/grid_variable_density.h"
#include "fluids/operators/operator_rig.h"
#include "fluids/pressure/projection_box.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

/// A staggered field of the scene.
class StaggeredChannel : public VelocityField {
 public:
  StaggeredChannel(host::BaseNode* node, Scene* scene) {
    Rebind(node, scene);
    SetUnbounded();
  }
  bool ReadParameters() override { return true; }
};

class Density : public testing::Test {
 protected:
  Density()
      : density(s.Add<PlainField>("channel_scalar", "density")),
        gas(s.Add<PlainField>("channel_scalar", "gas")),
        heat(s.Add<TemperatureField>("channel_temp", "heat")),
        mix(s.Add<GridVariableDensity>("grid_variabledensity", "mix")) {
    OperatorRig::Link(mix, 1000, density);
    OperatorRig::Link(mix, 1001, gas);
    OperatorRig::Link(mix, 1002, heat);
    OperatorRig::Set(mix, 1004, 1.2);
    OperatorRig::Set(mix, 1005, 0.3);
  }
  void Randomise() {
    OperatorRig::Randomise(*gas.mGrid, 1, 0, 1);
    OperatorRig::Randomise(*heat.mGrid, 2, 0, 2000);
  }
  OperatorRig s{{7, 6, 9}};
  PlainField& density;
  PlainField& gas;
  TemperatureField& heat;
  GridVariableDensity& mix;
};

}  // namespace

TEST_F(Density, FollowsTemperatureAndMixture) {
  OperatorRig::Set(density, 1001, i32{1});
  s.Begin();
  (*heat.mGrid)(2, 2, 2) = 294;
  (*gas.mGrid)(3, 2, 2) = 1;
  (*gas.mGrid)(4, 2, 2) = 0.5;
  (*heat.mGrid)(5, 2, 2) = 1e6;
  for (i32 step = 0; step < 2; ++step) {
    // Cleared by the channel itself in every step, or the second one would double it.
    density.ApplyBounds({}, ToReal(s.cells) * double{s.scene->mDomain.cellSize});
    s.Run(mix);
    EXPECT_NEAR((*density.mGrid)(1, 2, 2), 1.2, 1e-12);
    EXPECT_NEAR((*density.mGrid)(2, 2, 2), 0.6, 1e-12);
    EXPECT_NEAR((*density.mGrid)(3, 2, 2), 0.3, 1e-12);
    EXPECT_NEAR((*density.mGrid)(4, 2, 2), 0.75, 1e-12);
    EXPECT_NEAR((*density.mGrid)(5, 2, 2), 0.06, 1e-12) << "a twentieth at least";
    EXPECT_EQ((*density.mGrid)(0, 2, 2), 0) << "the border stays";
  }
  for (const iBase* channel :
       {static_cast<iBase*>(&density), static_cast<iBase*>(&gas), static_cast<iBase*>(&heat)})
    EXPECT_TRUE(channel->IsDirty());
}

TEST_F(Density, AllComponentsOfAVectorAndTheFacesOfAStaggeredField) {
  auto& vector = s.Add<VectorField>("channel_vector", "vector");
  auto& faces = s.AddOwn<StaggeredChannel>("channel_vector", "faces");
  s.Begin();
  Randomise();
  s.Run(mix);
  OperatorRig::Link(mix, 1000, vector);
  mix.ResolveLinks();
  s.Run(mix);
  for (i32 c = 0; c < 3; ++c)
    EXPECT_EQ(OperatorRig::Copy(*vector.mGrids[c]), OperatorRig::Copy(*density.mGrid));

  OperatorRig::Link(mix, 1000, faces);
  mix.ResolveLinks();
  EXPECT_TRUE(IsSameForAllThreads([&](i32 threads) {
    std::vector<double> all;
    for (auto& grid : faces.mGrids) grid->Fill(0);
    s.Run(mix, threads);
    for (auto& grid : faces.mGrids) all.insert(all.end(), grid->mData, grid->mData + grid->mCount);
    return all;
  }));
  // A face has the mean of its cells; beside the border, which has none, half of the one.
  for (i32 axis = 0; axis < 3; ++axis)
    ForEachCell({{1, 1, 1}, s.cells}, [&](i32 x, i32 y, i32 z) {
      VecInt3D below{x, y, z};
      --below[axis];
      const EGrid<double>& d = *density.mGrid;
      ASSERT_NEAR((*faces.mGrids[axis])(x, y, z), 0.5 * (d(x, y, z) + d(below.x, below.y, below.z)),
                  1e-14);
    });
}

TEST_F(Density, ThreadsDontShow) {
  s.Begin();
  Randomise();
  EXPECT_TRUE(IsSameForAllThreads([&](i32 threads) {
    density.mGrid->Fill(0);
    s.Run(mix, threads);
    return OperatorRig::Copy(*density.mGrid);
  }));
}

// Under gravity a light ball in a heavy gas at rest starts to rise with
// g (outer - inner) / (inner + outer / 2): its own mass and half of what it pushes aside
// (Batchelor, An Introduction to Fluid Dynamics, 1967, section 6.8).
TEST(DensityFlow, ALightBallRisesAgainstItsAddedMass) {
  const i32 n = 44;
  const double outer = 1.2, dt = 0.01, g = 9.81, radius = 5;
  const auto rise = [&](double inner) {
    GasRig rig({n, n, n});
    rig.scene->mTime.stepDuration = dt;
    rig.gasNode->Set(1022, 1.0);
    host::BaseNode& densityNode = rig.Add("channel_scalar", "density");
    host::BaseNode& gasNode = rig.Add("channel_scalar", "light gas");
    host::BaseNode& heatNode = rig.Add("channel_temp", "heat");
    host::BaseNode& mixNode = rig.Add("grid_variabledensity", "mix");
    densityNode.Set(1001, i32{1});
    mixNode.Set(1000, LinkTo(densityNode));
    mixNode.Set(1001, LinkTo(gasNode));
    mixNode.Set(1002, LinkTo(heatNode));
    mixNode.Set(1004, outer);
    mixNode.Set(1005, inner);
    rig.gasNode->Set(1000, LinkTo(densityNode));
    rig.Begin();
    const double h = rig.scene->mDomain.cellSize;
    const Vec3d centre = Vec3d{1, 1, 1} * (0.5 * n * h);
    // The share of a cell inside the ball, so that the ball has its volume.
    GasRig::Fill(*rig.Object<PlainField>(gasNode)->mGrid, [&](const Vec3d& p) {
      return std::clamp(0.5 + radius - Length(p - centre) / h, 0.0, 1.0);
    });
    rig.FillVelocity([&](const Vec3d&) { return Vec3d{0, -g * dt, 0}; });
    rig.RunOperators();
    rig.RunGas(kPressure);
    const EGrid<double>& v = *rig.gas->mFlow.mVelocity.GetGrid(1);
    double sum = 0, count = 0;
    ForEachCell({{1, 1, 1}, v.Dims() - VecInt3D{1, 1, 1}}, [&](i32 x, i32 y, i32 z) {
      if (Length(v.PositionOf(x, y, z) - centre) > 0.7 * radius * h) return;
      sum += v(x, y, z);
      ++count;
    });
    return sum / count / dt;
  };
  for (const double inner : {0.3, 0.7, 1.2, 2.4}) {
    const double expected = g * (outer - inner) / (inner + 0.5 * outer);
    EXPECT_NEAR(rise(inner), expected, 0.09 * std::fabs(expected) + 1e-6) << inner;
  }
}

// Through open sides the outermost layer, which holds no density, counts as its neighbours: a
// uniform density is no different from the constant one there either.
TEST(DensityFlow, EmptyBorderCellsTakeTheDensityOfTheirNeighbours) {
  const auto project = [](bool uniform) {
    projection::Box box({12, 11, 10}, 0.1f, 0);
    box.Randomise(5);
    EGrid<double> density(box.layout, kCentre);
    box.ForEachInnerCell([&](i32 x, i32 y, i32 z) { density(x, y, z) = 0.9; });
    box.projection.mDensity = 0.9;
    if (uniform) box.projection.fields.density.fill(&density);
    box.Project();
    return box.Faces();
  };
  EXPECT_LT(projection::LargestDifference(project(true), project(false)), 1e-8);
}
