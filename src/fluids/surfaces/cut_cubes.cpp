// A slab of cells by marching cubes.
#include <algorithm>
#include <array>

#include "fluids/surfaces/marching_cube.h"
#include "fluids/surfaces/surface_slab.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

enum Signs : u8 { kNegative = 1, kPositive = 2 };

class CubeCutter {
 public:
  CubeCutter(const SurfaceLattice& lattice, SurfaceSlab& slab)
      : mLattice(lattice),
        mSlab(slab),
        mNx(lattice.nodes.x),
        mNy(lattice.nodes.y),
        mGreatestChange(lattice.GreatestChange()) {
    for (Plane& plane : mPlanes) plane.rows.resize(mNy);
    mColumns.assign(std::size_t(mNx) * mNy, -1);
  }

  void Run() {
    Enter(mSlab.firstLayer);
    for (i32 z = mSlab.firstLayer; z < mSlab.lastLayer; ++z) {
      std::swap(mPlanes[0], mPlanes[1]);
      Enter(z + 1);
      CutLayer(z);
      if (z == mSlab.firstLayer) Collect(mPlanes[0], z, mSlab.lower);
    }
    Collect(mPlanes[1], mSlab.lastLayer, mSlab.upper);
  }

 private:
  /// A layer of nodes, and the points on the edges in it.
  struct Plane {
    std::vector<double> values;
    std::vector<u8> rows;       ///< which signs each row has
    std::vector<i32> edges[2];  ///< along x and y; -1 without a point
    bool hasPoints = false;     ///< on its edges
  };

  /// Reads a layer into the upper plane.
  void Enter(i32 z) {
    Plane& plane = mPlanes[1];
    mLattice.ReadLayer(z, plane.values);
    for (i32 y = 0; y < mNy; ++y) {
      const double* row = plane.values.data() + std::size_t(mNx) * y;
      double low = row[0], high = row[0];
      for (i32 x = 1; x < mNx; ++x) low = std::min(low, row[x]), high = std::max(high, row[x]);
      plane.rows[y] = static_cast<u8>((low < 0 ? kNegative : 0) | (high >= 0 ? kPositive : 0));
    }
    // Most layers have none: what lies far from the surface is but read.
    if (plane.hasPoints || plane.edges[0].empty())
      for (auto& edges : plane.edges) edges.assign(plane.values.size(), -1);
    plane.hasPoints = false;
    if (mHasColumns) std::fill(mColumns.begin(), mColumns.end(), -1);
    mHasColumns = false;
  }

  void CutLayer(i32 z) {
    const Plane &lower = mPlanes[0], &upper = mPlanes[1];
    for (i32 y = 0; y + 1 < mNy; ++y) {
      const u8 signs = lower.rows[y] | lower.rows[y + 1] | upper.rows[y] | upper.rows[y + 1];
      if (signs == (kNegative | kPositive)) CutRow(y, z);
    }
  }

  using Rows = std::array<const double*, 4>;  ///< of nodes, by y and then z

  /// Which of the four nodes at a place of the rows are positive.
  static u32 SignsAt(const Rows& rows, i32 x) {
    return (rows[0][x] >= 0 ? 1u : 0u) | (rows[1][x] >= 0 ? 2u : 0u) | (rows[2][x] >= 0 ? 4u : 0u) |
           (rows[3][x] >= 0 ? 8u : 0u);
  }

  void CutRow(i32 y, i32 z) {
    const std::size_t first = std::size_t(mNx) * y;
    const double *lower = mPlanes[0].values.data() + first,
                 *upper = mPlanes[1].values.data() + first;
    const Rows rows = {lower, lower + mNx, upper, upper + mNx};
    u32 before = SignsAt(rows, 0);
    for (i32 x = 0; x + 1 < mNx; ++x) {
      const u32 behind = SignsAt(rows, x + 1);
      if ((before | behind) != 0 && (before & behind) != 15) {
        double values[8];
        for (i32 c = 0; c < 8; ++c) values[c] = rows[c >> 1][x + (c & 1)];
        CutCell({x, y, z}, values);
      }
      before = behind;
    }
  }

