// A slab of cells by tetrahedra.
#include <algorithm>
#include <array>
#include <cmath>

#include "fluids/surfaces/edge_points.h"
#include "fluids/surfaces/surface_slab.h"
#include "fluids/surfaces/tetrahedron_case.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

using Corners = std::array<u8, 4>;

/// A cell in five, as corner bits x + 2 y + 4 z, each right-handed; cells mirror their neighbours,
/// so that faces are cut alike from both sides.
constexpr Corners kEvenCell[] = {
    {1, 2, 0, 4}, {1, 7, 3, 2}, {1, 4, 5, 7}, {4, 2, 6, 7}, {1, 2, 4, 7}};
constexpr Corners kOddCell[] = {
    {0, 3, 2, 6}, {0, 5, 1, 3}, {5, 6, 7, 3}, {0, 6, 4, 5}, {0, 3, 6, 5}};

/// Tetrahedra nearly as round as tetrahedra that fill space can be, in a lattice that repeats from
/// cell to cell: its points in quarters of a cell.
constexpr VecInt3D kLatticePoints[] = {
    {1, 0, 0}, {2, 2, 0}, {1, 4, 0}, {3, 4, 0}, {2, 6, 0}, {1, 0, 4}, {3, 0, 4}, {2, 1, 2},
    {0, 2, 1}, {0, 2, 3}, {2, 2, 4}, {1, 4, 4}, {3, 4, 4}, {0, 4, 2}, {2, 3, 2}, {2, 5, 2},
    {4, 2, 1}, {4, 2, 3}, {5, 4, 4}, {4, 4, 2}, {0, 6, 1}, {0, 6, 3}, {2, 6, 4}, {2, 7, 2},
    {4, 6, 1}, {4, 6, 3}, {0, 2, 5}, {2, 3, 6}, {2, 5, 6}, {4, 2, 5}, {4, 4, 6}, {4, 6, 5},
    {2, 1, 6}, {0, 0, 2}, {5, 0, 4}, {4, 0, 2}, {3, 0, 0}, {4, 0, 6}, {5, 0, 0}, {5, 4, 0},
};
constexpr Corners kLattice[] = {
    {2, 3, 15, 14},   {2, 15, 13, 14},  {6, 29, 17, 10},  {6, 17, 34, 35},  {12, 14, 17, 10},
    {0, 36, 1, 7},    {29, 12, 18, 17}, {3, 14, 16, 19},  {3, 15, 14, 19},  {14, 16, 1, 3},
    {0, 7, 8, 33},    {7, 16, 36, 1},   {9, 7, 5, 33},    {8, 7, 9, 33},    {14, 12, 17, 19},
    {12, 29, 10, 17}, {14, 9, 13, 8},   {8, 2, 14, 1},    {14, 17, 16, 19}, {17, 14, 7, 10},
    {16, 7, 36, 35},  {17, 6, 7, 35},   {11, 15, 14, 13}, {3, 2, 1, 14},    {9, 14, 7, 8},
    {9, 14, 11, 10},  {1, 8, 0, 7},     {14, 8, 1, 7},    {12, 15, 19, 14}, {19, 39, 16, 3},
    {17, 12, 18, 19}, {14, 9, 11, 13},  {14, 12, 11, 10}, {2, 8, 14, 13},   {6, 17, 7, 10},
    {5, 9, 26, 10},   {14, 9, 7, 10},   {11, 9, 10, 26},  {7, 9, 5, 10},    {17, 6, 34, 29},
    {6, 7, 5, 10},    {15, 12, 11, 14}, {16, 14, 1, 7},   {7, 17, 35, 16},  {38, 35, 16, 36},
    {14, 16, 17, 7},
};
constexpr i32 kQuarters = 4;
constexpr Vec3d kLatticeReach{5, 7, 6};  ///< of those points

class TetrahedronCutter {
 public:
  TetrahedronCutter(const SurfaceLattice& lattice, SurfaceSlab& slab)
      : mLattice(lattice), mSlab(slab), mGreatestChange(lattice.GreatestChange()) {}

  void CutCells() {
    mScale = 1;
    std::vector<double> layers[2];
    mLattice.ReadLayer(mSlab.firstLayer, layers[1]);
    const i32 nx = mLattice.nodes.x;
    for (i32 z = mSlab.firstLayer; z < mSlab.lastLayer; ++z) {
      std::swap(layers[0], layers[1]);
      mLattice.ReadLayer(z + 1, layers[1]);
      for (i32 y = 0; y + 1 < mLattice.nodes.y; ++y)
        for (i32 x = 0; x + 1 < nx; ++x) {
          double values[8];
          for (i32 c = 0; c < 8; ++c)
            values[c] = layers[c >> 2][std::size_t(nx) * (y + (c >> 1 & 1)) + x + (c & 1)];
          CutCell({x, y, z}, values);
        }
    }
    CollectSeams(mSlab.firstLayer, mSlab.firstLayer, mSlab.lower);
    CollectSeams(mSlab.lastLayer, mSlab.lastLayer, mSlab.upper);
  }

  void CutLattice() {
    mScale = kQuarters;
    for (i32 z = mSlab.firstLayer; z < mSlab.lastLayer; ++z)
      for (i32 y = 0; y + 1 < mLattice.nodes.y; ++y)
        for (i32 x = 0; x + 1 < mLattice.nodes.x; ++x) CutQuarters({x, y, z});
    // Tetrahedra of a layer of cells reach into the next one.
    const i32 first = mSlab.firstLayer * kQuarters, last = mSlab.lastLayer * kQuarters;
    CollectSeams(first, first + kQuarters - 1, mSlab.lower);
    CollectSeams(last, last + kQuarters - 1, mSlab.upper);
  }

