#include "fluids/gas_rig.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

/// Closes the u faces of a slab of x indices, and runs an extrapolation alone.
struct ClosedSlab {
  GasRig rig{{14, 8, 8}};
  EGrid<double>* u;
  EGrid<float>* open;

  ClosedSlab(i32 first, i32 last, i32 rounds) : mRounds(rounds) {
    rig.Begin();
    u = rig.gas->mFlow.mVelocity.GetGrid(0);
    open = rig.gas->mFlow.mFractions.GetWrite(0, 1);
    open->Fill(1);
    u->Fill(5);
    for (i32 z = 0; z < u->mNz; ++z)
      for (i32 y = 0; y < u->mNy; ++y)
        for (i32 x = first; x <= last; ++x) (*open)(x, y, z) = 0, (*u)(x, y, z) = -1;
  }
  void Run() { rig.gas->mExtrapolation.ExtendVelocity(rig.gas->mFlow, mRounds); }
  i32 mRounds;
};

}  // namespace

TEST(GridExtrapolation, GrowsByOneLayerARound) {
  ClosedSlab slab(4, 11, 2);
  slab.Run();
  const EGrid<double>& u = *slab.u;
  EXPECT_EQ(u(4, 4, 4), 5);
  EXPECT_EQ(u(5, 4, 4), 5);
  EXPECT_EQ(u(6, 4, 4), -1);
  EXPECT_EQ(u(9, 4, 4), -1);
  EXPECT_EQ(u(10, 4, 4), 5);
  EXPECT_EQ(u(11, 4, 4), 5);
}

TEST(GridExtrapolation, AnotherAxisRunsAsWell) {
  ClosedSlab slab(4, 5, 1);
  EGrid<double>& w = *slab.rig.gas->mFlow.mVelocity.GetGrid(2);
  EGrid<float>& open = *slab.rig.gas->mFlow.mFractions.GetWrite(2, 1);
  open.Fill(1);
  w.Fill(2);
  open(5, 5, 5) = 0;
  w(5, 5, 5) = 9;
  slab.Run();
  EXPECT_EQ(w(5, 5, 5), 2);
}

TEST(GridExtrapolation, TakesTheMeanOfKnownNeighbours) {
  ClosedSlab slab(6, 6, 1);
  EGrid<double>& u = *slab.u;
  for (i32 z = 0; z < u.mNz; ++z)
    for (i32 y = 0; y < u.mNy; ++y) u(5, y, z) = 2, u(7, y, z) = 4;
  slab.Run();
  EXPECT_EQ(u(6, 4, 4), 3);
  EXPECT_EQ(u(6, 0, 4), -1);  // the outermost layer isn't touched
}

TEST(GridExtrapolation, StopsTwoCellsInsideSolids) {
  ClosedSlab slab(4, 11, 6);
  EGrid<double>& phi = *slab.rig.gas->mFlow.mBoundary.GetLevelSet();
  const double h = phi.mLayout.cellSize;
  // Solid from the node plane x = 4 on, a distance field.
  for (i32 z = 0; z < phi.mNz; ++z)
    for (i32 y = 0; y < phi.mNy; ++y)
      for (i32 x = 0; x < phi.mNx; ++x) phi(x, y, z) = (4 - x) * h;
  slab.Run();
  const EGrid<double>& u = *slab.u;
  EXPECT_EQ(u(6, 4, 4), 5);   // 2 h deep
  EXPECT_EQ(u(7, 4, 4), -1);  // 3 h
}

TEST(GridExtrapolation, WithoutRoundsNothingHappens) {
  ClosedSlab slab(4, 5, 0);
  slab.Run();
  EXPECT_EQ((*slab.u)(4, 4, 4), -1);
}

TEST(GridExtrapolation, FieldsGrowFromWhatLiesAboveTheirInitialValue) {
  GridLayout layout;
  layout.Set({7, 6, 5}, {70, 60, 50}, 0.1f, {});
  EGrid<double> field(layout, kCentre);
  field.Fill(-1);
  field(3, 2, 2) = 4;
  GridExtrapolation extrapolation;
  extrapolation.ExtendField(field, -1, 2, 3);
  EXPECT_EQ(field(3, 3, 2), 4);
  EXPECT_EQ(field(5, 2, 2), 4);
  EXPECT_EQ(field(4, 3, 2), 4) << "a corner takes two rounds";
  EXPECT_EQ(field(5, 3, 2), -1);
  EXPECT_EQ(field(3, 2, 4), -1) << "the outermost layer";
}

TEST(VelocityConstrain, ClosedFacesStickSlideOrBlend) {
  for (const double blend : {0.0, 0.25, 1.0}) {
    GasRig rig({10, 8, 8});
    rig.gasNode->Set(1035, blend);
    rig.Begin();
    // A solid below the node plane x = 4.
    EGrid<double>& phi = *rig.gas->mFlow.mBoundary.GetLevelSet();
    const double h = phi.mLayout.cellSize;
    for (i32 i = 0; i < phi.mCount; ++i) phi[i] = (i % phi.mNx - 4) * h;
    for (i32 a = 0; a < 3; ++a) {
      EGrid<float>& open = *rig.gas->mFlow.mFractions.GetWrite(a, 1);
      for (i32 i = 0; i < open.mCount; ++i) open[i] = i % open.mNx < 4 ? 0 : 1;
    }
    rig.FillVelocity([](const Vec3d&) { return Vec3d{1, 2, 3}; });
    rig.gas->mConstrain.Run(rig.gas->mFlow);
    const VelocityField& v = rig.gas->mFlow.mVelocity;
    EXPECT_NEAR((*v.GetGrid(0))(2, 4, 4), 0, 1e-12) << "across the surface";
    EXPECT_NEAR((*v.GetGrid(1))(2, 4, 4), 2 * blend, 1e-12) << "along it";
    EXPECT_NEAR((*v.GetGrid(2))(2, 4, 4), 3 * blend, 1e-12);
    EXPECT_EQ((*v.GetGrid(0))(6, 4, 4), 1) << "open faces";
    EXPECT_EQ((*v.GetGrid(1))(0, 4, 4), 2) << "outermost layer";
  }
}
