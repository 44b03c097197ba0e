#include "fluids/surfaces/surface_reconstructor.h"

#include <gtest/gtest.h>

#include "fluids/mesh/mesh_rig.h"
#include "fluids/surfaces/implicit_mesher.h"
#include "fluids/test_scene.h"
#include "fluids/volume/volume_mesh.h"
#include "grids/mesh_refusal.h"
#include "grids/random_stream.h"
#include "host/shapes.h"
#include "io/mesh_table.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

/// Lets through what lies below x = 0.2.
class LeftHalf : public Constraint {
 public:
  using Constraint::Constraint;
  bool Test(const Vec3d& p, double& weight, const ConstraintUse&) override {
    weight *= p.x < 0.2 ? 0.5 : 0.0;
    return weight != 0;
  }
};

/// A cube of 4 x 4 x 4 cells of water, what finds its surface, and its skin.
struct SurfaceRig : TestScene {
  ParticleGroup& group = Add<ParticleGroup>("particlegroup", "water");
  SurfaceReconstructor& surface = Add<SurfaceReconstructor>("surface_reconstruction", "surface");
  ImplicitMesher& skin = Add<ImplicitMesher>("mesher", "skin");

  SurfaceRig() {
    Link(surface, SurfaceReconstructor::kSourceRow, group);
    Link(skin, ImplicitMesher::kSourceRow, surface);
    ForEachCell({{0, 0, 0}, {8, 8, 8}}, [&](i32 x, i32 y, i32 z) {
      Drop((ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5}) * 0.05);
    });
  }
  i32 Drop(const Vec3d& p, const Vec3d& velocity = {}) {
    ParticleTemplate particle;
    particle.position = p;
    particle.velocity = velocity;
    return Store().Create(particle);
  }
  ParticleStore& Store() { return group.Store(kLiquid); }
  app::MeshTable Skin() {
    SetUp();
    scene->SetStage(kReconstruction);
    Run(surface, 2);
    scene->SetStage(kMeshing);
    Run(skin, 2);
    return app::TableOf(dynamic_cast<host::PolygonObject&>(*skin.Node()), {0.01, 0.01, 0.01});
  }
  double Volume() { return app::Measure(Skin()).volume; }
};

TEST(SurfaceReconstructor, ANewOneFindsTheSurfaceOfALiquid) {
  SurfaceRig rig;
  EXPECT_FALSE(rig.Skin().points.empty());
  const EGrid<double>& grid = *rig.surface.GetResult();
  EXPECT_EQ(grid.Dims(), (VecInt3D{15, 15, 15})) << "five cells more on each side, and nodes";
  EXPECT_NEAR(grid.mLayout.simOrigin.x, -0.5, 1e-6);
  rig.Set(rig.surface, SurfaceReconstructor::kResolutionRow, 2.0);
  app::MeshTable fine = rig.Skin();
  EXPECT_EQ(rig.surface.GetResult()->Dims(), (VecInt3D{29, 29, 29}));
  EXPECT_EQ(app::CountOpenEdges(fine), 0);
  // A cube so small is all edges, which come out round.
  EXPECT_NEAR(app::Measure(fine).volume, 0.064, 0.008);
  EXPECT_NEAR(rig.scene->mDomain.cellSize, 0.1, 1e-6) << "of the scene";
  rig.Set(rig.surface, SurfaceReconstructor::kSmoothingRow, i32{0});
  const double middle = rig.Volume();
  rig.Set(rig.surface, SurfaceReconstructor::kShiftRow, 0.25);
  EXPECT_GT(rig.Volume(), middle * 1.2);
  // As told, the surface lies at the radius.
  rig.Set(rig.surface, SurfaceReconstructor::kShiftRow, 0.0);
  rig.Set(rig.surface, SurfaceReconstructor::kFitRow, i32{0});
  rig.Set(rig.surface, SurfaceReconstructor::kRadiusRow, 0.331);
  rig.Set(rig.surface, SurfaceReconstructor::kSearchRow, 1.25 / 0.331);
  EXPECT_NEAR(rig.Volume(), middle, 0.002);
}

