#include "fluids/volume/thin_walls.h"

#include <gtest/gtest.h>

#include <cmath>
#include <deque>

#include "fluids/volume/voxeliser.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr f32 kWallCell = 0.25f;
constexpr i32 kCells = 18;

/// A box of `size` cells about the middle of the grid, moved by `off` cells along its own x axis
/// and turned about z, then y.
struct TurnedBox {
  Vec3d axis[3], centre;

  TurnedBox(const Vec3d& size, double aboutZ, double aboutY, double off) {
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
    centre = Vec3d{kCells / 2.0, kCells / 2.0, kCells / 2.0} + axis[0] * off;
    std::vector<Vec3d>& v = mesh.GetVertices();
    for (int i = 0; i < 8; ++i)
      v.push_back((centre + axis[0] * (((i & 1) - 0.5) * size.x) +
                   axis[1] * (((i >> 1 & 1) - 0.5) * size.y) + axis[2] * ((i / 4 - 0.5) * size.z)) *
                  double(kWallCell));
    mesh.GetTriangles() = {{0, 2, 1}, {1, 2, 3}, {4, 5, 6}, {5, 7, 6}, {0, 1, 4}, {1, 5, 4},
                           {2, 6, 3}, {3, 6, 7}, {0, 4, 2}, {2, 4, 6}, {1, 3, 5}, {3, 7, 5}};
    mesh.UpdateBounds();
  }
  TriMeshSTL mesh;
};

/// A mesh in a grid, with its distances and thin walls.
struct Measured {
  EGrid<double> distance;
  VolumeVoxeliser voxeliser;
  ThinWalls walls;

  explicit Measured(const TriMeshSTL& mesh, i32 threads = 2) : distance(Layout(), kNode) {
    voxeliser.mShellThickness = 1;
    EXPECT_TRUE(voxeliser.Voxelise(mesh, distance, true, threads));
    walls.Find({mesh, distance, *voxeliser.ClosestTriangles(), SharpSurface::TurnsInwards(mesh)},
               threads);
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
  for (const double thickness : {0.02, 0.1, 0.5, 1.0, 1.4, 1.7, 1.8, 2.2})
    for (const Turn& turn :
         {Turn{0, 0}, Turn{0.3, 0}, Turn{0.785398163397448, 0}, Turn{0.5, 0.7}, Turn{-0.2, 1.1}})
      for (i32 place = 0; place < 10; ++place) {
        const TurnedBox box({thickness, 60, 60}, turn.z, turn.y, 0.1 * place);
        const Measured measured(box.mesh, 1);
        const auto side = [&](const VecInt3D& c) {
          return Dot(ToReal(c) + Vec3d{0.5, 0.5, 0.5} - box.centre, box.axis[0]);
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
      const TurnedBox box({5, 6, 7}, angle, 1.3 * angle, off);
      EXPECT_TRUE(Measured(box.mesh).walls.Faces().empty()) << angle << " " << off;
    }
}

TEST(ThinWalls, CloseOnlyWhereTheyStand) {
  // A plate of 8 by 8 cells in the middle of a cell, as wide as whole cells: 8 by 8 faces above it
  // or below.
  for (const double off : {0.3, 0.7}) {
    const TurnedBox box({0.1, 8, 8}, 0, 0, off);
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
  const Measured filled(TurnedBox({0.6, 8, 8}, 0, 0, 0.5).mesh);
  EXPECT_EQ(filled.walls.Faces().size(), 2u * 64 + 0u) << "both sides of the cells that it fills";
  EXPECT_EQ(filled.walls.Filled().size(), 64u);
}

TEST(ThinWalls, AreTheSameInsideOutAndAtAnyThreadCount) {
  TurnedBox box({0.3, 9, 7}, 0.4, 0.2, 0.15);
  const Measured one(box.mesh, 1), seven(box.mesh, 7);
  EXPECT_FALSE(one.walls.Faces().empty());
  EXPECT_EQ(one.walls.Faces(), seven.walls.Faces());
  for (VecInt3D& t : box.mesh.GetTriangles()) std::swap(t.x, t.y);
  EXPECT_EQ(Measured(box.mesh).walls.Faces(), one.walls.Faces());
}

TEST(ThinWalls, TellOfGapsThatAreTooNarrow) {
  const auto gapOf = [](double width) {
    TurnedBox one({4, 5, 5}, 0, 0, -2 - width / 2), two({4, 5, 5}, 0, 0, 2 + width / 2);
    TriMeshSTL& mesh = one.mesh;
    const i32 first = mesh.GetVertexCount();
    for (const Vec3d& v : two.mesh.GetVertices()) mesh.GetVertices().push_back(v);
    for (const VecInt3D& t : two.mesh.GetTriangles())
      mesh.GetTriangles().push_back(t + VecInt3D{first, first, first});
    mesh.UpdateBounds();
    return Measured(mesh).walls.NarrowGap();
  };
  EXPECT_FALSE(gapOf(1.1));
  const auto gap = gapOf(0.6);
  ASSERT_TRUE(gap);
  EXPECT_NEAR(gap->x, kCells / 2 * double(kWallCell), 0.31 * kWallCell);
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
