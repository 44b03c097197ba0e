#include "fluids/surfaces/implicit_mesher.h"

#include <gtest/gtest.h>

#include "fluids/mesh/mesh_rig.h"
#include "io/mesh_table.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

/// A ball of 40 host units as a volume, its skin, and a mesh that reads the skin.
struct SkinRig : MeshRig {
  host::PolygonObject* skin;
  host::BaseNode* copy;

  SkinRig() : MeshRig(host::MakeSphere({.radius = 40, .segments = 64})) {
    AddVolume();
    host::BaseNode& node = CreateNode(document, *FindKind("mesher"), "skin", server);
    skin = dynamic_cast<host::PolygonObject*>(&node);
    node.Set(ImplicitMesher::kSourceRow, host::Link{volumeNode->Id()});
    node.Set(ImplicitMesher::kLevelRow, 0.0);
    copy = &CreateNode(document, *FindKind("mesh"), "copy", server);
    copy->Set(Mesh::kObjectRow, host::Link{node.Id()});
  }
  Mesh& Copy() const { return *dynamic_cast<Mesh*>(scene->FindObject(copy, kListGeometry)); }
};

TEST(ImplicitMesher, ItsNodeIsTheSurface) {
  SkinRig rig;
  ASSERT_NE(rig.skin, nullptr);
  rig.Place({100, 0, 0});
  // The polygons are where they are, however the node stands.
  rig.skin->SetPlacement({7, 8, 9}, {10, 20, 30}, {1, 2, 3});
  rig.Frame(0);
  EXPECT_TRUE(rig.skin->IsOutput());
  const app::MeshTable table = app::TableOf(*rig.skin, {0.01, 0.01, 0.01});
  ASSERT_GT(table.points.size(), 100u);
  for (std::size_t i = 0; i < table.points.size(); ++i) {
    const Vec3d out = table.points[i] - Vec3d{1, 0, 0};
    ASSERT_NEAR(Length(out), 0.4, 0.005);
    ASSERT_GT(Dot(table.normals[i], out) / Length(out), 0.98);
  }
  EXPECT_NEAR(app::Measure(table).volume, 0.268, 0.01);
  EXPECT_EQ(rig.Copy().mMesh.GetTriangleCount(), 0) << "read before it was made";

  rig.Place({200, 0, 0});
  rig.Frame(1);
  EXPECT_VEC(rig.Copy().mMesh.GetBoundsCentre(), (Vec3d{1, 0, 0}), 0.01);
  EXPECT_EQ(rig.Copy().mMesh.GetVertexCount(), static_cast<i32>(table.points.size()));
  rig.skin->Set(ImplicitMesher::kLevelRow, -1.0);
  rig.Frame(2);
  EXPECT_TRUE(rig.skin->GetGeometry().polygons.empty()) << "nothing lies so deep";
  iBase& mesher = *rig.scene->FindObject(rig.skin, kListGeometry);
  EXPECT_TRUE(mesher.TakeWarnings().empty());
  rig.skin->Set(ImplicitMesher::kLevelRow, 0.3);
  rig.Frame(3);
  EXPECT_EQ(mesher.TakeWarnings().size(), 1u) << "the grid ends before that distance";
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
