#include <numbers>
#include <random>

#include "fluids/advection/grid_advection.h"
#include "fluids/advection/row_sampling.h"
#include "fluids/fields/trace_path.h"
#include "fluids/gas_rig.h"
#include "fluids/volume/mesh_solid.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

constexpr i32 kSemiLagrangian = 0, kMacCormack = 1;

struct AdvectionRig : GasRig {
  AdvectionRig(const VecInt3D& cells, double cellSize, i32 threads = 1)
      : GasRig(cells, cellSize, threads) {}

  ScalarField& AddSmoke() {
    smokeNode = &Add("channel_scalar", "smoke");
    return *Object<ScalarField>(*smokeNode);
  }
  /// A node that moves `target`, or the velocity.
  host::BaseNode& AddAdvection(const host::BaseNode* target, i32 scheme) {
    host::BaseNode& node = Add("grid_advection", "move");
    node.Set(1005, LinkTo(*gasNode));
    if (target) node.Set(1000, LinkTo(*target));
    node.Set(1002, scheme);
    return node;
  }
  host::BaseNode* smokeNode = nullptr;
};

/// A smooth divergence-free flow that doesn't cross the sides of a box of `size`.
Vec3d Swirl(const Vec3d& p, double size) {
  const double k = std::numbers::pi / size;
  return {std::sin(k * p.x) * std::cos(k * p.y), -std::cos(k * p.x) * std::sin(k * p.y), 0};
}

double Bell(const Vec3d& p, const Vec3d& centre, double radius) {
  const Vec3d d = p - centre;
  return std::exp(-Dot(d, d) / (radius * radius));
}

}  // namespace

TEST(TracePath, ConvergesAtTheOrderOfEachMethod) {
  // Trilinear samples are exact on a rotation, so what is left is the error of the path.
  const GridLayout layout = [] {
    GridLayout l;
    l.Set({20, 20, 4}, {20, 20, 4}, 1.0f, {});
    return l;
  }();
  EGrid<double> u(layout, kFaceX), v(layout, kFaceY), w(layout, kFaceZ);
  GasRig::Fill(u, [](const Vec3d& p) { return -(p.y - 10); });
  GasRig::Fill(v, [](const Vec3d& p) { return p.x - 10; });
  const StaggeredVelocity field(u, v, w);
  const auto error = [&](i32 order, i32 steps) {
    Vec3d p{14, 10, 2};
    for (i32 i = 0; i < steps; ++i) p = TracePath(field, p, 1.0 / steps, order);
    return Length(p - Vec3d{10 + 4 * std::cos(1), 10 + 4 * std::sin(1), 2});
  };
  for (i32 order = 0; order < 4; ++order) {
    const double rate = std::log2(error(order, 10) / error(order, 20));
    EXPECT_NEAR(rate, order + 1, 0.15) << order;
  }
}

TEST(GridAdvection, AConstantStaysConstant) {
  for (const i32 scheme : {kSemiLagrangian, kMacCormack})
    for (const i32 sampling : {0, 1, 2})
      for (const i32 order : {0, 1, 2, 3}) {
        AdvectionRig rig({12, 12, 6}, 0.1);
        ScalarField& smoke = rig.AddSmoke();
        host::BaseNode& node = rig.AddAdvection(rig.smokeNode, scheme);
        node.Set(1003, order);
        node.Set(1004, sampling);
        rig.Begin();
        smoke.mGrid->Fill(1);
        smoke.mPrevious->Fill(1);
        rig.FillVelocity([](const Vec3d& p) { return Swirl(p, 1.2) * 6.0; });
        for (i32 step = 0; step < 3; ++step) {
          rig.SetUp();
          rig.RunOperators();
        }
        for (i32 i = 0; i < smoke.mGrid->mCount; ++i)
          ASSERT_NEAR((*smoke.mGrid)[i], 1, 1e-12) << scheme << sampling << order;
      }
}

