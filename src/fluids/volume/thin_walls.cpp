#include "fluids/volume/thin_walls.h"

#include <algorithm>
#include <cmath>
#include <tuple>

#include "fluids/volume/triangle_distance.h"
#include "grids/fixed_blocks.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// In cells. No cell reaches from one side of a wall to the other when it is thicker than a cell's
/// diagonal: from there on distances at nodes close it.
constexpr double kThin = 1.75, kProbe = 0.25, kClearly = 0.75, kHair = 1e-4;
constexpr i32 kTrianglesAtOnce = 512;

auto OrderOf(const ThinWalls::Face& face) {
  return std::tuple(face.at.z, face.at.y, face.at.x, face.axis);
}

/// Probes the solid and the gas on the two sides of a point of the surface.
class Probe {
 public:
  explicit Probe(const SharpSurface& surface)
      : mSurface(surface), mCell(surface.Distances().mLayout.cellSize) {}

  /// From `p` straight into the solid it ends in less than `kThin` cells.
  bool IsThin(const Vec3d& p, const Vec3d& normal) const {
    if (NodeDistance(p - normal * mCell) <= -kClearly * mCell) return false;
    for (double s = kProbe; s <= kThin; s += kProbe)
      if (mSurface.Find(p - normal * (s * mCell)).distance > kHair * mCell) return true;
    return false;
  }
  /// From `p` straight out another side faces it in less than a cell.
  bool IsGapNarrow(const Vec3d& p, const Vec3d& normal) const {
    if (NodeDistance(p + normal * mCell) >= kClearly * mCell) return false;
    for (double s = kProbe; s < 1; s += kProbe) {
      const SharpSurface::Nearest there = mSurface.Find(p + normal * (s * mCell));
      if (there.distance < 0) return Dot(mSurface.NormalOf(there.triangle), normal) < -0.5;
    }
    return false;
  }

 private:
  double NodeDistance(const Vec3d& p) const {
    const EGrid<double>& d = mSurface.Distances();
    return SampleLinear(d, d.mLayout.ToCells(p));
  }
  const SharpSurface& mSurface;
  double mCell;
};

}  // namespace

struct ThinWalls::Found {
  std::vector<Face> faces;
  std::optional<Vec3d> gap;

  /// The lines through cell centres along an axis that cross a triangle, given in cells.
  void AddCrossings(const Probe& probe, const GridLayout& layout, const Vec3d (&p)[3],
                    const Vec3d& normal, i32 axis) {
    const i32 u = (axis + 1) % 3, v = (axis + 2) % 3;
    const Vec3d low = Min(Min(p[0], p[1]), p[2]), high = Max(Max(p[0], p[1]), p[2]);
    const auto first = [&](i32 a) {
      return static_cast<i32>(std::clamp(std::ceil(low[a] - 0.5), 0.0, layout.dims[a] - 1.0));
    };
    const auto last = [&](i32 a) {
      return static_cast<i32>(std::clamp(std::floor(high[a] - 0.5), -1.0, layout.dims[a] - 1.0));
    };
    for (i32 k = first(v); k <= last(v); ++k)
      for (i32 j = first(u); j <= last(u); ++j) {
        double w[3];
        const auto at = [&](i32 c) {
          return Vec2D<double>{p[c][u] - (j + 0.5), p[c][v] - (k + 0.5)};
        };
        if (!HoldsOrigin(at(0), at(1), at(2), w)) continue;
        Vec3d crossing;
        crossing[axis] = w[0] * p[0][axis] + w[1] * p[1][axis] + w[2] * p[2][axis];
        crossing[u] = j + 0.5;
        crossing[v] = k + 0.5;
        Add(probe, layout, crossing, normal, axis);
      }
  }

  void Add(const Probe& probe, const GridLayout& layout, const Vec3d& crossing, const Vec3d& normal,
           i32 axis) {
    const Vec3d p = layout.simOrigin + crossing * layout.simCell;
    if (!gap && probe.IsGapNarrow(p, normal)) gap = p;
    VecInt3D at;
    for (i32 a = 0; a < 3; ++a)
      at[a] = static_cast<i32>(std::floor(crossing[a] + (a == axis ? 0.5 : 0.0)));
    if (at[axis] < 0 || at[axis] > layout.dims[axis]) return;
    if (probe.IsThin(p, normal)) faces.push_back({at, axis});
  }
};

void ThinWalls::Clear() {
  mFaces.clear();
  mFilled.clear();
  mNarrowGap.reset();
}

void ThinWalls::Find(const SharpSurface& surface, i32 threads) {
  Clear();
  const GridLayout& layout = surface.Distances().mLayout;
  const TriMeshSTL& mesh = surface.Mesh();
  const Probe probe(surface);
  const i32 count = mesh.GetTriangleCount();
  const i32 blocks = (count + kTrianglesAtOnce - 1) / kTrianglesAtOnce;
  std::vector<Found> found(blocks);
  ForEachBlock(blocks, threads, [&](i32 block) {
    const i32 end = std::min(count, (block + 1) * kTrianglesAtOnce);
    for (i32 t = block * kTrianglesAtOnce; t < end; ++t) {
      const VecInt3D& corner = mesh.GetTriangles()[t];
      const std::vector<Vec3d>& v = mesh.GetVertices();
      const Vec3d p[3] = {layout.ToCells(v[corner.x]), layout.ToCells(v[corner.y]),
                          layout.ToCells(v[corner.z])};
      const Vec3d normal = surface.NormalOf(t);
      if (!std::isfinite(normal.x + normal.y + normal.z)) continue;
      for (i32 axis = 0; axis < 3; ++axis)
        found[block].AddCrossings(probe, layout, p, normal, axis);
    }
  });
  for (const Found& part : found) {
    mFaces.insert(mFaces.end(), part.faces.begin(), part.faces.end());
    if (!mNarrowGap) mNarrowGap = part.gap;
  }
  std::sort(mFaces.begin(), mFaces.end(),
            [](const Face& a, const Face& b) { return OrderOf(a) < OrderOf(b); });
  mFaces.erase(std::unique(mFaces.begin(), mFaces.end()), mFaces.end());
  FindFilled(surface);
}

void ThinWalls::FindFilled(const SharpSurface& surface) {
  const GridLayout& layout = surface.Distances().mLayout;
  const VecInt3D last = layout.dims - VecInt3D{1, 1, 1};
  for (const Face& face : mFaces)
    for (i32 side = 0; side < 2; ++side) {
      VecInt3D cell = face.at;
      cell[face.axis] -= side;
      if (Min(cell, VecInt3D{}) == VecInt3D{} && Max(cell, last) == last) mFilled.push_back(cell);
    }
  const auto order = [](const VecInt3D& c) { return std::tuple(c.z, c.y, c.x); };
  std::sort(mFilled.begin(), mFilled.end(),
            [&](const VecInt3D& a, const VecInt3D& b) { return order(a) < order(b); });
  mFilled.erase(std::unique(mFilled.begin(), mFilled.end()), mFilled.end());
  std::erase_if(mFilled, [&](const VecInt3D& cell) {
    const Vec3d p = layout.simOrigin + (ToReal(cell) + Vec3d{0.5, 0.5, 0.5}) * layout.simCell;
    return !(surface.Find(p).distance < 0);
  });
}

bool ThinWalls::Closes(const VecInt3D& at, i32 axis) const {
  const Face face{at, axis};
  const auto found =
      std::lower_bound(mFaces.begin(), mFaces.end(), face,
                       [](const Face& a, const Face& b) { return OrderOf(a) < OrderOf(b); });
  return found != mFaces.end() && *found == face;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