TEST(SurfaceReconstructor, SomeParticlesAreLeftOut) {
  SurfaceRig rig;
  rig.Set(rig.surface, SurfaceReconstructor::kSmoothingRow, i32{0});
  const double whole = rig.Volume();
  const i32 far = rig.Drop({1, 0.5, 0.5});
  rig.Store().At(far).AddScalar(property_id::kDensity, 0.2);
  for (i32 row = 0; row < far; ++row) rig.Store().At(row).AddScalar(property_id::kDensity, 1.2);
  EXPECT_GT(rig.Volume(), whole * 1.001);
  rig.Set(rig.surface, SurfaceReconstructor::kThresholdRow, 0.5);
  EXPECT_GT(rig.Volume(), whole * 1.001) << "nothing is filtered";
  rig.Set(rig.surface, SurfaceReconstructor::kFilterRow, i32{1});
  EXPECT_NEAR(rig.Volume(), whole, 1e-9);
  EXPECT_FALSE(rig.Store().Flags()[far] & PF_MARK);
  EXPECT_TRUE(rig.Store().Flags()[0] & PF_MARK);
  rig.Set(rig.surface, SurfaceReconstructor::kThresholdRow, 1.0);
  EXPECT_GT(rig.Volume(), whole * 1.001) << "nothing is too thin for that";
  // Constraints leave out what they give no weight, wherever some is left.
  rig.Set(rig.surface, SurfaceReconstructor::kThresholdRow, 0.5);
  TestScene::Links(rig.surface, common_row::kConstraints,
                   {&rig.AddOwn<LeftHalf>("duration", "left half")});
  EXPECT_NEAR(rig.Volume(), whole / 2, 0.15 * whole);
  TestScene::Links(rig.surface, common_row::kConstraints, {});
  // The dead don't count either.
  rig.Set(rig.surface, SurfaceReconstructor::kFilterRow, i32{0});
  rig.Store().Flags()[far] &= static_cast<u16>(~PF_ALIVE);
  EXPECT_NEAR(rig.Volume(), whole, 1e-9);
  // Where a particle was moved to, it counts there; those without such a place where they are.
  rig.Store().Flags()[far] |= PF_ALIVE;
  rig.Store().At(far).AddVector(property_id::kDeformed, {0.2, 0.2, 0.2});
  rig.Set(rig.surface, SurfaceReconstructor::kPositionRow, i32{2});
  EXPECT_NEAR(rig.Volume(), whole, 1e-4);

  for (u16& flags : rig.Store().Flags()) flags &= static_cast<u16>(~PF_ALIVE);
  EXPECT_TRUE(rig.Skin().points.empty());
  EXPECT_EQ(rig.surface.GetResult(), nullptr) << "the surface goes with its last particle";
  rig.Store().Flags()[0] |= PF_ALIVE;
  rig.Store().Flags()[far] |= PF_ALIVE;
  rig.Store().Positions()[0] = {1e9, 0, 0};
  rig.surface.TakeWarnings();
  const double own = rig.Volume();
  EXPECT_GT(own, 0) << "what no grid reaches is left out";
  EXPECT_LT(rig.surface.GetResult()->mCount, 10000);
  const std::vector<std::string> told = rig.surface.TakeWarnings();
  ASSERT_FALSE(told.empty());
  EXPECT_EQ(told[0], "1 of its particles is more than 1000 cells from the others and is left out");
  EXPECT_LT(rig.surface.ExpectedBytes(), 1e6);
  rig.Volume();
  EXPECT_TRUE(rig.surface.TakeWarnings().empty()) << "once a run";
}