  void CutCell(const VecInt3D& cell, const double* values) {
    const auto [low, high] = std::minmax_element(values, values + 8);
    if (!(*high - *low <= mGreatestChange)) return;
    const MarchingCube::Case& cut = MarchingCube::CaseOf(values);
    i32 points[MarchingCube::kMiddle + 1];
    const auto pointOn = [&](u8 edge) { return points[edge] = PointOn(cell, values, edge); };
    if (!cut.fan.empty()) {
      Vec3d sum{};
      for (const u8 edge : cut.fan) sum += mSlab.mesh.points[pointOn(edge)];
      points[MarchingCube::kMiddle] = Add(sum / double(cut.fan.size()));
    }
    for (const auto& triangle : cut.triangles) {
      i32 corner[3];
      for (i32 i = 0; i < 3; ++i)
        corner[i] =
            triangle[i] == MarchingCube::kMiddle ? points[triangle[i]] : pointOn(triangle[i]);
      mSlab.mesh.triangles.push_back({corner[0], corner[1], corner[2]});
    }
  }

  /// The point on an edge of a cell, which is made for the first cell that has it.
  i32 PointOn(const VecInt3D& cell, const double* values, i32 edge) {
    const i32 corner = MarchingCube::CornerOf(edge), axis = edge >> 2;
    const VecInt3D node = cell + VecInt3D{corner & 1, corner >> 1 & 1, corner >> 2 & 1};
    const std::size_t index = std::size_t(mNx) * node.y + node.x;
    i32& point = axis == 2 ? mColumns[index] : mPlanes[corner >> 2 & 1].edges[axis][index];
    if (point >= 0) return point;
    (axis == 2 ? mHasColumns : mPlanes[corner >> 2 & 1].hasPoints) = true;
    const double a = values[corner], b = values[corner | 1 << axis];
    Vec3d p = ToReal(node);
    p[axis] += a / (a - b);
    return point = Add(mLattice.PositionOf(p));
  }

  i32 Add(const Vec3d& p) {
    mSlab.mesh.points.push_back(p);
    return static_cast<i32>(mSlab.mesh.points.size()) - 1;
  }

  static void Collect(const Plane& plane, i32 z, SurfaceSlab::Seam& seam) {
    if (!plane.hasPoints) return;
    for (u64 axis = 0; axis < 2; ++axis)
      for (std::size_t i = 0; i < plane.edges[axis].size(); ++i)
        if (plane.edges[axis][i] >= 0)
          seam.push_back({{u64(z) * 2 + axis, i}, plane.edges[axis][i]});
  }

  const SurfaceLattice& mLattice;
  SurfaceSlab& mSlab;
  i32 mNx, mNy;
  double mGreatestChange;
  Plane mPlanes[2];
  std::vector<i32> mColumns;  ///< points on the edges between the planes
  bool mHasColumns = false;
};

}  // namespace

void SurfaceLattice::ReadLayer(i32 layer, std::vector<double>& values) const {
  values.resize(std::size_t(nodes.x) * nodes.y);
  if (resolution == 1) {
    for (i32 y = 0; y < nodes.y; ++y) {
      const double* row = grid->mData + grid->Index(1, y + 1, layer + 1);
      for (i32 x = 0; x < nodes.x; ++x) values[std::size_t(nodes.x) * y + x] = Relative(row[x]);
    }
    return;
  }
  for (i32 y = 0; y < nodes.y; ++y)
    for (i32 x = 0; x < nodes.x; ++x)
      values[std::size_t(nodes.x) * y + x] = ValueAt(ToReal({x, y, layer}));
}

void CutCubes(const SurfaceLattice& lattice, SurfaceSlab& slab) { CubeCutter(lattice, slab).Run(); }

}  // namespace MELDO_GLOBAL::MELDO_SULVA
