#include "fluids/operators/grid_to_particles.h"

#include <gtest/gtest.h>

#include "fluids/emission/particle_to_grid_emitter.h"
#include "fluids/fields/plain_grid_channel.h"
#include "fluids/gas_rig.h"
#include "fluids/particle_rig.h"
#include "fluids/volume/multi_volume.h"
#include "fluids/volume/volume_mesh.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

double Slanted(const Vec3d& p) { return 2 + 4 * p.x + 3 * p.y - 2 * p.z; }
Vec3d Sheared(const Vec3d& p) { return {1 + 3 * p.y, p.z - 2 * p.x, 4 * p.x + p.y - p.z}; }

template <class F>
void FillGrid(EGrid<double>& g, F&& f) {
  ForEachCell({{0, 0, 0}, g.Dims()},
              [&](i32 x, i32 y, i32 z) { g(x, y, z) = f(g.PositionOf(x, y, z)); });
}

/// Volumes that stand for a group of them.
class Several : public MultiVolume {
 public:
  using MultiVolume::MultiVolume;
  bool ReadParameters() override { return true; }
  bool ResolveLinks() override { return true; }
  bool AfterLinks() override { return true; }
  void CheckDirty() override {}
  bool IsDirty() const override { return false; }
  void CollectMembers(std::vector<VolumeBase*>& out) override { out = members; }
  std::vector<VolumeBase*> members;
};

/// Particles in and about a field over the box from 0 to 1.2 m.
struct ReadRig : ParticleRig {
  GridToParticles& read = Add<GridToParticles>("particle_gridtoparticles", "read");
  Property<double>& heat = Add<Property<double>>("property_scalar", "heat");
  Property<Vec3d>& tint = Add<Property<Vec3d>>("property_vector", "tint");

  ReadRig() {
    Set(heat, iProperty::kPropertyRow, i32{property_id::kTemperature});
    Set(tint, iProperty::kPropertyRow, i32{property_id::kColor});
    Links(read, GridToParticles::kGroupRow, {&group});
    Set(read, GridToParticles::kOperationRow, i32{0});
    PutCloud(Store(), 300, {1, 1, 1});
    for (Vec3d& p : Store().Positions()) p += Vec3d{0.1, 0.1, 0.1};
    Put({1.3, 0.5, 0.5});
    Put({0.5, -0.01, 0.5});
  }
  template <class T>
  const PropertyColumn<T>& Column(const iProperty& property) {
    return *Store().Find<T>(property.Key());
  }
};

}  // namespace

TEST(GridToParticles, IsExactOnLinearChannelsOfNumbersAndVectors) {
  ReadRig rig;
  auto& smoke = rig.Add<PlainField>("channel_scalar", "smoke");
  auto& wind = rig.Add<VectorField>("channel_vector", "wind");
  TestScene::Links(rig.read, common_row::kConstraints, {&rig.AddHalfLeft()});
  for (const bool isVector : {false, true}) {
    TestScene::Link(rig.read, GridToParticles::kSourceRow, isVector ? (iBase&)wind : smoke);
    TestScene::Link(rig.read, GridToParticles::kTargetRow, isVector ? (iBase&)rig.tint : rig.heat);
    rig.SetUp();
    for (iBase* field : {static_cast<iBase*>(&smoke), static_cast<iBase*>(&wind)})
      ASSERT_TRUE(field->ApplyBounds({0, 0, 0}, {1.2, 1.2, 1.2}));
    FillGrid(*smoke.mGrid, Slanted);
    for (i32 a = 0; a < 3; ++a)
      FillGrid(*wind.mGrids[a], [a](const Vec3d& p) { return Sheared(p)[a]; });
    TestScene::Run(rig.read, isVector ? 3 : 1);
  }
  const auto positions = rig.Store().Positions();
  const auto& heat = rig.Column<double>(rig.heat);
  const auto& tint = rig.Column<Vec3d>(rig.tint);
  for (i32 i = 0; i < 300; ++i) {
    const bool isLeft = positions[i].x < 1;
    EXPECT_EQ(heat.Has(i), isLeft);
    EXPECT_EQ(tint.Has(i), isLeft);
    if (!isLeft) continue;
    EXPECT_NEAR(heat.Get(i, 0), 0.5 * Slanted(positions[i]), 1e-6);
    ExpectVector(tint.Get(i, {}), Sheared(positions[i]) * 0.5, 1e-6, i);
  }
  for (const i32 outside : {300, 301}) EXPECT_FALSE(heat.Has(outside) || tint.Has(outside));
}

