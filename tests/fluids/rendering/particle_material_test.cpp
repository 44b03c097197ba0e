#include "fluids/rendering/particle_material.h"

#include <gtest/gtest.h>

#include "fluids/test_scene.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {
namespace {

using namespace MELDO_SULVA;
using Float3 = host::SphereCloud::Value;

class ParticleMaterialTest : public testing::Test {
 protected:
  ParticleMaterialTest()
      : group(s.Add<ParticleGroup>("particlegroup", "sparks")),
        node(s.document.Create<host::BaseNode>(ParticleRenderer_Material::kPluginId, "look",
                                               nullptr)) {
    node.SetTable(&ParticleRenderer_Material::Parameters());
    node.Set(1000, host::Link{group.Node()->Id()});
    s.scene->mTime.frameDuration = 0.04;
  }
  i32 Put(i32 kind, const Vec3d& p, const Vec3d& velocity = {}) {
    ParticleTemplate particle;
    particle.position = p;
    particle.velocity = velocity;
    return group.Store(kind).Create(particle);
  }
  host::SphereCloud Spheres() const {
    return ParticleRenderer_Material(node, {s.scene.get()}).Spheres({});
  }

  TestScene s;
  ParticleGroup& group;
  host::BaseNode& node;
};

TEST_F(ParticleMaterialTest, PlacesSizesAndWaysAreInHostUnits) {
  const i32 first = Put(kPassive, {1, 2, 3}, {0.5, 0, -1});
  const i32 dead = Put(kPassive, {9, 9, 9});
  Put(kLiquid, {-1, 0, 0});
  group.Store(kPassive).At(first).AddScalar(property_id::kRadius, 0.02);
  group.Store(kPassive).Flags()[dead] &= ~PF_ALIVE;
  node.Set(1002, 0.7);
  node.Set(1004, 3.0);
  const host::SphereCloud all = Spheres();
  ASSERT_EQ(all.positions.size(), 2u);
  EXPECT_EQ(all.positions[0], (Float3{100, 200, 300}));
  EXPECT_EQ(all.positions[1], (Float3{-100, 0, 0}));
  EXPECT_EQ(all.moves[0], (Float3{2, 0, -4}));
  EXPECT_FLOAT_EQ(all.radii[0], 6) << "its own, three times";
  EXPECT_FLOAT_EQ(all.radii[1], 2.1f);
  EXPECT_TRUE(all.emissions.empty()) << "nothing glows";
  node.Set(1001, i32{kLiquid});
  EXPECT_EQ(Spheres().positions.size(), 1u);
  node.Erase(1000);
  EXPECT_TRUE(Spheres().positions.empty());
}

TEST_F(ParticleMaterialTest, ColourAndGlowFollowLifeSpeedAndProperties) {
  const i32 plain = Put(kPassive, {}), old = Put(kPassive, {}, {3, 4, 0});
  ParticleStore& store = group.Store(kPassive);
  store.At(old).AddScalar(property_id::kAge, 25);
  store.At(old).AddScalar(property_id::kLifeSpan, 100);
  store.At(old).AddScalar(property_id::kTemperature, 800);
  store.At(old).AddVector(property_id::kColor, {0, 1, 0.5});
  node.Set(1006, Vec3d{0.5, 0.5, 0.5});
  node.Set(1010, Vec3d{4, 2, 0});
  node.Set(1015, host::Gradient{{{0, {1, 1, 1}}, {1, {0, 0, 0}}}});
  node.Set(1016, host::Gradient{{{0, {0, 0, 0}}, {1, {1, 1, 1}}}});
  const auto expect = [&](double plainPart, double oldPart) {
    const host::SphereCloud cloud = Spheres();
    const auto near = [](const Float3& is, const Vec3d& expected) {
      for (int a = 0; a < 3; ++a) EXPECT_NEAR(is[a], expected[a], 1e-6);
    };
    near(cloud.colours[plain], Vec3d{0.5, 0.5, 0.5} * (1 - plainPart));
    near(cloud.colours[old], Vec3d{0, 1, 0.5} * (1 - oldPart));
    near(cloud.emissions[plain], Vec3d{4, 2, 0} * plainPart);
    near(cloud.emissions[old], Vec3d{4, 2, 0} * oldPart);
  };
  node.Set(1011, i32{ParticleLook::kLife});
  expect(0, 0.75);
  node.Set(1011, i32{ParticleLook::kSpeed});
  node.Set(1014, 10.0);
  expect(0, 0.5);
  node.Set(1011, i32{property_id::kTemperature});
  node.Set(1013, 600.0);
  node.Set(1014, 1000.0);
  expect(0, 0.5);
  node.Set(1013, 1000.0);
  node.Set(1014, 600.0);
  expect(0, 0.5);
  auto& mine = s.Add<Property<double>>("property_scalar", "mine");
  store.At(old).AddScalar({80, mine.Node()->Id()}, 900, "mine");
  TestScene::Set(mine, iProperty::kPropertyRow, i32{80});
  s.SetUp();
  node.Set(1012, host::Link{mine.Node()->Id()});
  expect(0, 0.25);
}

}  // namespace
}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
