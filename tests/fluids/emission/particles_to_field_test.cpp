#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "fluids/emission/particle_to_grid_emitter.h"
#include "fluids/fields/fuel_grid_channel.h"
#include "fluids/test_scene.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

/// Particles of the kind "liquid" that give a field of numbers a property of theirs, another one
/// the same number, and a field of vectors their velocity.
class ParticlesToField : public testing::Test {
 protected:
  ParticlesToField()
      : group(s.Add<ParticleGroup>("particlegroup", "drops")),
        heat(s.Add<PlainField>("channel_scalar", "heat")),
        smoke(s.Add<PlainField>("channel_scalar", "smoke")),
        flow(s.Add<VectorField>("channel_vector", "flow")),
        warmth(s.Add<Property<double>>("property_scalar", "warmth")),
        speed(s.Add<Property<Vec3d>>("property_vector", "speed")),
        emitter(s.Add<ParticleToGridEmitter>("properties_particles", "gather")) {
    for (iBase* field : {static_cast<iBase*>(&heat), static_cast<iBase*>(&smoke)})
      TestScene::Set(*field, 1051, 1000.0);
    TestScene::Set(flow, 1050, Vec3d{-100, -100, -100});
    TestScene::Set(flow, 1051, Vec3d{100, 100, 100});
    TestScene::Set(warmth, iProperty::kPropertyRow, i32{property_id::kTemperature});
    TestScene::Set(speed, iProperty::kPropertyRow, i32{property_id::kVelocity});
    ChannelValue* values[3];
    const iBase* fields[3] = {&heat, &smoke, &flow};
    for (int i = 0; i < 3; ++i) {
      values[i] = &s.Add<ChannelValue>("channelvalue", i == 0 ? "a" : i == 1 ? "b" : "c");
      TestScene::Link(*values[i], 1000, *fields[i]);
      TestScene::Set(*values[i], 1001, 20.0);
    }
    TestScene::Link(*values[0], 1004, warmth);
    TestScene::Link(*values[2], 1004, speed);
    TestScene::Link(emitter, 1000, group);
    TestScene::Set(emitter, 1001, i32{kLiquid});
    TestScene::Set(emitter, 1014, 1.7);
    TestScene::Links(emitter, 1002, {values[0], values[1], values[2]});

    std::mt19937 engine(11);
    std::uniform_real_distribution<double> place(0.15, 1.0);
    ParticleStore& store = group.Store(kLiquid);
    for (i32 i = 0; i < 80; ++i) {
      ParticleTemplate drop;
      drop.position = {place(engine), place(engine), place(engine)};
      drop.velocity = {place(engine), -place(engine), 3};
      if (i % 2 == 0) drop.Set(property_id::kTemperature, 100.0 + i);
      if (i % 3 == 0) drop.Set(property_id::kMass, 0.5);
      if (i % 5 == 0) drop.Set(property_id::kRadius, 0.03);
      store.Create(drop);
    }
    ParticleTemplate far;
    far.position = {5e8, 0.5, std::nan("")};
    store.Create(far);
    far.position = {5e9, 0.5, 0.5};
    store.Create(far);
    group.MarkTreeStale(kLiquid);
  }
  void Run(i32 threads) {
    s.SetUp();
    const double h = s.scene->mDomain.cellSize;
    for (iBase* field :
         {static_cast<iBase*>(&heat), static_cast<iBase*>(&smoke), static_cast<iBase*>(&flow)}) {
      field->Reset();
      ASSERT_TRUE(field->ApplyBounds({0, 0, 0}, {12 * h, 12 * h, 12 * h}));
    }
    TestScene::Run(emitter, threads);
  }

  TestScene s;
  ParticleGroup& group;
  PlainField &heat, &smoke;
  VectorField& flow;
  Property<double>& warmth;
  Property<Vec3d>& speed;
  ParticleToGridEmitter& emitter;
};

TEST_F(ParticlesToField, CellsTakeTheMeanOfWhatParticlesNearbyBring) {
  Run(1);
  const EGrid<double>& g = *heat.mGrid;
  const double radius = 1.7 * s.scene->mDomain.cellSize;
  const ParticleStore& store = group.Store(kLiquid);
  i32 reached = 0;
  ForEachCell({{1, 1, 1}, g.Dims() - VecInt3D{1, 1, 1}}, [&](int x, int y, int z) {
    const Vec3d p = g.PositionOf(x, y, z);
    double warm = 0, weights = 0, along = 0;
    i32 count = 0;
    for (i32 i = 0; i < 80; ++i) {
      if (!(Length(store.Positions()[i] - p) < radius)) continue;
      const double w = (i % 3 == 0 ? 0.5 : 1) * (i % 5 == 0 ? 0.03 / radius : 1);
      warm += w * (i % 2 == 0 ? 100 + i : 20);
      along += w * store.Velocities()[i].y;
      weights += w;
      ++count;
    }
    reached += count > 0;
    const double n = std::max(count, 1);
    ASSERT_NEAR(g(x, y, z), warm / n, 1e-11);
    ASSERT_NEAR((*smoke.mGrid)(x, y, z), 20 * weights / n, 1e-11);
    ASSERT_NEAR((*flow.mGrids[1])(x, y, z), along / n, 1e-12);
  });
  EXPECT_GT(reached, 200);
}

TEST_F(ParticlesToField, SameBytesOnAnyNumberOfWorkersAndNothingWithoutParticles) {
  Run(1);
  const EGrid<double> one = *heat.mGrid, v = *flow.mGrids[1];
  for (const i32 threads : {2, 3}) {
    Run(threads);
    EXPECT_EQ(std::memcmp(one.mData, heat.mGrid->mData, one.mCount * sizeof(double)), 0);
    EXPECT_EQ(std::memcmp(v.mData, flow.mGrids[1]->mData, v.mCount * sizeof(double)), 0);
  }
  TestScene::Set(emitter, 1001, i32{kDiffuse});
  Run(1);
  EXPECT_FALSE(emitter.Has(FLAG_ACTIVE));
  for (i32 i = 0; i < heat.mGrid->mCount; ++i) ASSERT_EQ((*heat.mGrid)[i], 0);
}

}  // namespace