TEST(GridToParticles, GivesBackTheLinearFieldThatParticlesGave) {
  ReadRig rig;
  auto& smoke = rig.Add<PlainField>("channel_scalar", "smoke");
  TestScene::Set(smoke, 1051, 1000.0);
  auto& lattice = rig.Add<ParticleGroup>("particlegroup", "lattice");
  auto& value = rig.Add<ChannelValue>("channelvalue", "value");
  TestScene::Link(value, ChannelValue::kChannelRow, smoke);
  TestScene::Link(value, ChannelValue::kPropertyRow, rig.heat);
  auto& gather = rig.Add<ParticleToGridEmitter>("properties_particles", "gather");
  TestScene::Link(gather, ParticleToGridEmitter::kSourceRow, lattice);
  TestScene::Set(gather, ParticleToGridEmitter::kParticleTypeRow, i32{kPassive});
  TestScene::Set(gather, ParticleToGridEmitter::kRadiusRow, 1.7);
  TestScene::Links(gather, 1002, {&value});
  TestScene::Link(rig.read, GridToParticles::kSourceRow, smoke);
  TestScene::Link(rig.read, GridToParticles::kTargetRow, rig.heat);
  rig.SetUp();
  ASSERT_TRUE(smoke.ApplyBounds({0, 0, 0}, {1.2, 1.2, 1.2}));
  // One in the middle of each cell, so that those about a cell lie evenly.
  const double cell = smoke.mGrid->mLayout.cellSize;
  ForEachCell({{0, 0, 0}, {12, 12, 12}}, [&](i32 x, i32 y, i32 z) {
    ParticleTemplate particle;
    particle.position = Vec3d{x + 0.5, y + 0.5, z + 0.5} * cell;
    particle.Set(property_id::kTemperature, 20 + Slanted(particle.position));
    lattice.Store(kPassive).Create(particle);
  });
  lattice.MarkTreeStale(kPassive);
  TestScene::Run(gather);
  TestScene::Run(rig.read);
  const auto& heat = rig.Column<double>(rig.heat);
  i32 inside = 0;
  for (i32 i = 0; i < 300; ++i) {
    const Vec3d& p = rig.Store().Positions()[i];
    // At the rim a cell has particles on one side alone.
    if (const Vec3d rest = Min(p, Vec3d{1.2, 1.2, 1.2} - p);
        std::min({rest.x, rest.y, rest.z}) < 0.3)
      continue;
    ++inside;
    EXPECT_NEAR(heat.Get(i, 0), 20 + Slanted(p), 1e-5);
  }
  EXPECT_GT(inside, 30);
}

TEST(GridToParticles, ReadsTheFacesOfAFlow) {
  GasRig rig({12, 12, 12});
  host::BaseNode& group = rig.Add("particlegroup", "sparks");
  host::BaseNode& motion = rig.Add("property_vector", "motion");
  motion.Set(iProperty::kPropertyRow, i32{property_id::kVelocity});
  host::BaseNode& read = rig.Add("particle_gridtoparticles", "read");
  read.Set(GridToParticles::kGroupRow, host::InExcludeData{{{group.Id(), 0}}});
  read.Set(GridToParticles::kSourceRow, host::Link{rig.gas->Node()->Id()});
  read.Set(GridToParticles::kTargetRow, host::Link{motion.Id()});
  read.Set(GridToParticles::kOperationRow, i32{1});
  rig.Begin();
  rig.FillVelocity(Sheared);
  ParticleStore& store = rig.Object<ParticleGroup>(group)->Store(kPassive);
  ParticleRig::Put(store, {0.53, 0.61, 0.47}, {1, 1, 1});
  ParticleRig::Put(store, {9, 9, 9}, {1, 1, 1});
  TestScene::Run(*rig.Object<GridToParticles>(read));
  ExpectVector(store.Velocities()[0], Vec3d{1, 1, 1} + Sheared(store.Positions()[0]), 1e-6);
  EXPECT_EQ(store.Velocities()[1], Vec3d(1, 1, 1));
}

TEST(GridToParticles, ReadsTheLeastDistanceToShapesWhoseGridsAreThere) {
  ReadRig rig;
  auto& low = rig.Add<VolumeBase>("volume", "low");
  auto& high = rig.Add<VolumeBase>("volume", "high");
  auto& both = rig.AddOwn<Several>("volume_multi", "both");
  both.members = {&low, &high};
  TestScene::Link(rig.read, GridToParticles::kTargetRow, rig.heat);
  rig.SetUp();
  const auto fill = [](VolumeBase& shape, const Vec3d& from, const Vec3d& to, auto&& distance) {
    shape.mCellSize = 0.1;
    shape.mBoxMin = from;
    shape.mBoxMax = to;
    shape.UpdateBounds();
    EXPECT_TRUE(shape.AllocateGrid());
    FillGrid(*shape.GetGrid(), distance);
  };
  const auto other = [](const Vec3d& p) { return 3 - 2 * p.x + p.y; };
  fill(low, {0, 0, 0}, {0.8, 1.2, 1.2}, Slanted);
  fill(high, {0.5, 0.3, 0.3}, {0.9, 0.9, 0.9}, other);
  for (iBase* source : {static_cast<iBase*>(&low), static_cast<iBase*>(&both)}) {
    TestScene::Link(rig.read, GridToParticles::kSourceRow, *source);
    rig.Store().Require<double>(rig.heat.Key());
    rig.Store().Drop(rig.heat.Key());
    rig.SetUp();
    TestScene::Run(rig.read, 2);
    const auto& heat = rig.Column<double>(rig.heat);
    i32 outside = 0, inBoth = 0;
    for (i32 i = 0; i < rig.Store().Count(); ++i) {
      const Vec3d& p = rig.Store().Positions()[i];
      const bool isLow = low.IsInBounds(p), isHigh = source == &both && high.IsInBounds(p);
      outside += !isLow && !isHigh;
      inBoth += isLow && isHigh;
      ASSERT_EQ(heat.Has(i), isLow || isHigh) << i;
      if (!heat.Has(i)) continue;
      const double least = std::min(isLow ? Slanted(p) : 1e9, isHigh ? other(p) : 1e9);
      EXPECT_NEAR(heat.Get(i, 0), least, 1e-5);
    }
    EXPECT_GT(outside, 0);
    EXPECT_EQ(inBoth > 0, source == &both);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
