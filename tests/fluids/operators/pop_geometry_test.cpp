#include "fluids/operators/pop_geometry.h"

#include "fluids/operators/group_operator_rig.h"
#include "framework/constraint.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using host::Geometry;
using host::PolygonObject;

namespace {

/// Copies of a triangle whose normal leans from x towards y.
struct GeometryRig : GroupRig {
  PolygonObject& leaf = document.Create<PolygonObject>(host::kMeshObject, "leaf", nullptr);
  POP_Geometry& node = AddOperator<POP_Geometry>("pop_geometry", POP_Geometry::kKindRow);

  GeometryRig() {
    Geometry geometry;
    geometry.points = {{0, 0, 0}, {0, 0, -10}, {10, -10, 0}};
    geometry.polygons = {{0, 1, 2, 2}};
    const Vec3d normal = Normalised(Cross(geometry.points[1], geometry.points[2]));
    geometry.normals = {{normal, normal, normal, normal}};
    leaf.SetGeometry(geometry);
    node.Node()->Set(POP_Geometry::kObjectRow, host::Link{leaf.Id()});
  }
  const Geometry& Copies() {
    Step(node);
    return dynamic_cast<PolygonObject&>(*node.Node()).GetGeometry();
  }
  Vec3d ScaleOf(i32 row) {
    const Matrix& place = node.Instances()[static_cast<std::size_t>(row)].place;
    return {Length(place.v1), Length(place.v2), Length(place.v3)};
  }
};

}  // namespace

TEST(PopGeometry, PlacesCopiesInHostUnits) {
  GeometryRig rig;
  rig.leaf.SetPlacement({500, 500, 500}, {}, {1, 1, 1});
  rig.node.Node()->SetPlacement({0, 7, 0}, {0, 90, 0}, {2, 2, 2});
  GroupRig::Set(rig.node, POP_Geometry::kScaleRow, Vec3d{2, 1, 3});
  GroupRig::Set(rig.node, POP_Geometry::kRotationRow, Vec3d{0, 0, 90});
  rig.Put({1, 2, 3}, {0.5, 0, 0});
  rig.Put({0, 0, 0});
  rig.Store().Flags()[1] &= static_cast<u16>(~PF_ALIVE);
  const Geometry copies = rig.Copies();
  ASSERT_EQ(copies.points.size(), 3u) << "the dead have none";
  const Matrix own = rig.node.Node()->GlobalMatrix();
  ExpectClose(own * copies.points[0], {100, 200, 300}, 1e-4);
  // x goes to y, doubled, and y to -x.
  ExpectClose(own * copies.points[2], {110, 220, 300}, 1e-4);
  ExpectClose(own * copies.points[1], {100, 200, 270}, 1e-4);
  ExpectClose(own.Rotate(copies.velocities[2]), {50, 0, 0}, 1e-4);
  for (i32 point : {1, 2})
    EXPECT_NEAR(Dot(copies.normals[0][0], copies.points[point] - copies.points[0]), 0, 1e-5);
  EXPECT_GT(Dot(copies.normals[0][0],
                Cross(copies.points[1] - copies.points[0], copies.points[2] - copies.points[0])),
            0);
  EXPECT_EQ(rig.node.Instances()[1].id, -1);
}

TEST(PopGeometry, DrawsOnceForTheLifeOfAParticle) {
  GeometryRig rig;
  GroupRig::Set(rig.node, POP_Geometry::kRandomXRow, 0.5);
  GroupRig::Set(rig.node, POP_Geometry::kRandomYRow, 0.25);
  GroupRig::Set(rig.node, POP_Geometry::kRandomRotationRow, Vec3d{0, 360, 0});
  for (i32 i = 0; i < 300; ++i) rig.Put({0.1 * i, 0, 0});
  rig.Copies();
  double sum = 0;
  std::map<i32, Matrix> turns;
  for (i32 row = 0; row < 300; ++row) {
    const Vec3d scale = rig.ScaleOf(row);
    EXPECT_TRUE(scale.x > 0.5 && scale.x <= 1);
    EXPECT_NEAR(1 - scale.y, (1 - scale.x) / 2, 1e-9) << "one draw for all axes";
    EXPECT_NEAR(scale.z, 1, 1e-9);
    sum += scale.x / 300;
    turns[rig.node.Instances()[static_cast<std::size_t>(row)].id] =
        rig.node.Instances()[static_cast<std::size_t>(row)].place;
  }
  EXPECT_NEAR(sum, 0.75, 0.03);
  GroupRig::Set(rig.node, POP_Geometry::kUniformRow, i32{0});  // of those to come
  for (i32 row = 0; row < 300; row += 3) rig.Store().Flags()[row] &= static_cast<u16>(~PF_ALIVE);
  rig.Store().RemoveDead(false);
  EXPECT_EQ(rig.Copies().polygons.size(), 200u);
  for (const POP_Geometry::Instance& instance : rig.node.Instances()) {
    ExpectClose(instance.place.v1, turns[instance.id].v1, 0);
    ExpectClose(instance.place.offset, turns[instance.id].offset, 0);
  }
  GeometryRig uneven;
  GroupRig::Set(uneven.node, POP_Geometry::kRandomXRow, 0.5);
  GroupRig::Set(uneven.node, POP_Geometry::kRandomYRow, 0.5);
  GroupRig::Set(uneven.node, POP_Geometry::kUniformRow, i32{0});
  uneven.Put({0, 0, 0});
  uneven.Copies();
  EXPECT_GT(std::abs(uneven.ScaleOf(0).x - uneven.ScaleOf(0).y), 1e-3);
}

TEST(PopGeometry, ShrinksLeavesOutAndMovesCopies) {
  GeometryRig rig;
  auto& marked = rig.Add<Constraint>("constraint_particle_collision", "marked");
  GroupRig::Set(marked, 1000, i32{4});
  GroupRig::Set(marked, Constraint::kOutputLowRow, 0.25);
  rig.Put({0, 0, 0});
  rig.Put({1, 0, 0});
  rig.Store().Flags()[1] |= PF_MARK;
  GroupRig::Links(rig.node, POP_Geometry::kScaledByRow, {&marked});
  EXPECT_EQ(rig.Copies().polygons.size(), 2u);
  ExpectClose(rig.ScaleOf(0), {0.25, 0.25, 0.25});
  ExpectClose(rig.ScaleOf(1), {1, 1, 1});
  GroupRig::Set(marked, Constraint::kOutputLowRow, 0.0);
  EXPECT_EQ(rig.Copies().polygons.size(), 1u);
  GroupRig::Links(rig.node, POP_Geometry::kScaledByRow, {});
  EXPECT_EQ(rig.Copies().polygons.size(), 2u);
  GroupRig::Set(rig.node, POP_Geometry::kSourceRow, i32{POP_Geometry::kFromDeformed});
  rig.Store().Require<Vec3d>(property_id::kDeformed).Set(1, {4, 0, 0});
  rig.Store().Require<Vec3d>(property_id::kColor).Set(1, {1, 0, 0});
  const Geometry& copies = rig.Copies();
  ExpectClose(copies.points[0], {0, 0, 0}, 1e-4);
  ExpectClose(copies.points[3], {400, 0, 0}, 1e-4);
  EXPECT_EQ(copies.colours[3], (Vec3d{1, 0, 0}));
  // A frame in which it rests shows nothing.
  GroupRig::Set(rig.node, POP_Geometry::kKindRow, i32{kDiffuse});
  EXPECT_TRUE(rig.Copies().polygons.empty());
}