TEST(SurfaceReconstructor, ARecordingTakesThePlaceOfParticles) {
  SurfaceRig rig;
  const double whole = rig.Volume();
  const EGrid<double> recorded = *rig.surface.GetResult();
  for (Vec3d& p : rig.Store().Positions()) p.x += 3;
  rig.SetUp();
  ASSERT_FALSE(rig.surface.TakeCachedPlace(recorded.mLayout, kCentre));
  ASSERT_TRUE(rig.surface.TakeCachedPlace(recorded.mLayout, kNode));
  EGrid<double>& grid = *rig.surface.GetCachedGrids()[0];
  std::copy_n(recorded.mData, recorded.mCount, grid.mData);
  rig.surface.SetFlag(FLAG_CACHED, true);
  const app::MeshTable skin = rig.Skin();
  EXPECT_NEAR(app::Measure(skin).volume, whole, 1e-9);
  EXPECT_TRUE(skin.velocities.empty()) << "nothing is known of them";
  EXPECT_LT(skin.points[0].x, 1);
  const std::vector<std::string> told = rig.skin.TakeWarnings();
  ASSERT_EQ(told.size(), 1u);
  EXPECT_NE(told[0].find("plays from a recording, which has no velocities"), std::string::npos);
  // Particles that are there as well give theirs.
  for (Vec3d& p : rig.Store().Positions()) p.x -= 3;
  for (Vec3d& v : rig.Store().Velocities()) v = {0, -2, 1};
  rig.SetUp();
  rig.surface.SetFlag(FLAG_CACHED, true);
  rig.scene->SetStage(kReconstruction);
  TestScene::Run(rig.surface);
  rig.scene->SetStage(kMeshing);
  TestScene::Run(rig.skin);
  const auto& moving = dynamic_cast<host::PolygonObject&>(*rig.skin.Node()).GetGeometry();
  ASSERT_EQ(moving.velocities.size(), moving.points.size());
  EXPECT_NEAR(moving.velocities[0].y, -200, 1e-4);
}

TEST(SurfaceReconstructor, HoldsItsWaterInCoarseCellsToo) {
  // Ten by four by ten cells, of samples no finer than those.
  SurfaceRig rig;
  ForEachCell({{0, 0, 0}, {20, 8, 20}}, [&](i32 x, i32 y, i32 z) {
    if (std::max({x, y, z}) >= 8) rig.Drop((ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5}) * 0.05);
  });
  RandomStream random;
  random.Seed(5);
  for (Vec3d& p : rig.Store().Positions())
    for (int a = 0; a < 3; ++a) p[a] += (random.NextUnit() - 0.5) * 0.6 * 0.05;
  const app::MeshTable skin = rig.Skin();
  EXPECT_EQ(app::CountOpenEdges(skin), 0);
  EXPECT_NEAR(app::Measure(skin).volume, 0.4, 0.03 * 0.4);
  for (const Vec3d& p : skin.points)
    if (std::min(p.x, p.z) > 0.3 && std::max(p.x, p.z) < 0.7) {
      EXPECT_NEAR(std::abs(p.y - 0.2), 0.2, 0.015) << "of cells of 0.1";
    }
  // Another number to a cell than was told isn't made good: full places tell how many there are.
  rig.Set(rig.surface, SurfaceReconstructor::kPerCellRow, 4.0);
  const double told = rig.Volume();
  EXPECT_NEAR(told, 0.4, 0.03);
  const std::vector<std::string> warnings = rig.surface.TakeWarnings();
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_NE(warnings[0].find(" particles to a cell, and 'particles_per_cell' says 4"),
            std::string::npos);
  double memory = 0;
  for (const auto& part : rig.surface.mParts) memory += part->Memory();
  EXPECT_GE(memory, 8.0 * rig.surface.GetResult()->mCount);
  memory = 0;
  for (const auto& part : rig.skin.mParts) memory += part->Memory();
  EXPECT_GT(memory, 100.0 * static_cast<double>(skin.points.size()));
}

/// Water of any shape, eight particles to a cell of 0.1, out of step with the samples.
struct DropRig : SurfaceRig {
  static constexpr double kEach = 1e-3 / 8;

  explicit DropRig(double resolution) {
    Store().Reset(scene->mDomain);
    Set(surface, SurfaceReconstructor::kResolutionRow, resolution);
  }
  /// Fills what `holds` of a place relative to `middle`, in cells.
  template <class Holds>
  void Fill(const Vec3d& middle, Holds&& holds) {
    RandomStream random;
    random.Seed(7);
    ForEachCell({{-16, -16, -16}, {16, 16, 16}}, [&](i32 x, i32 y, i32 z) {
      Vec3d p = (ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5}) * 0.5;
      for (int a = 0; a < 3; ++a) p[a] += (random.NextUnit() - 0.5) * 0.25;
      if (holds(p)) Drop((middle + p) * 0.1);
    });
  }
  void FillBall(const Vec3d& middle, double radius) {
    Fill(middle, [&](const Vec3d& p) { return Length(p) < radius; });
  }
  /// What the skin encloses, over what the particles fill.
  double Held() {
    const app::MeshTable skin = Skin();
    EXPECT_EQ(app::CountOpenEdges(skin), 0);
    return app::Measure(skin).volume / (Store().Count() * kEach);
  }
};

