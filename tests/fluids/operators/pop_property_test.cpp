#include "fluids/operators/pop_property.h"

#include <gtest/gtest.h>

#include "fluids/emission/alignment_vector.h"
#include "fluids/particle_rig.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

struct PropertyRig : ParticleRig {
  POP_Property& change = Add<POP_Property>("pop_property", "change");
  Property<double>& heat = Add<Property<double>>("property_scalar", "heat");
  Property<Vec3d>& tint = Add<Property<Vec3d>>("property_vector", "tint");
  Property<bool>& wet = Add<Property<bool>>("property_state", "wet");

  PropertyRig() {
    Link(change, POP_Property::kGroupRow, group);
    Set(change, POP_Property::kKindRow, i32{kPassive});
    Set(heat, iProperty::kPropertyRow, i32{property_id::kTemperature});
    Set(tint, iProperty::kPropertyRow, i32{property_id::kColor});
    SetUp();
  }
  template <class T>
  void Give(const iProperty& property, const std::vector<T>& values) {
    PropertyColumn<T>& column = Store().Require<T>(property.Key());
    for (std::size_t i = 0; i < values.size(); ++i) column.Set(static_cast<i32>(i), values[i]);
  }
  void Change(const iBase& target, i32 operation, const iBase* source = nullptr) {
    Link(change, POP_Property::kTargetRow, target);
    Set(change, POP_Property::kOperationRow, operation);
    if (source) Link(change, POP_Property::kSourceRow, *source);
    SetUp();
    Run(change);
  }
  double Heat(i32 row) { return Store().Find<double>(heat.Key())->Get(row, -99); }
  Vec3d Tint(i32 row) { return Store().Find<Vec3d>(tint.Key())->Get(row, {-99, -99, -99}); }
};

}  // namespace

TEST(PropertyOperator, DoesEachOperationOnNumbersAndVectors) {
  const Vec3d t{2, -3, 4}, s{5, 1, -2};
  const Vec3d expected[] = {s, t + s, t - s, t * s, {-1, -1, -1}, {2, -3, -2}, {5, 1, 4}, t, t};
  const i32 operations[] = {0, 1, 2, 3, 4, 5, 6, 7, -4};
  for (std::size_t i = 0; i < std::size(operations); ++i) {
    PropertyRig rig;
    auto& other = rig.Add<Property<Vec3d>>("property_vector", "other");
    rig.SetUp();
    rig.Put({});
    rig.Give<Vec3d>(rig.tint, {t});
    rig.Give<Vec3d>(other, {s});
    rig.Give<double>(rig.heat, {t.x});
    rig.Change(rig.tint, operations[i], &other);
    EXPECT_EQ(rig.Tint(0), expected[i]) << operations[i];
    rig.Change(rig.heat, operations[i], &other);
    EXPECT_EQ(rig.Heat(0), operations[i] == 4 ? t.x * s.x : expected[i].x) << operations[i];
  }
}

TEST(PropertyOperator, FillsVectorsWithNumbersAndWeighsWhatItWrites) {
  for (const bool skips : {true, false}) {
    PropertyRig rig;
    rig.Put({0.5, 0, 0});
    rig.Put({1.5, 0, 0});
    rig.Put({0.6, 0, 0});
    rig.Put({0.7, 0, 0});
    rig.Give<double>(rig.heat, {3, 4, 5});
    rig.Give<Vec3d>(rig.tint, {{1, 2, 3}, {4, 5, 6}});
    rig.Kill(rig.Store(), 2);
    TestScene::Links(rig.change, common_row::kConstraints, {&rig.AddHalfLeft()});
    TestScene::Set(rig.change, POP_Property::kSkipRow, skips);
    rig.Change(rig.tint, 1, &rig.heat);
    EXPECT_EQ(rig.Tint(0), Vec3d(2, 2.5, 3));
    EXPECT_EQ(rig.Tint(1), skips ? Vec3d(4, 5, 6) : Vec3d());
    EXPECT_EQ(rig.Tint(2).x, -99) << "it is dead";
    EXPECT_EQ(rig.Tint(3).x, -99) << "it has nothing of the source";
  }
}

TEST(PropertyOperator, GivesPropertiesToParticlesWithoutThem) {
  PropertyRig rig;
  rig.Put({0, 3, 0}, {1, 1, 1});
  TestScene::Set(rig.change, POP_Property::kRealRow, 2.0);
  TestScene::Set(rig.change, POP_Property::kVectorRow, Vec3d{0, 2, 0});
  rig.Change(rig.heat, 1);
  EXPECT_EQ(rig.Heat(0), 2);
  rig.Change(rig.heat, 1);
  EXPECT_EQ(rig.Heat(0), 4);
  TestScene::Set(rig.heat, iProperty::kPropertyRow, i32{property_id::kMass});
  rig.Change(rig.heat, 3);
  EXPECT_EQ(rig.Heat(0), 2) << "a mass that isn't there is 1";
  rig.Change(rig.wet, 0);
  EXPECT_TRUE(rig.Store().Find<bool>(rig.wet.Key())->Get(0, false));
  TestScene::Set(rig.change, POP_Property::kWholeRow, i32{0});
  rig.Change(rig.wet, 3);
  EXPECT_FALSE(rig.Store().Find<bool>(rig.wet.Key())->Get(0, true));

  TestScene::Set(rig.tint, iProperty::kPropertyRow, i32{property_id::kVelocity});
  rig.Change(rig.tint, 1);
  EXPECT_EQ(rig.Store().Velocities()[0], Vec3d(1, 3, 1));
  auto& outwards = rig.Add<AlignmentVector3D>("alignment", "outwards");
  TestScene::Set(outwards, AlignmentVector3D::kModeRow, i32{AlignmentVector3D::kRadial});
  rig.Change(rig.tint, 0, &outwards);
  ExpectVector(Normalised(rig.Store().Velocities()[0]), {0, 1, 0}, 1e-12);

  rig.group.BuildTree(kPassive, 1);
  const u64 changes = rig.group.Changes(kPassive);
  TestScene::Set(rig.tint, iProperty::kPropertyRow, i32{property_id::kPosition});
  rig.change.Node()->Set(POP_Property::kSourceRow, host::Link{});
  rig.Change(rig.tint, 1);
  EXPECT_EQ(rig.Store().Positions()[0], Vec3d(0, 5, 0));
  EXPECT_GT(rig.group.Changes(kPassive), changes) << "neighbours are looked for anew";
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
