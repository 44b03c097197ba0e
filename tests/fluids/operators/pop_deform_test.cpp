#include "fluids/operators/pop_deform.h"

#include "fluids/operators/group_operator_rig.h"
#include "fluids/particles/point_table.h"
#include "framework/constraint.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using host::BaseNode;

namespace {

/// Two deformers, of which the first moves by half a metre along x and the other doubles x there.
struct DeformRig : GroupRig {
  POP_Deform& node = AddOperator<POP_Deform>("particle_deform", POP_Deform::kKindRow);
  BaseNode& move = AddDeformer("move", host::DeformerKind::Move);
  BaseNode& widen = AddDeformer("widen", host::DeformerKind::Taper);

  DeformRig() {
    move.Set(host::kDeformerOffset, Vec3d{50, 0, 0});
    widen.Set(host::kDeformerFactor, 2.0);
    Name({&move, &widen});
  }
  BaseNode& AddDeformer(const char* name, host::DeformerKind kind) {
    BaseNode& made = document.Create<BaseNode>(host::kDeformerObject, name, nullptr);
    made.SetTable(&host::DeformerParameters());
    made.Set(host::kDeformerKind, static_cast<i32>(kind));
    return made;
  }
  void Name(std::initializer_list<const BaseNode*> nodes) {
    host::InExcludeData list;
    for (const BaseNode* each : nodes) list.entries.push_back({each->Id(), 0});
    node.Node()->Set(POP_Deform::kDeformersRow, list);
  }
  Vec3d Deformed(i32 row) {
    return Store().Find<Vec3d>(property_id::kDeformed)->Get(row, {-1, -1, -1});
  }
};

}  // namespace

TEST(PopDeform, TakesParticlesThroughItsDeformersInOrder) {
  DeformRig rig;
  rig.Put({0.25, 2, 0});
  rig.Step(rig.node);
  ExpectClose(rig.Deformed(0), {1.5, 2, 0});
  EXPECT_EQ(rig.Store().Positions()[0], (Vec3d{0.25, 2, 0})) << "the particle stays";
  const exchange::ParticleTable written = TableOf(rig.Store());
  const exchange::ParticleColumn* column = written.Find("deformed");
  ASSERT_TRUE(column) << "files of points show where it goes";
  ExpectClose({std::get<std::vector<f64>>(column->values)[0], 2, 0}, {1.5, 2, 0});
  rig.Name({&rig.widen, &rig.move});
  rig.Step(rig.node);
  ExpectClose(rig.Deformed(0), {1, 2, 0});
  GroupRig::Set(rig.node, POP_Deform::kStrengthRow, 0.5);
  rig.Step(rig.node);
  ExpectClose(rig.Deformed(0), {0.625, 2, 0});
  GroupRig::Set(rig.node, POP_Deform::kPerSecondRow, i32{1});
  rig.Step(rig.node);
  ExpectClose(rig.Deformed(0), {0.25 + 0.04 * 0.375, 2, 0});
  GroupRig::Set(rig.node, POP_Deform::kModeRow, i32{POP_Deform::kAdd});
  rig.Step(rig.node);
  ExpectClose(rig.Deformed(0), {0.25 + 0.08 * 0.375, 2, 0});
  // What carries the deformers takes the axis of the taper along.
  GroupRig::Set(rig.node, POP_Deform::kModeRow, i32{POP_Deform::kSet});
  GroupRig::Set(rig.node, POP_Deform::kPerSecondRow, i32{0});
  GroupRig::Set(rig.node, POP_Deform::kStrengthRow, 1.0);
  rig.node.Node()->SetPlacement({25, 0, 0}, {}, {1, 1, 1});
  rig.Step(rig.node);
  ExpectClose(rig.Deformed(0), {0.75, 2, 0});
}

TEST(PopDeform, LeavesOutWhatConstraintsLeaveOut) {
  DeformRig rig;
  auto& marked = rig.Add<Constraint>("constraint_particle_collision", "marked");
  GroupRig::Set(marked, 1000, i32{4});
  GroupRig::Links(rig.node, common_row::kConstraints, {&marked});
  for (i32 i = 0; i < 2; ++i) rig.Put({0.25, 2, 0});
  rig.Store().Flags()[1] |= PF_MARK;
  rig.Step(rig.node);
  EXPECT_EQ(rig.Deformed(0), (Vec3d{0.25, 2, 0}));
  ExpectClose(rig.Deformed(1), {1.5, 2, 0});
  // What isn't meant any more doesn't keep the place that it had.
  rig.Store().Flags()[1] &= static_cast<u16>(~PF_MARK);
  rig.Store().Positions()[1] = {5, 5, 5};
  rig.Step(rig.node);
  EXPECT_EQ(rig.Deformed(1), (Vec3d{5, 5, 5}));
}

TEST(PopDeform, WritesToItsTargetWhereParticlesHaveIt) {
  DeformRig rig;
  auto& own = rig.Add<iProperty>("property_vector", "own");
  GroupRig::Link(rig.node, POP_Deform::kTargetRow, own);
  rig.Put({0.25, 2, 0});
  rig.SetUp();
  rig.Step(rig.node);
  EXPECT_STREQ(rig.node.mInactiveReason, "none of its particles has its 'target'");
  rig.Put({0, 2, 0});
  rig.Store().Require<Vec3d>(own.Key()).Set(1, {9, 9, 9});
  rig.Step(rig.node);
  const auto& column = *rig.Store().Find<Vec3d>(own.Key());
  EXPECT_FALSE(column.Has(0));
  ExpectClose(column.Get(1, {}), {1, 2, 0});
  EXPECT_EQ(rig.Store().Find<Vec3d>(property_id::kDeformed), nullptr);
  own.Node()->Set(iProperty::kPropertyRow, i32{property_id::kPosition});
  rig.Step(rig.node);
  ExpectClose(rig.Store().Positions()[0], {1.5, 2, 0});
}
