// A scene with one polygon object, a mesh node over it and, if asked for, a volume.
#pragma once
#include <gtest/gtest.h>

#include "fluids/mesh/mesh.h"
#include "fluids/volume/volume_mesh.h"
#include "framework/sulva_scene.h"
#include "host/shapes.h"
#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class MeshRig {
 public:
  /// 100 host units are one simulation unit; one fixed step a frame; 25 frames a second.
  explicit MeshRig(host::Geometry geometry, double cellSize = 0.05) {
    server = &Create("server", nullptr);
    server->Set(1002, cellSize);
    server->Set(1003, i32{1});
    server->Set(1005, i32{0});
    object = &document.Create<host::PolygonObject>(host::kMeshObject, "object", nullptr);
    object->SetGeometry(std::move(geometry));
    meshNode = &Create("mesh", server);
    meshNode->Set(1000, host::Link{object->Id()});
    scene = CreateScene(*server);
  }

  void AddVolume() {
    volumeNode = &Create("volume", server);
    volumeNode->Set(1003, host::Link{meshNode->Id()});
  }
  void Frame(i32 frame) {
    document.SetFrame(frame);
    ASSERT_TRUE(scene->Execute(&host::MainThread(), false));
  }
  Mesh& GetMesh() const { return *dynamic_cast<Mesh*>(scene->FindObject(meshNode, 2)); }
  VolumeMesh& GetVolume() const {
    return *dynamic_cast<VolumeMesh*>(scene->FindObject(volumeNode, 2));
  }
  Vec3d VelocityAt(const Vec3d& p) const {
    Vec3d v;
    GetMesh().GetVelocityAt(v, p);
    return v;
  }
  void Place(const Vec3d& position, const Vec3d& rotation = {}, const Vec3d& scale = {1, 1, 1}) {
    object->SetPlacement(position, rotation, scale);
  }

  host::Document document;
  host::BaseNode* server = nullptr;
  host::PolygonObject* object = nullptr;
  host::BaseNode* meshNode = nullptr;
  host::BaseNode* volumeNode = nullptr;
  std::unique_ptr<SulvaScene> scene;

 private:
  host::BaseNode& Create(std::string_view type, host::BaseNode* parent) {
    return CreateNode(document, *FindKind(type), std::string(type), parent);
  }
};

inline testing::AssertionResult IsNear(const Vec3d& value, const Vec3d& wanted, double tolerance) {
  const Vec3d off = value - wanted;
  if (std::max({std::abs(off.x), std::abs(off.y), std::abs(off.z)}) <= tolerance)
    return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << "(" << value.x << ", " << value.y << ", " << value.z << ") instead of (" << wanted.x
         << ", " << wanted.y << ", " << wanted.z << ")";
}
#define EXPECT_VEC(value, wanted, tolerance) EXPECT_TRUE(IsNear(value, wanted, tolerance))

}  // namespace MELDO_GLOBAL::MELDO_SULVA