TEST(GridAdvection, RestsWhileItsTargetTakesNoPart) {
  AdvectionRig rig({12, 12, 6}, 0.1);
  rig.AddSmoke();
  host::BaseNode& node = rig.AddAdvection(rig.smokeNode, kSemiLagrangian);
  const auto movesVelocity = [&] {
    rig.Begin();
    rig.FillVelocity([](const Vec3d& p) { return Swirl(p, 1.2) * 6.0; });
    const auto velocity = [&] {
      const EGrid<double>& u = *rig.gas->GetFlow().mVelocity.GetGrid(0);
      return std::vector<double>(u.mData, u.mData + u.mCount);
    };
    const std::vector<double> before = velocity();
    rig.RunOperators();
    return velocity() != before;
  };
  rig.smokeNode->SetEnabled(false);
  rig.scene->Synchronise(&rig.document);
  EXPECT_FALSE(movesVelocity()) << "what is switched off is no empty link";
  EXPECT_STREQ(rig.Object<GridAdvection>(node)->mInactiveReason,
               "what it names is switched off or not in its server");
  node.Set(1000, host::Link{});
  EXPECT_TRUE(movesVelocity()) << "without a target it moves the flow";
}

TEST(GridAdvection, WholeCellsMoveExactly) {
  for (const i32 scheme : {kSemiLagrangian, kMacCormack}) {
    AdvectionRig rig({24, 12, 10}, 0.125);
    rig.Walls(0, 0, 0, 0, 0, 0);
    ScalarField& smoke = rig.AddSmoke();
    rig.AddAdvection(rig.smokeNode, scheme);
    rig.scene->mTime.stepDuration = 0.25;
    rig.Begin();
    const auto bump = [](const Vec3d& p) { return Bell(p, {0.9, 0.7, 0.6}, 0.3); };
    GasRig::Fill(*smoke.mGrid, bump);
    // Four cells along x, minus one along y in a step.
    rig.FillVelocity([](const Vec3d&) { return Vec3d{2, -0.5, 0}; });
    rig.RunOperators();
    const EGrid<double>& moved = *smoke.mGrid;
    for (i32 z = 2; z < 8; ++z)
      for (i32 y = 3; y < 9; ++y)
        for (i32 x = 8; x < 22; ++x)
          ASSERT_NEAR(moved(x, y, z), bump(moved.PositionOf(x - 4, y + 1, z)), 1e-9)
              << scheme << ": " << x << " " << y << " " << z;
  }
}

TEST(GridAdvection, WithStrengthZeroTheCorrectedSchemeIsThePlainOne) {
  std::vector<double> results[2];
  for (const i32 scheme : {kSemiLagrangian, kMacCormack}) {
    AdvectionRig rig({14, 14, 8}, 0.1);
    ScalarField& smoke = rig.AddSmoke();
    rig.AddAdvection(rig.smokeNode, scheme).Set(1007, 0.0);
    rig.Begin();
    GasRig::Fill(*smoke.mGrid, [](const Vec3d& p) { return Bell(p, {0.5, 0.7, 0.4}, 0.2); });
    rig.FillVelocity([](const Vec3d& p) { return Swirl(p, 1.4) * 4.0; });
    rig.RunOperators();
    for (i32 z = 1; z < smoke.mGrid->mNz - 1; ++z)
      for (i32 y = 1; y < smoke.mGrid->mNy - 1; ++y)
        for (i32 x = 1; x < smoke.mGrid->mNx - 1; ++x)
          results[scheme].push_back((*smoke.mGrid)(x, y, z));
  }
  EXPECT_EQ(results[0], results[1]);
}

TEST(GridAdvection, CompanionsEndAsEachAlone) {
  // Six channels: the second half of the first three differs in its path, one channel moves twice.
  const auto run = [](bool together, i32 scheme, i32 threads) {
    AdvectionRig rig({40, 22, 12}, 0.1, threads);
    std::vector<ScalarField*> fields;
    for (const i32 order : {0, 0, 0, 1, 1, 1}) {
      host::BaseNode& channel =
          rig.Add("channel_scalar", "channel " + std::to_string(fields.size()));
      fields.push_back(rig.Object<ScalarField>(channel));
      host::BaseNode& move = rig.AddAdvection(&channel, scheme);
      move.Set(1003, order);
      move.Set(1007, 1.0 - 0.1 * fields.size());
      if (fields.size() == 5) rig.AddAdvection(&channel, scheme).Set(1003, order);
    }
    rig.Begin();
    rig.FillVelocity([](const Vec3d& p) { return Swirl(p, 2.0) * 9.0; });
    for (std::size_t i = 0; i < fields.size(); ++i)
      GasRig::Fill(*fields[i]->mGrid, [&](const Vec3d& p) {
        return Bell(p, {0.5 + 0.3 * i, 0.7, 0.4}, 0.3) + 0.1 * std::sin(9 * p.x + i);
      });
    rig.RunOperators(together);
    std::vector<double> all;
    for (const ScalarField* field : fields)
      all.insert(all.end(), field->mGrid->mData, field->mGrid->mData + field->mGrid->mCount);
    return all;
  };
  for (const i32 scheme : {kSemiLagrangian, kMacCormack}) {
    const std::vector<double> alone = run(false, scheme, 1);
    EXPECT_EQ(run(true, scheme, 1), alone) << scheme;
    EXPECT_EQ(run(true, scheme, 3), alone) << scheme;
  }
}

