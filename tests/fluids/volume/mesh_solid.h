// Obstacles from triangles for tests, without nodes.
#pragma once
#include <gtest/gtest.h>

#include <cmath>
#include <utility>

#include "fluids/mesh/sheet.h"
#include "fluids/volume/thin_walls.h"
#include "fluids/volume/volume_base.h"
#include "fluids/volume/voxel_fixture.h"
#include "fluids/volume/voxeliser.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// An obstacle on the lattice of cells of one size that begins at the origin.
class MeshSolid : public VolumeBase {
 public:
  MeshSolid(TriMeshSTL source, f32 cell) : mesh(std::move(source)) {
    mGrid = std::make_unique<EGrid<double>>(GridAround(mesh, cell));
    mBoxMin = mGrid->mLayout.simOrigin;
    mBoxMax = mGrid->mLayout.simMax;
    isSheet = MELDO_SULVA::IsSheet(mesh);
    voxeliser.mShellThickness = 1;
    voxeliser.mIsSheet = isSheet;
    EXPECT_TRUE(voxeliser.Voxelise(mesh, *mGrid, true, 1));
    walls.Find(Surface(), isSheet ? ThinWalls::kSheet : ThinWalls::kSolid, true, 1);
  }
  SharpSurface Surface() const {
    return {mesh, *mGrid, *voxeliser.ClosestTriangles(), SharpSurface::TurnsInwards(mesh)};
  }
  const ThinWalls* GetThinWalls() const override { return &walls; }
  bool IsSheet() const override { return isSheet; }
  std::optional<SharpSurface> GetSharpSurface() const override {
    return isSheet ? std::nullopt : std::optional(Surface());
  }
  std::optional<SharpSurface> GetWallSurface() const override { return Surface(); }

  TriMeshSTL mesh;
  VolumeVoxeliser voxeliser;
  ThinWalls walls;
  bool isSheet = false;
};

/// A box of `size` cells about `centre` (cells), turned about z, then y. Without thickness along
/// its own x axis it is one rectangle.
struct TurnedBox {
  Vec3d axis[3], centre;
  TriMeshSTL mesh;

  TurnedBox(const Vec3d& middle, const Vec3d& size, double aboutZ, double aboutY, double cell)
      : centre(middle) {
    const auto turn = [&](const Vec3d& p) {
      const Vec3d q{p.x * std::cos(aboutZ) - p.y * std::sin(aboutZ),
                    p.x * std::sin(aboutZ) + p.y * std::cos(aboutZ), p.z};
      return Vec3d{q.x * std::cos(aboutY) + q.z * std::sin(aboutY), q.y,
                   -q.x * std::sin(aboutY) + q.z * std::cos(aboutY)};
    };
    for (int a = 0; a < 3; ++a) {
      Vec3d unit{};
      unit[a] = 1;
      axis[a] = turn(unit);
    }
    for (int i = 0; i < 8; ++i)
      mesh.GetVertices().push_back((centre + axis[0] * (((i & 1) - 0.5) * size.x) +
                                    axis[1] * (((i >> 1 & 1) - 0.5) * size.y) +
                                    axis[2] * ((i / 4 - 0.5) * size.z)) *
                                   cell);
    if (size.x > 0)
      mesh.GetTriangles() = {{0, 2, 1}, {1, 2, 3}, {4, 5, 6}, {5, 7, 6}, {0, 1, 4}, {1, 5, 4},
                             {2, 6, 3}, {3, 6, 7}, {0, 4, 2}, {2, 4, 6}, {1, 3, 5}, {3, 7, 5}};
    else
      mesh.GetTriangles() = {{0, 4, 2}, {2, 4, 6}};
    mesh.UpdateBounds();
  }
  /// How far a point (cells) lies along its own x axis.
  double Side(const Vec3d& p) const { return Dot(p - centre, axis[0]); }
};

inline void Append(TriMeshSTL& mesh, const TriMeshSTL& other) {
  const i32 first = mesh.GetVertexCount();
  for (const Vec3d& v : other.GetVertices()) mesh.GetVertices().push_back(v);
  for (const VecInt3D& t : other.GetTriangles())
    mesh.GetTriangles().push_back(t + VecInt3D{first, first, first});
  mesh.UpdateBounds();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