TEST(SurfaceReconstructor, WhatIsSmallOrThinHoldsItsWaterAsWell) {
  // Across them, in cells; both are oblique to the samples.
  const Vec3d along = Normalised(Vec3d{0.35, 0.85, 0.4});
  for (const double resolution : {1.0, 2.0}) {
    for (const double radius : {1.0, 1.3, 1.6, 2.5}) {
      DropRig rig(resolution);
      rig.FillBall({0.3, 0.1, 0.4}, radius);
      EXPECT_NEAR(rig.Held(), 1, radius < 1.5 ? 0.1 : 0.03) << radius << " " << resolution;
    }
    for (const double width : {1.2, 2.0}) {
      DropRig rig(resolution);
      rig.Fill({}, [&](const Vec3d& p) {
        return Length(p - along * Dot(p, along)) < width / 2 && std::abs(Dot(p, along)) < 6;
      });
      EXPECT_NEAR(rig.Held(), 1, 0.08) << "rod " << width << " " << resolution;
    }
    DropRig rig(resolution);
    rig.Fill({}, [&](const Vec3d& p) { return std::abs(Dot(p, along)) < 0.5 && Length(p) < 6; });
    EXPECT_NEAR(rig.Held(), 1, 0.1) << "sheet " << resolution;
  }
}

TEST(SurfaceReconstructor, ADropIsTheSameWhateverElseThereIsAndWhereverItIs) {
  double alone = 0;
  for (const double shift : {0.0, 0.23, 0.5, 0.81}) {
    DropRig rig(1);
    rig.FillBall({shift, 30 + shift / 2, -shift}, 1.6);
    const double held = rig.Held();
    EXPECT_NEAR(held, 1, 0.05) << shift;
    alone = held * rig.Store().Count();
  }
  DropRig rig(1);
  rig.FillBall({0.81, 30.405, -0.81}, 1.6);
  rig.Fill({0, 0, 0}, [](const Vec3d& p) { return p.y < 0; });
  app::MeshTable skin = rig.Skin();
  std::erase_if(skin.polygons, [&](const auto& polygon) { return skin.points[polygon.a].y < 2; });
  EXPECT_NEAR(app::Measure(skin).volume / DropRig::kEach / alone, 1, 1e-9);
}

/// A film whose faces lie on planes of samples, and drops as they pass through the lattice.
TEST(SurfaceReconstructor, NothingTearsOrFlickersOnItsWayThroughTheSamples) {
  for (const double resolution : {0.5, 1.0, 1.5, 2.0}) {
    DropRig film(resolution);
    film.Fill({}, [](const Vec3d& p) {
      return p.y > 0 && p.y < 1 && std::max(std::abs(p.x), std::abs(p.z)) < 7;
    });
    EXPECT_NEAR(film.Held(), 1, resolution < 1 ? 0.5 : 0.06) << resolution;
  }
  for (const double resolution : {1.0, 1.5, 2.0}) {
    double least = 2, most = 0;
    for (i32 i = 0; i < 6; ++i) {
      DropRig rig(resolution);
      rig.FillBall(Vec3d{0.17, 0.11, 0.07} * i, 2);
      const double held = rig.Held();
      least = std::min(least, held);
      most = std::max(most, held);
    }
    EXPECT_GT(least, 0.95) << resolution;
    EXPECT_LT(most, 1.05) << resolution;
  }
}

