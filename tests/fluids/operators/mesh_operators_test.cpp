// Operators on meshes against closed forms, in the pipeline.
#include <gtest/gtest.h>

#include <numbers>

#include "fluids/mesh/mesh_rig.h"
#include "fluids/operators/mesh_curvature_operator.h"
#include "fluids/operators/mesh_smoothing_operator.h"
#include "fluids/operators/mesh_vertex_normals_operator.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

/// Weighs what lies above y = 0 by 0.25, and nothing below it.
class Above : public Constraint {
 public:
  using Constraint::Constraint;
  bool Test(const Vec3d& p, double& weight, const ConstraintUse&) override {
    weight *= p.y > 0 ? 0.25 : 0.0;
    return weight != 0;
  }
};

struct MeshOperatorRig : MeshRig {
  explicit MeshOperatorRig(host::Geometry geometry, std::string_view type = "")
      : MeshRig(std::move(geometry)) {
    if (!type.empty()) op = &AddOperator(type);
  }
  host::BaseNode& AddOperator(std::string_view type) {
    host::BaseNode& node = CreateNode(document, *FindKind(type), std::string(type), server);
    node.Set(1000, host::Link{meshNode->Id()});
    return node;
  }
  void AddAbove() {
    host::BaseNode& node = CreateNode(document, *FindKind("duration"), "above", server);
    scene->AddObject(kListAuxiliary, std::make_unique<Above>(&node, scene.get()));
    op->Set(2502, host::InExcludeData{{{node.Id(), 0}}});
  }
  iBase& Operator() const { return *scene->FindObject(op, kListOperators); }
  const std::vector<Vec3d>& Vertices() const { return GetMesh().mMesh.GetVertices(); }
  const std::vector<double>& Curvature() const { return GetMesh().mMesh.mColumns.curvature; }

  host::BaseNode* op = nullptr;
};

// ---- curvature -------------------------------------------------------------------------------

TEST(MeshCurvature, OfABallIsTwoOverItsRadius) {
  for (const i32 smooth : {0, 1}) {
    MeshOperatorRig rig(host::MakeIcosphere(4, 25), "mop_curvature");
    rig.op->Set(1004, smooth);
    rig.Place({100, 20, -30}, {10, 20, 30});
    rig.Frame(0);
    ASSERT_EQ(rig.Curvature().size(), rig.Vertices().size());
    double mean = 0;
    for (const double c : rig.Curvature()) {
      // Where only five triangles meet, a third of their area is less than the vertex's part.
      EXPECT_NEAR(c, 8.0, smooth ? 0.6 : 1.3);
      mean += c / rig.Curvature().size();
    }
    EXPECT_NEAR(mean, 8.0, 0.02);
  }
}

TEST(MeshCurvature, OfATorusFollowsItsTube) {
  // The tube's circle and the turn about the axis: 1 / r + cos a / (R + r cos a).
  MeshOperatorRig rig(host::MakeTorus({.radius = 60, .tube = 20, .segments = 160}),
                      "mop_curvature");
  rig.Frame(0);
  for (std::size_t i = 0; i < rig.Vertices().size(); ++i) {
    const Vec3d& p = rig.Vertices()[i];
    const double ring = std::hypot(p.x, p.z);
    const double wanted = 1 / 0.2 + (ring - 0.6) / 0.2 / ring;
    EXPECT_NEAR(rig.Curvature()[i], wanted, 0.02 * wanted) << i;
  }
}

TEST(MeshCurvature, OfPlanesAndLooseVerticesIsNone) {
  host::Geometry grid;
  for (i32 z = 0; z < 7; ++z)
    for (i32 x = 0; x < 7; ++x)
      grid.points.push_back({10.0 * x + (z % 3), 2.0 * x + 0.2 * (z % 3), 13.0 * z});
  for (i32 z = 0; z < 6; ++z)
    for (i32 x = 0; x < 6; ++x) {
      const i32 a = 7 * z + x;
      grid.polygons.push_back({a, a + 7, a + 8, a + 1});
    }
  grid.points.push_back({30, 30, 30});
  MeshOperatorRig rig(grid, "mop_curvature");
  rig.op->Set(1004, i32{0});
  rig.Frame(0);
  for (i32 z = 1; z < 6; ++z)
    for (i32 x = 1; x < 6; ++x) EXPECT_NEAR(rig.Curvature()[7 * z + x], 0, 1e-9);
  EXPECT_EQ(rig.Curvature().back(), 0.0);
}