TEST(RowSampling, RunsOfPointsRoundLikeSinglePoints) {
  const VecInt3D dims{30, 9, 8};
  Grid<double> g(dims, kCentre);
  std::mt19937 random(7);
  std::uniform_real_distribution<double> unit(0, 1);
  for (i32 i = 0; i < g.mCount; ++i) g.mData[i] = unit(random) - 0.5;
  for (i32 round = 0; round < 200; ++round) {
    // A row that drifts, so that runs of every length and place occur, the border included.
    RowVectors points;
    const double drift = 0.9 + 0.2 * unit(random);
    const Vec3d start{26 * unit(random) - 1, 8 * unit(random), 7 * unit(random)};
    const i32 n = 1 + round % 29;
    for (i32 i = 0; i < n; ++i) points.Set(i, start + Vec3d{i * drift, 0, 0});
    RowCorners corners;
    FindCorners(points, {}, dims, n, corners);
    double row[kRowChunk], limited[kRowChunk];
    Interpolate(g, corners, n, row);
    std::fill_n(limited, n, round % 2 ? 1.0 : -1.0);
    LimitToCorners(g, corners, n, limited);
    for (i32 i = 0; i < n; ++i) {
      ASSERT_EQ(row[i], SampleLinear(g, points.At(i)));
      double bound = limited[i];
      for (i32 k = 0; k < 8; ++k) {
        const double v =
            g.mData[corners.index[i] + (k & 1) + (k >> 1 & 1) * g.mNx + (k >> 2) * g.mSlice];
        bound = round % 2 ? std::max(bound, v) : std::min(bound, v);
      }
      ASSERT_EQ(limited[i], bound);
    }
  }
}

TEST(GridAdvection, TheCorrectedSchemeIsSecondOrder) {
  double errors[2][2];
  for (const i32 scheme : {kSemiLagrangian, kMacCormack})
    for (const i32 fine : {0, 1}) {
      const i32 n = fine ? 48 : 24;
      AdvectionRig rig({n, n, 4}, 2.4 / n);
      rig.Walls(0, 0, 0, 0, 0, 0);
      ScalarField& smoke = rig.AddSmoke();
      rig.AddAdvection(rig.smokeNode, scheme);
      rig.scene->mTime.stepDuration = 1.0 / n;
      rig.Begin();
      GasRig::Fill(*smoke.mGrid, [](const Vec3d& p) {
        return Bell({p.x, p.y, 0}, {0.9, 0.9, 0}, 0.4);
      });
      rig.FillVelocity([](const Vec3d&) { return Vec3d{0.7, 0.45, 0}; });
      for (i32 step = 0; step < n; ++step) {
        rig.SetUp();
        rig.RunOperators();
      }
      double sum = 0, cells = 0;
      const EGrid<double>& moved = *smoke.mGrid;
      ForEachCell({{3, 3, 2}, {n - 3, n - 3, 3}}, [&](i32 x, i32 y, i32 z) {
        const Vec3d p = moved.PositionOf(x, y, z);
        sum += std::abs(moved(x, y, z) - Bell({p.x, p.y, 0}, {1.6, 1.35, 0}, 0.4));
        ++cells;
      });
      errors[scheme][fine] = sum / cells;
    }
  const double plain = std::log2(errors[0][0] / errors[0][1]);
  const double corrected = std::log2(errors[1][0] / errors[1][1]);
  EXPECT_NEAR(plain, 1, 0.35);
  EXPECT_GT(corrected, 1.6);
  EXPECT_LT(errors[1][1], 0.2 * errors[0][1]);
}

