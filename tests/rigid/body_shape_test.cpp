// Mass and shape of rigid bodies.
#include <gtest/gtest.h>

#include <BulletCollision/CollisionShapes/btConvexShape.h>

#include <cmath>

#include "fluids/volume/mesh_solid.h"
#include "host/shapes.h"
#include "rigid/body_shape.h"
#include "rigid/bullet_frame.h"
#include "rigid/convex_hull.h"
#include "rigid/mass_properties.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

TEST(MassProperties, OfABoxFarFromTheOriginAreExact) {
  const Vec3d size{2, 3, 0.5}, centre{400, -30, 7};
  TurnedBox box(centre, size, 0.7, -0.4, 1);
  std::vector<VecInt3D> inwards = box.mesh.GetTriangles();
  for (VecInt3D& t : inwards) std::swap(t.x, t.y);
  for (const auto& triangles : {box.mesh.GetTriangles(), inwards}) {
    const MassProperties mass = MeasureMass(box.mesh.GetVertices(), triangles);
    EXPECT_NEAR(mass.volume, 3, 1e-10);
    EXPECT_LT(Length(mass.centre - centre), 1e-9);
    for (int a = 0; a < 3; ++a) {
      // About its own axes m (b^2 + c^2) / 12.
      const Vec3d e = box.axis[a];
      double own = 0;
      for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) own += e[i] * mass.inertia[3 * i + j] * e[j];
      EXPECT_NEAR(own, 3 * (Dot(size, size) - size[a] * size[a]) / 12, 1e-8);
    }
  }
  const MassProperties mass = MeasureMass(box.mesh.GetVertices(), box.mesh.GetTriangles());
  const Matrix3d moved = MovedInertia(mass, {0, 2, 0});
  EXPECT_NEAR(moved[0] - mass.inertia[0], 3 * 4, 1e-9);
  EXPECT_NEAR(moved[4] - mass.inertia[4], 0, 1e-9);
}

TEST(ConvexHull, KnowsBoxesFromOtherShapes) {
  TurnedBox box({1, 2, 3}, {2, 3, 0.5}, 0.7, -0.4, 1);
  Vec3d axes[3];
  ASSERT_TRUE(FindBoxAxes(box.mesh.GetVertices(), axes));
  for (const Vec3d& axis : axes) {
    double best = 0;
    for (const Vec3d& own : box.axis) best = std::max(best, std::fabs(Dot(axis, own)));
    EXPECT_NEAR(best, 1, 1e-9);
  }
  std::vector<Vec3d> bent = box.mesh.GetVertices();
  bent[3] += Vec3d{0.01, 0, 0};
  EXPECT_FALSE(FindBoxAxes(bent, axes));
  const ConvexHull hull = FindConvexHull(box.mesh.GetVertices());
  EXPECT_NEAR(MeasureMass(hull.vertices, hull.triangles).volume, 3, 1e-3);
}

TEST(ConvexHull, OfAFlatSheetIsThatOfAThinPlate) {
  const TurnedBox box({1, 2, 3}, {4, 3, 0.5}, 0.7, -0.4, 1);
  const std::vector<Vec3d>& corners = box.mesh.GetVertices();
  // One side of the box: the corners on the plane through it.
  std::vector<Vec3d> side;
  for (const Vec3d& c : corners)
    if (Dot(c - Vec3d{1, 2, 3}, box.axis[2]) > 0) side.push_back(c);
  ASSERT_EQ(side.size(), 4u);
  const ConvexHull plate = FindConvexHull(Thickened(side));
  const MassProperties mass = MeasureMass(plate.vertices, plate.triangles);
  EXPECT_NEAR(mass.volume, 4 * 3 * 0.05, 2e-3) << "a hundredth of the diagonal";
  EXPECT_LT(Length(mass.centre - Vec3d{1, 2, 3} - box.axis[2] * 0.25), 2e-3);
  EXPECT_EQ(Thickened(corners), corners);
  const std::vector<Vec3d> line = {{0, 0, 0}, {1, 1, 1}, {2, 2, 2}};
  EXPECT_EQ(Thickened(line), line);
}

BodyForm FormOf(const std::vector<Vec3d>& vertices, const std::vector<VecInt3D>& triangles) {
  BodyShape shape;
  EXPECT_TRUE(shape.Make({vertices, triangles, true}, BodyForm::Automatic, true, -1));
  return shape.Form();
}

TEST(BodyShape, IsTheSimplestThatFits) {
  const TurnedBox box({0, 0, 0}, {2, 3, 0.5}, 0, 0, 1);
  EXPECT_EQ(FormOf(box.mesh.GetVertices(), box.mesh.GetTriangles()), BodyForm::Box);
  const TurnedBox turned({0, 0, 0}, {2, 3, 0.5}, 0.3, 0, 1);
  EXPECT_EQ(FormOf(turned.mesh.GetVertices(), turned.mesh.GetTriangles()), BodyForm::Hull);
  // A dent makes it hollow.
  TriMeshSTL dented = box.mesh;
  dented.GetVertices().push_back({0, 0, 0.1});
  dented.GetTriangles().erase(dented.GetTriangles().begin() + 2, dented.GetTriangles().begin() + 4);
  for (const VecInt3D& t :
       {VecInt3D{4, 5, 8}, VecInt3D{5, 7, 8}, VecInt3D{7, 6, 8}, VecInt3D{6, 4, 8}})
    dented.GetTriangles().push_back(t);
  EXPECT_EQ(FormOf(dented.GetVertices(), dented.GetTriangles()), BodyForm::Mesh);
  BodyShape none;
  EXPECT_FALSE(none.Make({}, BodyForm::Automatic, true, -1));
}

// Margins round corners off: what bodies touch stays where the polygons are.
TEST(BodyShape, KeepsItsSizeWithAnyMargin) {
  const TurnedBox straight({0, 0, 0}, {0.4, 0.6, 0.2}, 0, 0, 1),
      turned({0, 0, 0}, {0.4, 0.6, 0.2}, 0.3, 0.8, 1);
  for (const TurnedBox* box : {&straight, &turned}) {
    BodyShape shape;
    const std::vector<Vec3d>& corners = box->mesh.GetVertices();
    ASSERT_TRUE(
        shape.Make({corners, box->mesh.GetTriangles(), true}, BodyForm::Automatic, true, 0.001));
    for (const double margin : {0.02, -1.0, 5.0, 0.0}) {
      shape.SetMargin(margin);
      const auto& convex = static_cast<const btConvexShape&>(*shape.Get());
      EXPECT_LE(convex.getMargin(), 0.05 + 1e-9) << "half of what it has";
      EXPECT_EQ(convex.getMargin() > 0, margin != 0);
      // Across its faces, where what is round doesn't show.
      for (const Vec3d& axis : box->axis) {
        double most = 0;
        for (const Vec3d& c : corners) most = std::max(most, Dot(c, axis));
        EXPECT_NEAR(convex.localGetSupportingVertex(ToBullet(axis)).dot(ToBullet(axis)), most, 2e-4)
            << margin;
      }
    }
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
