#include "fluids/operators/particle_converter.h"

#include "fluids/operators/group_operator_rig.h"
#include "fluids/particles/property_column.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using exchange::ParticlesObject;

namespace {

using Row = ParticleConverter;

/// Sparks that go to an object, which stands askew, and from there to another group.
struct ConverterRig : GroupRig {
  ParticlesObject& shown = document.Create<ParticlesObject>(host::kPointsObject, "shown", nullptr);
  ParticleGroup& others = Add<ParticleGroup>("particlegroup", "others");
  ParticleConverter& show = Add<ParticleConverter>("particle_converter", "show");
  ParticleConverter& take = Add<ParticleConverter>("particle_converter", "take");
  Property<double>& heat = Add<Property<double>>("property_scalar", "heat");
  Property<Vec3d>& tint = Add<Property<Vec3d>>("property_vector", "tint");

  ConverterRig() {
    shown.SetPlacement({10, -20, 30}, {20, 40, 60}, {2, 2, 2});
    Link(show, Row::kSourceRow, group);
    show.Node()->Set(Row::kTargetRow, host::Link{shown.Id()});
    take.Node()->Set(Row::kSourceRow, host::Link{shown.Id()});
    Link(take, Row::kTargetRow, others);
    Set(take, Row::kTargetKindRow, i32{kDiffuse});
    Set(heat, iProperty::kPropertyRow, i32{property_id::kTemperature});
    Set(tint, iProperty::kPropertyRow, i32{80});
    SetUp();
  }
  ParticleStore& Taken() { return others.Store(kDiffuse); }
  /// Both converters, and the dead are gone.
  void HandOver(i32 threads = 1) {
    SetUp();
    scene->UpdateDomain(50, 2, 0.1);
    Run(show, threads);
    Run(take, threads);
    others.CommitStep();
  }
  const Vec3d& PlaceOf(i32 id) {
    Taken().IndexIds();
    return Taken().Positions()[Taken().RowOf(id)];
  }
};

template <class T>
T ValueOf(const ParticleStore& store, const PropertyKey& key, i32 row) {
  const PropertyColumn<T>* column = store.Find<T>(key);
  return column ? column->Get(row, T{}) : T{};
}

}  // namespace

TEST(ParticleConverter, HandsOverInHostUnitsAndBack) {
  for (const i32 threads : {1, 3}) {
    ConverterRig rig;
    for (ParticleConverter* node : {&rig.show, &rig.take}) {
      TestScene::Link(*node, Row::kColourRow, rig.tint);
      TestScene::Links(*node, Row::kPropertiesRow, {&rig.heat});
    }
    TestScene::Set(rig.show, Row::kRadiusFactorRow, 3.0);
    TestScene::Set(rig.show, Row::kLifeFactorRow, 0.5);
    rig.SetUp();
    for (i32 i = 0; i < 200; ++i) {
      ParticleTemplate particle;
      particle.position = Vec3d{0.01 * i, 1 - 0.02 * i, 0.5};
      particle.velocity = Vec3d{1, 0.1 * i, -2};
      particle.Set(property_id::kRadius, 0.01 + 0.001 * i);
      particle.Set(property_id::kAge, 40.0);
      particle.Set(property_id::kTemperature, 2.0 * i);
      particle.Set(rig.tint.Key(), Vec3d{0.2, 0.01 * i, 0.4});
      rig.Store().Create(particle);
    }
    rig.Store().Flags()[0] &= static_cast<u16>(~PF_ALIVE);
    rig.HandOver(threads);

    // 50 host units are 2 m, and the object is twice as large in the world.
    ASSERT_EQ(rig.shown.points.size(), 199u);
    const Matrix place = rig.shown.GlobalMatrix();
    const double scale = rig.scene->mDomain.simToWorld.x;
    ASSERT_NEAR(scale, 25, 1e-5);
    const exchange::ParticleTable& table = rig.shown.Table();
    ASSERT_TRUE(table.Find("id", 1) && table.Find("radius", 1) && table.Find("color", 3));
    for (i32 row : {0, 7, 198}) {
      const auto id = static_cast<i32>(table.Find("id", 1)->At(row));
      EXPECT_EQ(id, row + 1);
      ExpectClose(place * rig.shown.points[row], rig.Store().Positions()[id] * scale, 1e-9);
      EXPECT_NEAR(table.Find("radius", 1)->At(row), 3 * scale * (0.01 + 0.001 * id), 1e-12);
    }
    ASSERT_EQ(rig.Taken().Count(), 199);
    for (i32 row = 0; row < 199; ++row) {
      const i32 id = rig.Taken().Ids()[row];
      EXPECT_TRUE(rig.Taken().Flags()[row] & PF_KIND_DIFFUSE);
      ExpectClose(rig.Taken().Positions()[row], rig.Store().Positions()[id], 1e-12);
      ExpectClose(rig.Taken().Velocities()[row], rig.Store().Velocities()[id], 1e-12);
      EXPECT_NEAR(ValueOf<double>(rig.Taken(), property_id::kRadius, row), 3 * (0.01 + 0.001 * id),
                  1e-12);
      EXPECT_EQ(ValueOf<double>(rig.Taken(), property_id::kAge, row), 20);
      EXPECT_EQ(ValueOf<double>(rig.Taken(), property_id::kTemperature, row), 2.0 * id);
      EXPECT_EQ(ValueOf<Vec3d>(rig.Taken(), rig.tint.Key(), row), Vec3d(0.2, 0.01 * id, 0.4));
    }
  }
}