 private:
  void CutCell(const VecInt3D& cell, const double* values) {
    const auto [low, high] = std::minmax_element(values, values + 8);
    if (*low >= 0 || *high < 0 || !(*high - *low <= mGreatestChange)) return;
    // Cells of the lattice begin one off those of the grid, on each axis.
    for (const Corners& corners : (cell.x + cell.y + cell.z) % 2 ? kEvenCell : kOddCell) {
      std::array<VecInt3D, 4> points;
      std::array<double, 4> v;
      for (i32 i = 0; i < 4; ++i) {
        const i32 c = corners[i];
        points[i] = cell + VecInt3D{c & 1, c >> 1 & 1, c >> 2 & 1};
        v[i] = values[c];
      }
      Tetrahedron(points, v);
    }
  }

  void CutQuarters(const VecInt3D& cell) {
    const VecInt3D corner = cell * kQuarters;
    const Vec3d first = ToReal(cell);
    if (!mLattice.MayCross(first, first + kLatticeReach / kQuarters)) return;
    double values[std::size(kLatticePoints)];
    for (std::size_t i = 0; i < std::size(kLatticePoints); ++i)
      values[i] = ValueAt(corner + kLatticePoints[i]);
    for (const Corners& corners : kLattice) {
      std::array<VecInt3D, 4> points;
      std::array<double, 4> v;
      for (i32 i = 0; i < 4; ++i) {
        points[i] = corner + kLatticePoints[corners[i]];
        v[i] = values[corners[i]];
      }
      const auto [low, high] = std::minmax_element(v.begin(), v.end());
      if (*high - *low <= mGreatestChange) Tetrahedron(points, v);
    }
  }

  double ValueAt(const VecInt3D& point) const {
    return mLattice.ValueAt(ToReal(point) / double(mScale));
  }

  /// Adds the surface within a tetrahedron, whose corners are right-handed.
  void Tetrahedron(const std::array<VecInt3D, 4>& points, const std::array<double, 4>& values) {
    u32 signs = 0;
    for (i32 i = 0; i < 4; ++i) signs |= (values[i] >= 0 ? 1u : 0u) << i;
    const TetrahedronCase& cut = TetrahedronCase::Of(signs);
    for (i32 t = 0; t < cut.count; ++t) {
      i32 corner[3];
      for (i32 i = 0; i < 3; ++i) {
        const auto& [a, b] = TetrahedronCase::kEdges[cut.triangles[t][i]];
        corner[i] = EdgeVertex(points[a], points[b], values[a], values[b]);
      }
      mSlab.mesh.triangles.push_back({corner[0], corner[1], corner[2]});
    }
  }

  /// The point on an edge, which is made for the first tetrahedron that has it.
  i32 EdgeVertex(const VecInt3D& a, const VecInt3D& b, double va, double vb) {
    u64 first = Pack(a), second = Pack(b);
    if (second < first) return EdgeVertex(b, a, vb, va);
    i32& index = mEdges.Find(first, second);
    if (index < 0) {
      index = static_cast<i32>(mSlab.mesh.points.size());
      const Vec3d from = ToReal(a), to = ToReal(b);
      mSlab.mesh.points.push_back(
          mLattice.PositionOf((from + (to - from) * (va / (va - vb))) / double(mScale)));
    }
    return index;
  }

  static constexpr i32 kBits = 21;
  static u64 Pack(const VecInt3D& p) {
    return u64(p.z) << (2 * kBits) | u64(p.y) << kBits | u64(p.x);
  }

  /// The points on edges between two heights.
  void CollectSeams(i32 low, i32 high, SurfaceSlab::Seam& seam) const {
    const auto isWithin = [&](u64 packed) {
      const i32 z = static_cast<i32>(packed >> (2 * kBits));
      return z >= low && z <= high;
    };
    mEdges.ForEach([&](u64 a, u64 b, i32 point) {
      if (isWithin(a) && isWithin(b)) seam.push_back({{a, b}, point});
    });
    std::sort(seam.begin(), seam.end());
  }

  const SurfaceLattice& mLattice;
  SurfaceSlab& mSlab;
  double mGreatestChange;
  i32 mScale = 1;  ///< points for a node
  EdgePoints mEdges;
};

}  // namespace

bool SurfaceLattice::MayCross(const Vec3d& low, const Vec3d& high) const {
  const bool isLinear = sampleMode == SAMPLE_LINEAR;
  const i32 beyond = isLinear ? 0 : 2;
  const Vec3d from = ToSamples(low), to = ToSamples(high);
  const VecInt3D dims = grid->Dims();
  VecInt3D first, last;
  for (int a = 0; a < 3; ++a) {
    first[a] = std::clamp(static_cast<i32>(std::floor(from[a])) - beyond, 0, dims[a] - 1);
    last[a] = std::clamp(static_cast<i32>(std::ceil(to[a])) + beyond, 0, dims[a] - 1);
  }
  double least = std::numeric_limits<double>::infinity(), most = -least;
  for (i32 z = first.z; z <= last.z; ++z)
    for (i32 y = first.y; y <= last.y; ++y) {
      const double* row = grid->mData + grid->Index(0, y, z);
      for (i32 x = first.x; x <= last.x; ++x) {
        least = std::min(least, row[x]);
        most = std::max(most, row[x]);
      }
    }
  // Curves between samples leave their range by less than it is wide.
  const double more = (isLinear ? 0 : most - least) + 2e-5 * grid->mLayout.cellSize / resolution;
  return least - more <= level && most + more >= level;
}

void CutTetrahedra(const SurfaceLattice& lattice, i32 method, SurfaceSlab& slab) {
  TetrahedronCutter cutter(lattice, slab);
  if (method == 2)
    cutter.CutLattice();
  else
    cutter.CutCells();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