TEST(GridAdvection, SolidCellsHoldNothingBehindTheMove) {
  AdvectionRig rig({10, 10, 10}, 0.1);
  ScalarField& smoke = rig.AddSmoke();
  rig.AddAdvection(rig.smokeNode, kMacCormack);
  rig.Begin();
  EGrid<double>& phi = *rig.gas->mFlow.mBoundary.GetLevelSet();
  for (i32 z = 4; z <= 7; ++z)
    for (i32 y = 4; y <= 7; ++y)
      for (i32 x = 4; x <= 7; ++x) phi(x, y, z) = -0.05;
  rig.gas->mFlow.mSolidCells.Build(phi, 1);
  rig.gas->mFlow.mWallCells.Build(rig.gas->mFlow.mBoundary, rig.gas->mFlow.mSolidCells.Get(), {},
                                  1);
  smoke.mGrid->Fill(0.25);      // becomes the field that is read
  smoke.mPrevious->Fill(0.75);  // the buffer that is written
  rig.FillVelocity([](const Vec3d&) { return Vec3d{0.3, 0.2, 0}; });
  rig.RunOperators();
  EXPECT_EQ((*smoke.mGrid)(5, 5, 5), 0);
  EXPECT_EQ((*smoke.mGrid)(0, 5, 5), 0.25) << "behind a wall the field goes on";
  EXPECT_EQ((*smoke.mGrid)(2, 5, 5), 0.25);
}

// A face moves when any part of it is open, wherever its centre lies; a closed one keeps its value.
TEST(GridAdvection, EveryFaceWithAnOpenPartMoves) {
  AdvectionRig rig({10, 10, 10}, 0.1);
  rig.AddAdvection(nullptr, kSemiLagrangian);
  rig.Begin();
  EGrid<double>& phi = *rig.gas->mFlow.mBoundary.GetLevelSet();
  for (i32 z = 0; z < phi.mNz; ++z)
    for (i32 y = 0; y < phi.mNy; ++y)
      for (i32 x = 0; x < phi.mNx; ++x) phi(x, y, z) = phi.PositionOf(x, y, z).x - 0.53;
  rig.gas->mFlow.mSolidCells.Build(phi, 1);
  EGrid<float>& open = *rig.gas->mFlow.mFractions.GetWrite(1, 1);
  for (i32 z = 0; z < open.mNz; ++z)
    for (i32 y = 0; y < open.mNy; ++y)
      for (i32 x = 0; x < open.mNx; ++x) open(x, y, z) = x < 6 ? 0.0F : x == 6 ? 0.3F : 1.0F;
  rig.FillVelocity([](const Vec3d& p) { return Vec3d{-0.5, p.x, 0}; });
  rig.gas->mFlow.mVelocity.mPrevious[1]->Fill(7);  // the buffer that is written
  const double before = (*rig.gas->mFlow.mVelocity.GetGrid(1))(6, 5, 5);
  rig.RunOperators();
  const EGrid<double>& v = *rig.gas->mFlow.mVelocity.GetGrid(1);
  EXPECT_GT(v(6, 5, 5), before + 0.015) << "the face's centre is in the solid";
  EXPECT_NEAR(v(8, 5, 5), v.PositionOf(8, 5, 5).x + 0.02, 1e-9);
  EXPECT_EQ(v(4, 5, 5), v.PositionOf(4, 5, 5).x) << "closed";
}

TEST(GridAdvection, FacesOfCellsThatAThinWallFillsMoveToo) {
  std::size_t count = 0;
  for (const i32 scheme : {kSemiLagrangian, kMacCormack})
    for (const double turn : {0.3, 0.5, 0.8}) {
      AdvectionRig rig({16, 16, 16}, 0.1);
      rig.AddAdvection(nullptr, scheme);
      rig.SetUp();
      const f32 size = rig.scene->mDomain.cellSize;
      const TurnedBox rod({8, 8.2, 8}, {1.5, 30, 2.2}, turn, 0.4, size);
      MeshSolid solid(rod.mesh, size);
      rig.gas->mFlow.mBoundary.mObstacles = {&solid};
      rig.Fit();
      rig.RunGas(kEmitters);
      const ThinFaces& thin = rig.gas->mFlow.mThinFaces;
      ASSERT_TRUE(thin.HasAny());
      rig.FillVelocity([](const Vec3d&) { return Vec3d{}; });
      // Gas that comes out of filled cells, and so far from where it is at rest.
      std::vector<std::pair<i32, VecInt3D>> faces;
      for (i32 axis = 0; axis < 3; ++axis)
        ForEachCell({{2, 2, 2}, {16, 16, 16}}, [&](i32 x, i32 y, i32 z) {
          const VecInt3D above{x, y, z}, below = above - ExtraOf(axis);
          const bool isFilled = thin.IsFilled(above);
          const float open = (*rig.gas->mFlow.GetOpenFaces(axis))(x, y, z);
          if (!(open > 0) || isFilled == thin.IsFilled(below)) return;
          faces.emplace_back(axis, above);
          (*rig.gas->mFlow.mVelocity.GetGrid(axis))(x, y, z) = isFilled ? -1 : 1;
        });
      rig.RunOperators();
      for (const auto& [axis, at] : faces)
        EXPECT_LT(std::fabs((*rig.gas->mFlow.mVelocity.GetGrid(axis))(at.x, at.y, at.z)), 0.95)
            << scheme << ": " << axis << " " << at.x << " " << at.y << " " << at.z;
      count += faces.size();
    }
  EXPECT_GT(count, 10u);
}

