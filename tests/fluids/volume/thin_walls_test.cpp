#include "fluids/volume/thin_walls.h"

#include <gtest/gtest.h>

#include <cmath>
#include <deque>

#include "fluids/volume/mesh_solid.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr f32 kWallCell = 0.25f;
constexpr i32 kCells = 18;

/// A box of `size` cells about the middle of the grid, moved by `off` cells along its own x axis
/// and turned about z, then y.
TurnedBox BoxAt(const Vec3d& size, double aboutZ, double aboutY, double off) {
  const Vec3d middle{kCells / 2.0, kCells / 2.0, kCells / 2.0};
  const TurnedBox still(middle, size, aboutZ, aboutY, kWallCell);
  return {middle + still.axis[0] * off, size, aboutZ, aboutY, kWallCell};
}

/// A mesh in a grid, with its distances and thin walls.
struct Measured {
  EGrid<double> distance;
  VolumeVoxeliser voxeliser;
  ThinWalls walls;

  explicit Measured(const TriMeshSTL& mesh, i32 threads = 2, bool moves = false)
      : distance(Layout(), kNode) {
    const ThinWalls::Kind kind = IsSheet(mesh) ? ThinWalls::kSheet : ThinWalls::kSolid;
    voxeliser.mShellThickness = 1;
    voxeliser.mIsSheet = kind == ThinWalls::kSheet;
    EXPECT_TRUE(voxeliser.Voxelise(mesh, distance, true, threads));
    walls.Find({mesh, distance, *voxeliser.ClosestTriangles(), SharpSurface::TurnsInwards(mesh)},
               kind, moves, threads);
  }
  static GridLayout Layout() {
    GridLayout layout;
    layout.Set({kCells, kCells, kCells}, Vec3d{1, 1, 1} * (100.0 * kCells * kWallCell), kWallCell,
               {});
    return layout;
  }
  /// Neither a thin wall nor the distances at its nodes close the face.
  bool IsOpen(const VecInt3D& at, i32 axis) const {
    if (walls.Closes(at, axis)) return false;
    for (i32 i = 0; i < 4; ++i) {
      VecInt3D node = at;
      node[(axis + 1) % 3] += i & 1;
      node[(axis + 2) % 3] += i >> 1;
      if (distance(node.x, node.y, node.z) > 0) return true;
    }
    return false;
  }
  /// The cells that can be reached from one.
  Grid<u8> Flood(const VecInt3D& from) const {
    Grid<u8> seen(distance.mLayout.dims, kCentre);
    seen.Fill(0);
    std::deque<VecInt3D> next{from};
    seen(from.x, from.y, from.z) = 1;
    for (; !next.empty(); next.pop_front())
      for (i32 axis = 0; axis < 3; ++axis)
        for (i32 side = 0; side < 2; ++side) {
          VecInt3D cell = next.front(), face = cell;
          cell[axis] += side ? 1 : -1;
          face[axis] += side;
          if (cell[axis] < 0 || cell[axis] >= kCells || seen(cell.x, cell.y, cell.z)) continue;
          if (!IsOpen(face, axis)) continue;
          seen(cell.x, cell.y, cell.z) = 1;
          next.push_back(cell);
        }
    return seen;
  }
};

TEST(ThinWalls, AreTightAtAnyThicknessPlaceAndAngle) {
  struct Turn {
    double z, y;
  };
  for (const double thickness : {0.0, 0.02, 0.1, 0.5, 1.0, 1.4, 1.7, 1.8, 2.2})
    for (const Turn& turn :
         {Turn{0, 0}, Turn{0.3, 0}, Turn{0.785398163397448, 0}, Turn{0.5, 0.7}, Turn{-0.2, 1.1}})
      for (i32 place = 0; place < 10; ++place) {
        const TurnedBox box = BoxAt({thickness, 60, 60}, turn.z, turn.y, 0.1 * place);
        const Measured measured(box.mesh, 1);
        const auto side = [&](const VecInt3D& c) {
          return box.Side(ToReal(c) + Vec3d{0.5, 0.5, 0.5});
        };
        VecInt3D from;
        ForEachCell({{0, 0, 0}, {kCells, kCells, kCells}}, [&](i32 x, i32 y, i32 z) {
          if (side({x, y, z}) < side(from)) from = {x, y, z};
        });
        const Grid<u8> seen = measured.Flood(from);
        i32 before = 0, behind = 0;
        ForEachCell({{0, 0, 0}, {kCells, kCells, kCells}}, [&](i32 x, i32 y, i32 z) {
          const double s = side({x, y, z});
          if (s > thickness / 2 + 1e-9) behind += seen(x, y, z);
          if (s < -thickness / 2 - 1.8) before += !seen(x, y, z);
        });
        ASSERT_EQ(behind, 0) << thickness << " thick, turned by " << turn.z << " and " << turn.y
                             << ", at " << place;
        ASSERT_EQ(before, 0) << "what lies before it stays in one piece";
      }
}

TEST(ThinWalls, ThickSolidsHaveNone) {
  for (const double angle : {0.0, 0.4, 0.785398163397448})
    for (const double off : {0.0, 0.3, 0.5}) {
      const TurnedBox box = BoxAt({5, 6, 7}, angle, 1.3 * angle, off);
      EXPECT_TRUE(Measured(box.mesh).walls.Faces().empty()) << angle << " " << off;
    }
}