TEST(SurfaceReconstructor, ACrowdElsewhereTakesNothingFromADrop) {
  DropRig rig(1);
  const auto isPool = [](const Vec3d& p) { return p.y < 0; };
  rig.FillBall({0, 20, 0}, 2);
  rig.Fill({}, isPool);
  const auto drop = [&] {
    app::MeshTable skin = rig.Skin();
    std::erase_if(skin.polygons, [&](const auto& polygon) { return skin.points[polygon.a].y < 1; });
    return app::Measure(skin).volume;
  };
  const double before = drop();
  rig.Fill({0.02, 0, 0.02}, isPool);
  rig.scene->mFlags |= Scene::kTimeChanged;
  EXPECT_NEAR(drop() / before, 1, 1e-9);
  EXPECT_TRUE(rig.surface.TakeWarnings().empty());
}

TEST(SurfaceReconstructor, WithoutFitTheSurfaceStaysByItsParticles) {
  SurfaceRig rig;
  rig.Set(rig.surface, SurfaceReconstructor::kFitRow, i32{0});
  rig.Set(rig.surface, SurfaceReconstructor::kSmoothingRow, i32{0});
  const double rough = rig.Volume();
  rig.Set(rig.surface, SurfaceReconstructor::kSmoothingRow, i32{2});
  const app::MeshTable skin = rig.Skin();
  EXPECT_EQ(app::CountOpenEdges(skin), 0);
  EXPECT_NEAR(app::Measure(skin).volume / rough, 1, 0.05);
  for (const Vec3d& p : skin.points) {
    EXPECT_GT(std::min({p.x, p.y, p.z}), -0.25);
    EXPECT_LT(std::max({p.x, p.y, p.z}), 0.65);
  }
}

TEST(SurfaceReconstructor, ALoneParticleIsShown) {
  for (const double resolution : {1.0, 2.0}) {
    DropRig rig(resolution);
    RandomStream random;
    random.Seed(3);
    for (i32 i = 0; i < 12; ++i) {
      Vec3d p{0.8 * i, 0, 0};
      for (int a = 0; a < 3; ++a) p[a] += 0.1 * random.NextUnit();
      rig.Drop(p);
    }
    EXPECT_NEAR(rig.Held(), 1, 0.25) << resolution;
    const app::MeshTable skin = rig.Skin();
    for (const Vec3d& p : rig.Store().Positions()) {
      double nearest = 1;
      for (const Vec3d& q : skin.points) nearest = std::min(nearest, Length(q - p));
      EXPECT_LT(nearest, 0.1) << resolution;
    }
  }
}