TEST(MeshCurvature, ADegenerateTriangleAddsNothing) {
  host::Geometry g = host::MakeIcosphere(2, 25);
  const i32 a = g.polygons[0].a, b = g.polygons[0].b;
  g.polygons.push_back({a, b, b, b});
  MeshOperatorRig rig(g, "mop_curvature");
  MeshOperatorRig clean(host::MakeIcosphere(2, 25), "mop_curvature");
  rig.Frame(0);
  clean.Frame(0);
  for (std::size_t i = 0; i < clean.Curvature().size(); ++i)
    EXPECT_NEAR(rig.Curvature()[i], clean.Curvature()[i], 1e-9);
}

TEST(MeshCurvature, IsWeighedByDurationAndConstraints) {
  MeshOperatorRig rig(host::MakeIcosphere(3, 25), "mop_curvature");
  rig.AddAbove();
  host::BaseNode& window = CreateNode(rig.document, *FindKind("duration"), "window", rig.server);
  window.Set(1000, 1.0);  // a second, fading
  rig.op->Set(1001, host::Link{window.Id()});
  for (i32 frame = 0; frame < 4; ++frame) rig.Frame(frame);
  const double weight = 0.25 * (1 - rig.scene->mTime.elapsed);
  for (std::size_t i = 0; i < rig.Vertices().size(); ++i) {
    const double y = rig.Vertices()[i].y;
    if (y < 0) {
      EXPECT_EQ(rig.Curvature()[i], 0.0);
    } else if (y > 0.1) {
      EXPECT_NEAR(rig.Curvature()[i], 8 * weight, 0.6 * weight);
    }
  }
  for (i32 frame = 4; frame < 28; ++frame) rig.Frame(frame);
  EXPECT_STREQ(rig.Operator().mInactiveReason, "its time window is closed");
}

// ---- smoothing -------------------------------------------------------------------------------

/// Each of the twelve corners of an icosahedron has five neighbours at the cosine 1 / sqrt(5), so
/// that the mean of the six lies on the corner's ray at (1 + 5 / sqrt(5)) / 6 of its distance.
const double kShrink = (1 + std::sqrt(5.0)) / 6;

TEST(MeshSmoothing, ShrinksAnIcosahedronByItsClosedForm) {
  for (const i32 rounds : {0, 1, 3}) {
    MeshOperatorRig rig(host::MakeIcosphere(0, 50), "mop_smoothing");
    rig.op->Set(1004, rounds);
    rig.Frame(0);
    const double wanted = 0.5 * std::pow(kShrink, rounds);
    for (const Vec3d& p : rig.Vertices()) EXPECT_NEAR(Length(p), wanted, 1e-7);
    EXPECT_NEAR(rig.GetMesh().mMesh.GetBoundsMax().y / wanted,
                rig.GetMesh().mPreviousMesh.GetBoundsMax().y / 0.5, 1e-6)
        << "the box follows";
  }
}

TEST(MeshSmoothing, StartsFromTheHostsShapeInEachFrameAndSubstep) {
  MeshOperatorRig rig(host::MakeIcosphere(0, 50), "mop_smoothing");
  rig.server->Set(1005, i32{3});
  rig.server->Set(1010, i32{3});
  for (i32 frame = 0; frame < 4; ++frame) {
    rig.Place({10.0 * frame, 0, 0});
    rig.Frame(frame);
    for (const Vec3d& p : rig.Vertices())
      EXPECT_NEAR(Length(p - Vec3d{0.1 * frame, 0, 0}), 0.5 * kShrink, 1e-6) << frame;
  }
  EXPECT_VEC(rig.VelocityAt({0.3, 0, 0}) * static_cast<double>(rig.scene->mReport.steps.size()),
             (Vec3d{0.1, 0, 0}), 1e-6);
  rig.op->SetEnabled(false);
  rig.Frame(4);
  for (const Vec3d& p : rig.Vertices())
    EXPECT_NEAR(Length(p - Vec3d{0.3, 0, 0}), 0.5, 1e-6) << "switched off";
}

TEST(MeshSmoothing, MovesOnlyWhatItsConstraintsLetItMove) {
  MeshOperatorRig rig(host::MakeIcosphere(0, 50), "mop_smoothing");
  rig.AddAbove();
  rig.Frame(0);
  for (std::size_t i = 0; i < 12; ++i) {
    const Vec3d& host = rig.GetMesh().mPreviousMesh.GetVertices()[i];
    const double share = host.y > 0 ? 1 + 0.25 * (kShrink - 1) : 1.0;
    EXPECT_VEC(rig.Vertices()[i], host * share, host.y > 0 ? 1e-7 : 0.0);
  }
}