TEST(ThinWalls, CloseOnlyWhereTheyStand) {
  // A plate of 8 by 8 cells in the middle of a cell, as wide as whole cells: 8 by 8 faces above it
  // or below.
  for (const double off : {0.3, 0.7}) {
    const TurnedBox box = BoxAt({0.1, 8, 8}, 0, 0, off);
    const Measured measured(box.mesh);
    i32 closed = 0;
    for (const ThinWalls::Face& face : measured.walls.Faces()) {
      EXPECT_EQ(face.axis, 0);
      EXPECT_EQ(face.at.x, kCells / 2 + (off > 0.5));
      closed += face.at.y >= 5 && face.at.y < 13 && face.at.z >= 5 && face.at.z < 13;
    }
    EXPECT_EQ(closed, 64);
    EXPECT_EQ(measured.walls.Faces().size(), 64u);
    EXPECT_TRUE(measured.walls.Filled().empty());
  }
  const Measured filled(BoxAt({0.6, 8, 8}, 0, 0, 0.5).mesh, 2, true);
  EXPECT_EQ(filled.walls.Faces().size(), 2u * 64 + 2u * 7 * 8)
      << "both sides of the cells that it fills, and what lies between these";
  EXPECT_EQ(filled.walls.Filled().size(), 64u);
  const Measured still(BoxAt({0.6, 8, 8}, 0, 0, 0.5).mesh);
  EXPECT_EQ(still.walls.Faces().size(), 2u * 64) << "what lies before a wall at rest leads on";
}

TEST(ThinWalls, AreTheSameInsideOutAndAtAnyThreadCount) {
  TurnedBox box = BoxAt({0.3, 9, 7}, 0.4, 0.2, 0.15);
  const Measured one(box.mesh, 1), seven(box.mesh, 7);
  EXPECT_FALSE(one.walls.Faces().empty());
  EXPECT_EQ(one.walls.Faces(), seven.walls.Faces());
  for (VecInt3D& t : box.mesh.GetTriangles()) std::swap(t.x, t.y);
  EXPECT_EQ(Measured(box.mesh).walls.Faces(), one.walls.Faces());
}

TEST(Sheets, AreShapesWithLongBorders) {
  TriMeshSTL box = BoxAt({4, 4, 4}, 0.2, 0, 0).mesh;
  EXPECT_FALSE(IsSheet(box));
  EXPECT_TRUE(IsSheet(BoxAt({0, 4, 4}, 0.2, 0, 0).mesh));
  // Each triangle with vertices of its own, as some files have them.
  TriMeshSTL loose;
  for (const VecInt3D& t : box.GetTriangles()) {
    const i32 first = loose.GetVertexCount();
    for (int i = 0; i < 3; ++i) loose.GetVertices().push_back(box.GetVertices()[t[i]]);
    loose.GetTriangles().push_back({first, first + 1, first + 2});
  }
  EXPECT_FALSE(IsSheet(loose));
  box.GetTriangles().resize(10);
  EXPECT_TRUE(IsSheet(box)) << "without one side it is a trough";
  TriMeshSTL ball = MeshOf(host::MakeSphere({.radius = 50}));
  ASSERT_GT(ball.GetTriangleCount(), 300);
  ball.GetTriangles().pop_back();
  EXPECT_FALSE(IsSheet(ball)) << "a triangle that lacks makes it no sheet";
}

/// Whether the walls of a box and of its mirror image in x close mirrored faces; of `faces` their
/// number.
bool HasMirrorImage(const TurnedBox& box, std::size_t& faces) {
  TriMeshSTL image = box.mesh;
  for (Vec3d& v : image.GetVertices()) v.x = kCells * kWallCell - v.x;
  for (VecInt3D& t : image.GetTriangles()) std::swap(t.y, t.z);
  image.UpdateBounds();
  const Measured one(box.mesh), other(image);
  faces = one.walls.Faces().size();
  bool isSame = other.walls.Faces().size() == faces;
  for (const ThinWalls::Face& face : one.walls.Faces()) {
    VecInt3D at = face.at;
    at.x = kCells - (face.axis == 0 ? 0 : 1) - at.x;
    isSame &= other.walls.Closes(at, face.axis);
  }
  return isSame;
}

TEST(ThinWalls, LeaveSidesInPlanesOfNodesAndCentresToNoTriangle) {
  std::size_t faces = 0;
  // Its ends lie in planes of centres, its other sides in planes of nodes: no part of it is thin.
  EXPECT_TRUE(HasMirrorImage({{9, 9.5, 9}, {4, 4, 4}, 0, 0, kWallCell}, faces));
  EXPECT_EQ(faces, 0u);
  // The rims of thin ones lie in planes of centres, along which lines graze the sides.
  EXPECT_TRUE(HasMirrorImage({{6, 9, 9}, {5, 1, 5}, 0, 0, kWallCell}, faces));
  EXPECT_GT(faces, 0u);
  EXPECT_TRUE(HasMirrorImage({{6, 9.2, 9}, {5, 0.4, 5}, 0, 0, kWallCell}, faces));
  EXPECT_EQ(faces, 36u);
}

TEST(ThinWalls, SheetsThroughCentresCloseTheFacesOnBothSides) {
  std::size_t faces = 0;
  EXPECT_TRUE(HasMirrorImage({{6.5, 9, 9}, {0, 4, 4}, 0, 0, kWallCell}, faces));
  EXPECT_EQ(faces, 32u);
  EXPECT_TRUE(HasMirrorImage({{6.6, 9, 9}, {0, 4, 4}, 0, 0, kWallCell}, faces));
  EXPECT_EQ(faces, 16u);
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