TEST(ParticleConverter, KnowsParticlesByTheirNumbers) {
  ConverterRig rig;
  for (i32 i = 0; i < 4; ++i) rig.Put({1.0 * i, 0, 0}, {0, 1, 0});
  rig.HandOver();
  rig.others.Store(kDiffuse).Velocities()[0] = {9, 9, 9};
  // The last one takes the row of the one that goes.
  rig.Store().Flags()[1] &= static_cast<u16>(~PF_ALIVE);
  rig.group.CommitStep();
  for (Vec3d& p : rig.Store().Positions()) p.y = 5;
  rig.Put({7, 5, 0});
  TestScene::Set(rig.take, Row::kPlaceBlendRow, 0.25);
  TestScene::Set(rig.take, Row::kVelocityBlendRow, 0.0);
  rig.HandOver();
  ASSERT_EQ(rig.Taken().Count(), 4);
  for (const i32 id : {0, 2, 3}) ExpectClose(rig.PlaceOf(id), {1.0 * id, 1.25, 0}, 1e-12);
  ExpectClose(rig.PlaceOf(4), {7, 5, 0}, 1e-12, "a new one stands where the source has it");
  EXPECT_EQ(rig.Taken().Velocities()[rig.Taken().RowOf(0)], Vec3d(9, 9, 9));

  TestScene::Set(rig.take, Row::kOnceRow, true);
  TestScene::Set(rig.take, Row::kPlaceBlendRow, 1.0);
  TestScene::Set(rig.take, Row::kRemoveRow, false);
  rig.Store().Flags()[0] &= static_cast<u16>(~PF_ALIVE);
  rig.HandOver();
  EXPECT_EQ(rig.shown.points.size(), 3u);
  ASSERT_EQ(rig.Taken().Count(), 4) << "it stays where nobody removes it";
  ExpectClose(rig.PlaceOf(2), {2, 1.25, 0}, 1e-12, "what is there goes on by itself");

  // Without numbers the first is the first.
  ConverterRig plain;
  for (i32 i = 0; i < 3; ++i) plain.Put({1.0 * i, 0, 0});
  for (ParticleConverter* node : {&plain.show, &plain.take})
    TestScene::Set(*node, Row::kKeepIdsRow, false);
  plain.HandOver();
  plain.Store().Flags()[0] &= static_cast<u16>(~PF_ALIVE);
  plain.HandOver();
  ASSERT_EQ(plain.Taken().Count(), 2);
  ExpectClose(plain.PlaceOf(0), {1, 0, 0}, 1e-12);
  ExpectClose(plain.PlaceOf(1), {2, 0, 0}, 1e-12);
}

TEST(ParticleConverter, ConstraintsSayWhoGoesAndHowFar) {
  ConverterRig rig;
  iBase& half = rig.Add<iBase>("constraint_script", "half");
  TestScene::Set(half, 9002,
                 std::string("function main(op) return physical_pos.x < 1 and 0.5 or 0 end"));
  rig.Put({0, 0, 0});
  rig.Put({2, 0, 0});
  rig.HandOver();
  ASSERT_EQ(rig.Taken().Count(), 2);
  TestScene::Links(rig.take, common_row::kConstraints, {&half});
  for (Vec3d& p : rig.Store().Positions()) p.y = 4;
  rig.Put({3, 0, 0});
  rig.HandOver();
  ASSERT_EQ(rig.Taken().Count(), 2) << "those that are left out aren't made";
  ExpectClose(rig.PlaceOf(0), {0, 2, 0}, 1e-12);
  ExpectClose(rig.PlaceOf(1), {2, 0, 0}, 1e-12, "nor moved, nor removed");
}

TEST(ParticleConverter, SaysWhyItRests) {
  ConverterRig rig;
  rig.HandOver();
  EXPECT_STREQ(rig.show.mInactiveReason, "its source holds no particles");
  rig.Put({1, 1, 1});
  TestScene::Link(rig.show, Row::kTargetRow, rig.others);
  rig.SetUp();
  TestScene::Run(rig.show);
  EXPECT_STREQ(rig.show.mInactiveReason,
               "one of its 'source' and 'target' has to be a group, the other one an object");
  auto& cloud = rig.document.Create<host::PointsObject>(host::kPointsObject, "cloud", nullptr);
  cloud.points = {{1, 2, 3}};
  rig.show.Node()->Set(Row::kTargetRow, host::Link{cloud.Id()});
  rig.SetUp();
  TestScene::Run(rig.show);
  EXPECT_TRUE(std::string(rig.show.mInactiveReason).starts_with("its target holds what"));
  EXPECT_EQ(cloud.points.size(), 1u);
}