TEST(SurfaceReconstructor, AMeshAsksForItsMemoryFirst) {
  SurfaceRig rig;
  rig.Set(rig.surface, SurfaceReconstructor::kResolutionRow, 3.0);
  const double points = static_cast<double>(rig.Skin().points.size());
  const u64 before = GridMemory();
  SetGridMemoryLimit(before + 200'000);
  EXPECT_TRUE(rig.Skin().points.empty());
  EXPECT_NEAR(RefusedMesh().points, points, 0.2 * points);
  EXPECT_GT(RefusedMesh().bytes, static_cast<double>(before) + 200'000);
  SetGridMemoryLimit(0);
  EXPECT_EQ(RefusedMesh().points, 0);
  EXPECT_EQ(static_cast<double>(rig.Skin().points.size()), points);
  EXPECT_EQ(GridMemory(), before) << "given back";
}

TEST(SurfaceReconstructor, TellsWhatThereIsNoColourOf) {
  SurfaceRig rig;
  rig.Link(rig.skin, ImplicitMesher::kColourGroupRow, rig.group);
  rig.Set(rig.skin, ImplicitMesher::kColourRadiusRow, 0.1);
  rig.Set(rig.skin, ImplicitMesher::kColourPropertyRow, i32{property_id::kTemperature});
  EXPECT_TRUE(rig.Skin().colours.empty());
  const std::vector<std::string> told = rig.skin.TakeWarnings();
  ASSERT_EQ(told.size(), 1u);
  EXPECT_NE(told[0].find("no particle of 'water' has the property 'temperature'"),
            std::string::npos)
      << told[0];
  EXPECT_TRUE(rig.Skin().colours.empty());
  EXPECT_TRUE(rig.skin.TakeWarnings().empty()) << "once";
}

TEST(SurfaceReconstructor, AVolumeCutsTheSurfaceOffOrLimitsTheParticles) {
  SurfaceRig rig;
  rig.Set(rig.surface, SurfaceReconstructor::kResolutionRow, 2.0);
  const double whole = rig.Volume();
  // All that lies beyond x = 0.2.
  auto& box = rig.document.Create<host::PolygonObject>(host::kMeshObject, "box", nullptr);
  box.SetGeometry(host::MakeBox({.size = {100, 200, 200}}));
  box.SetPlacement({70, 20, 20}, {}, {1, 1, 1});
  Mesh& mesh = rig.Add<Mesh>("mesh", "mesh");
  mesh.Node()->Set(Mesh::kObjectRow, host::Link{box.Id()});
  VolumeMesh& volume = rig.Add<VolumeMesh>("volume", "volume");
  rig.Link(volume, VolumeMesh::kMeshRow, mesh);
  rig.Link(rig.surface, SurfaceReconstructor::kBoundaryRow, volume);
  rig.SetUp();
  rig.scene->SetStage(kVolumes);
  TestScene::Run(mesh);
  TestScene::Run(volume);
  ASSERT_TRUE(volume.HasGridData());
  const app::MeshTable cut = rig.Skin();
  EXPECT_NEAR(app::Measure(cut).volume, whole / 2, 0.1 * whole);
  for (const Vec3d& p : cut.points) ASSERT_LT(p.x, 0.21);

  rig.Set(rig.surface, SurfaceReconstructor::kBoundaryRow, host::Link{});
  rig.Link(rig.surface, SurfaceReconstructor::kLimitRow, volume);
  EXPECT_NEAR(rig.Volume(), whole, 1e-9) << "nothing is filtered";
  rig.Set(rig.surface, SurfaceReconstructor::kFilterRow, i32{1});
  EXPECT_NEAR(rig.Volume(), 0.75 * whole, 0.1 * whole) << "those within a cell of its surface stay";
}

TEST(SurfaceReconstructor, PointsOfTheDocumentAreParticlesToo) {
  SurfaceRig rig;
  const double whole = rig.Volume();
  auto& points = rig.document.Create<host::PointsObject>(host::kPointsObject, "points", nullptr);
  for (const Vec3d& p : rig.Store().Positions()) points.points.push_back(p * 100.0);
  points.SetPlacement({200, 0, 0}, {}, {1, 1, 1});
  rig.surface.Node()->Set(SurfaceReconstructor::kSourceRow, host::Link{points.Id()});
  EXPECT_TRUE(rig.Skin().points.empty()) << "not unless it is asked for";
  rig.Set(rig.surface, SurfaceReconstructor::kHostRow, i32{1});
  const app::MeshTable skin = rig.Skin();
  EXPECT_NEAR(app::Measure(skin).volume, whole, 1e-6);
  EXPECT_GT(skin.points[0].x, 1.5);
}

TEST(SurfaceReconstructor, ItsSkinMovesAsTheParticlesDo) {
  SurfaceRig rig;
  for (Vec3d& v : rig.Store().Velocities()) v = {0, -2, 1};
  for (i32 row = 0; row < rig.Store().Count(); ++row)
    rig.Store().At(row).AddVector(property_id::kColor, {0.25, 0.5, 1});
  rig.Link(rig.skin, ImplicitMesher::kColourGroupRow, rig.group);
  rig.Set(rig.skin, ImplicitMesher::kColourRadiusRow, 0.1);
  rig.skin.Node()->SetPlacement({7, 8, 9}, {10, 20, 30}, {1, 2, 3});
  app::MeshTable skin = rig.Skin();
  ASSERT_EQ(skin.velocities.size(), skin.points.size());
  ASSERT_EQ(skin.colours.size(), skin.points.size());
  for (std::size_t i = 0; i < skin.points.size(); ++i) {
    ASSERT_NEAR(Length(skin.velocities[i] - Vec3d{0, -2, 1}), 0, 1e-6);
    ASSERT_NEAR(Length(skin.colours[i] - Vec3d{0.25, 0.5, 1}), 0, 1e-9);
  }
  rig.Set(rig.skin, ImplicitMesher::kVelocitiesRow, i32{0});
  rig.Set(rig.skin, ImplicitMesher::kColourRadiusRow, 0.0);
  skin = rig.Skin();
  EXPECT_TRUE(skin.velocities.empty() && skin.colours.empty());
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