TEST(GridAdvection, KnowingClearCellsChangesNothing) {
  std::vector<double> results[2];
  for (const bool known : {false, true}) {
    AdvectionRig rig({16, 12, 12}, 0.1);
    ScalarField& smoke = rig.AddSmoke();
    rig.AddAdvection(rig.smokeNode, kMacCormack).Set(1003, i32{1});
    rig.AddAdvection(nullptr, kMacCormack);
    rig.Begin();
    EGrid<double>& phi = *rig.gas->mFlow.mBoundary.GetLevelSet();
    for (i32 z = 0; z < phi.mNz; ++z)
      for (i32 y = 0; y < phi.mNy; ++y)
        for (i32 x = 0; x < phi.mNx; ++x) {
          const Vec3d d = phi.PositionOf(x, y, z) - Vec3d{0.8, 0.6, 0.6};
          phi(x, y, z) = std::min(phi(x, y, z), Length(d) - 0.27);
        }
    known ? rig.gas->mFlow.mSolidCells.Build(phi, 1) : rig.gas->mFlow.mSolidCells.Release();
    GasRig::Fill(*smoke.mGrid, [](const Vec3d& p) { return p.x + p.y * p.z; });
    rig.FillVelocity([](const Vec3d& p) { return Swirl(p, 1.4) * 7.0 + Vec3d{0.1, 0, 0.9}; });
    rig.RunOperators();
    for (const EGrid<double>* g :
         {smoke.GetGrid(0), rig.gas->mFlow.mVelocity.GetGrid(0),
          rig.gas->mFlow.mVelocity.GetGrid(1), rig.gas->mFlow.mVelocity.GetGrid(2)})
      results[known].insert(results[known].end(), g->mData, g->mData + g->mCount);
  }
  EXPECT_EQ(results[0], results[1]);
}

TEST(GridAdvection, MovesVectorChannelsAndTheVelocityItself) {
  AdvectionRig rig({16, 8, 8}, 0.125);
  rig.Walls(0, 0, 0, 0, 0, 0);
  host::BaseNode& vectorNode = rig.Add("channel_vector", "colour");
  VectorField& colour = *rig.Object<VectorField>(vectorNode);
  rig.AddAdvection(&vectorNode, kSemiLagrangian);
  rig.AddAdvection(nullptr, kSemiLagrangian);
  rig.scene->mTime.stepDuration = 0.25;
  rig.Begin();
  for (i32 a = 0; a < 3; ++a)
    GasRig::Fill(*colour.GetGrid(a), [&](const Vec3d& p) { return (a + 1) * p.x; });
  rig.FillVelocity([](const Vec3d& p) { return Vec3d{0.5, p.x, 0}; });
  rig.RunOperators();
  for (i32 a = 0; a < 3; ++a) {
    const EGrid<double>& g = *colour.GetGrid(a);
    EXPECT_NEAR(g(8, 4, 4), (a + 1) * g.PositionOf(7, 4, 4).x, 1e-9);
  }
  const EGrid<double>& v = *rig.gas->mFlow.mVelocity.GetGrid(1);
  EXPECT_NEAR(v(8, 4, 4), v.PositionOf(7, 4, 4).x, 1e-9);
  EXPECT_EQ((*rig.gas->mFlow.mVelocity.GetGrid(0))(8, 4, 4), 0.5);
}

TEST(GridAdvection, WithoutASolverItSaysWhy) {
  AdvectionRig rig({4, 4, 4}, 0.1);
  host::BaseNode& node = rig.Add("grid_advection", "lost");
  rig.Begin();
  rig.RunOperators();
  const auto* advection = rig.Object<GridAdvection>(node);
  EXPECT_FALSE(advection->Has(FLAG_ACTIVE));
  EXPECT_STREQ(advection->mInactiveReason, "it has no solver; name one under 'solver'");
}