TEST(MeshSmoothing, TurnsNormalsAlong) {
  host::Geometry g = host::MakeIcosphere(0, 50);
  for (const host::Polygon& p : g.polygons) {
    const Vec3d side = Normalised(g.points[p.a]) + Vec3d{0, 0.3, 0};
    g.normals.push_back({Normalised(g.points[p.a]), Normalised(g.points[p.b]),
                         Normalised(g.points[p.c]), Normalised(side)});
  }
  MeshOperatorRig rig(g, "mop_smoothing");
  rig.Frame(0);
  const std::vector<Vec3d>& normals = rig.GetMesh().mMesh.mColumns.normal;
  ASSERT_EQ(normals.size(), 12u);
  for (std::size_t i = 0; i < 12; ++i) EXPECT_VEC(normals[i], Normalised(rig.Vertices()[i]), 1e-6);
}

TEST(MeshSmoothing, InTheStageOfVolumesShapesTheVolume) {
  MeshOperatorRig rig(host::MakeIcosphere(2, 50), "mop_smoothing");
  rig.AddVolume();
  rig.op->Set(1000, host::Link{rig.volumeNode->Id()});
  rig.op->Set(1004, i32{20});
  rig.Frame(0);
  EXPECT_NEAR(rig.GetVolume().mMaximumDistance, 0.5, 0.05) << "the volume is made before it";
  // Between the mesh and the volume.
  rig.op->Set(10001, static_cast<i32>(kVolumes));
  rig.op->Set(10002, i32{-5});
  for (i32 frame = 1; frame < 4; ++frame) {
    rig.Frame(frame);
    const double radius = Length(rig.Vertices()[0]);
    EXPECT_LT(radius, 0.45);
    EXPECT_NEAR(rig.GetVolume().DistanceAtWorld({radius - 0.1, 0, 0}), -0.1, 0.02) << frame;
  }
  // The smoothed shape is the same in each frame: nothing has to be measured again.
  (*rig.GetVolume().GetGrid())[0] = 12345;
  rig.Frame(4);
  EXPECT_EQ((*rig.GetVolume().GetGrid())[0], 12345);
  rig.op->Set(1004, i32{0});
  rig.Frame(5);
  EXPECT_NEAR(rig.GetVolume().mMaximumDistance, 0.5, 0.05) << "no rounds, the host's shape";
}

// ---- normals, threads, links -----------------------------------------------------------------

TEST(MeshVertexNormals, PointOutwardsAndAreZeroWhereThereAreNone) {
  host::Geometry g = host::MakeIcosphere(3, 50);
  g.points.push_back({0, 0, 0});
  MeshOperatorRig rig(g);
  rig.Frame(0);
  TriMeshSTL mesh = rig.GetMesh().mMesh;
  MeshVertexNormalsOperator normals(nullptr, rig.scene.get());
  normals.SetRecord(&mesh);
  normals.Prepare();
  ASSERT_TRUE(normals.Has(FLAG_ACTIVE));
  normals.Evaluate({});
  normals.Finish();
  const std::vector<Vec3d>& found = mesh.mColumns.normal;
  ASSERT_EQ(found.size(), g.points.size());
  for (std::size_t i = 0; i + 1 < found.size(); ++i) {
    EXPECT_VEC(found[i], Normalised(mesh.GetVertices()[i]), 0.02);
    EXPECT_NEAR(Length(found[i]), 1, 1e-12);
  }
  EXPECT_EQ(found.back(), Vec3d{}) << "a vertex without triangles";
}

TEST(MeshOperators, GiveTheSameWithOneThreadAndMore) {
  std::vector<Vec3d> vertices[2];
  std::vector<double> curvature[2];
  for (const i32 threads : {1, 3}) {
    host::SetThreadCount(threads);
    MeshOperatorRig rig(host::MakeTorus({.segments = 48}), "mop_smoothing");
    rig.op->Set(1004, i32{4});
    rig.AddOperator("mop_curvature");
    rig.Place({1, 2, 3}, {40, 50, 60}, {1, 2, 1});
    rig.Frame(0);
    vertices[threads > 1] = rig.Vertices();
    curvature[threads > 1] = rig.Curvature();
  }
  host::SetThreadCount(0);
  EXPECT_EQ(vertices[0], vertices[1]);
  EXPECT_EQ(curvature[0], curvature[1]);
}

TEST(MeshOperators, WithoutATargetSayWhy) {
  for (const char* type : {"mop_smoothing", "mop_curvature"}) {
    MeshOperatorRig rig(host::MakeIcosphere(1, 50), type);
    rig.op->Set(1000, host::Link{});
    rig.Frame(0);
    EXPECT_FALSE(rig.Operator().Has(FLAG_ACTIVE));
    EXPECT_STREQ(rig.Operator().mInactiveReason, "it has no target; name one under 'target'");
    rig.op->Set(1000, host::Link{rig.meshNode->Id()});
    rig.object->SetGeometry({});
    rig.Frame(1);
    EXPECT_STREQ(rig.Operator().mInactiveReason, "its mesh has no vertices");
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
