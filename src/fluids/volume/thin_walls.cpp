#include "fluids/volume/thin_walls.h"

#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>

#include "fluids/volume/solid_hair.h"
#include "fluids/volume/triangle_distance.h"
#include "grids/fixed_blocks.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// In cells. No cell reaches from one side of a wall to the other when it is thicker than a cell's
/// diagonal: from there on distances at nodes close it.
constexpr double kThin = 1.75, kProbe = 0.25, kClearly = 0.75, kHair = 1e-4;
constexpr double kUpright = 1e-6;  // of a normal: a line crosses no triangle that stands along it
constexpr i32 kTrianglesAtOnce = 512;

auto OrderOf(const ThinWalls::Face& face) {
  return std::tuple(face.at.z, face.at.y, face.at.x, face.axis);
}

/// Whether the origin lies on the edge from `p` to `q`, but for a hair; `share` tells where.
bool IsOnEdge(const Vec2D<double>& p, const Vec2D<double>& q, double& share) {
  const double dx = q.x - p.x, dy = q.y - p.y, squared = dx * dx + dy * dy;
  share = squared > 0 ? std::clamp(-(p.x * dx + p.y * dy) / squared, 0.0, 1.0) : 0.0;
  const double x = p.x + share * dx, y = p.y + share * dy;
  return x * x + y * y < kSolidHair * kSolidHair;
}

/// As `HoldsOrigin`, edges included: which of the lines along them count isn't for rounding to say.
bool TouchesOrigin(const Vec2D<double> (&p)[3], double (&weights)[3]) {
  if (HoldsOrigin(p[0], p[1], p[2], weights)) return true;
  for (i32 a = 0; a < 3; ++a) {
    const i32 b = (a + 1) % 3;
    double share;
    if (!IsOnEdge(p[a], p[b], share)) continue;
    weights[a] = 1 - share;
    weights[b] = share;
    weights[3 - a - b] = 0;
    return true;
  }
  return false;
}

}  // namespace

/// The lines through cell centres that cross the triangles of a block.
class ThinWalls::Crossings {
 public:
  Crossings(const SharpSurface& surface, Kind kind)
      : mSurface(surface), mLayout(surface.Distances().mLayout), mKind(kind) {}

  void AddTriangle(i32 triangle) {
    const VecInt3D& corner = mSurface.Mesh().GetTriangles()[triangle];
    const std::vector<Vec3d>& vertices = mSurface.Mesh().GetVertices();
    const Vec3d p[3] = {mLayout.ToCells(vertices[corner.x]), mLayout.ToCells(vertices[corner.y]),
                        mLayout.ToCells(vertices[corner.z])};
    const Vec3d low = Min(Min(p[0], p[1]), p[2]), high = Max(Max(p[0], p[1]), p[2]);
    VecInt3D first, last;
    for (i32 a = 0; a < 3; ++a) {
      const double end = mLayout.dims[a] - 1.0;
      // Without a number in it there is nothing between the two.
      if (!(low[a] <= end + 1 && high[a] >= -1)) return;
      first[a] = static_cast<i32>(std::max(std::ceil(low[a] - 0.5 - kSolidHair), 0.0));
      last[a] = static_cast<i32>(std::min(std::floor(high[a] - 0.5 + kSolidHair), end));
    }
    mNormal = mSurface.NormalOf(triangle);
    for (i32 axis = 0; axis < 3; ++axis) {
      const i32 u = (axis + 1) % 3, v = (axis + 2) % 3;
      if (std::abs(mNormal[axis]) < kUpright) continue;
      if (first[u] <= last[u] && first[v] <= last[v])
        AddAlong(p, axis, {first[u], first[v]}, {last[u], last[v]});
    }
  }

  std::vector<Face> faces;

 private:
  using Pair = Vec2D<i32>;

  void AddAlong(const Vec3d (&p)[3], i32 axis, const Pair& first, const Pair& last) {
    const i32 u = (axis + 1) % 3, v = (axis + 2) % 3;
    for (i32 k = first.y; k <= last.y; ++k)
      for (i32 j = first.x; j <= last.x; ++j) {
        double w[3];
        const auto at = [&](i32 c) {
          return Vec2D<double>{p[c][u] - (j + 0.5), p[c][v] - (k + 0.5)};
        };
        if (!TouchesOrigin({at(0), at(1), at(2)}, w)) continue;
        Vec3d crossing;
        crossing[axis] = w[0] * p[0][axis] + w[1] * p[1][axis] + w[2] * p[2][axis];
        crossing[u] = j + 0.5;
        crossing[v] = k + 0.5;
        Add(crossing, axis);
      }
  }

  void Add(const Vec3d& crossing, i32 axis) {
    if (mKind == kSolid && !IsThin(mLayout.simOrigin + crossing * mLayout.simCell, mNormal)) return;
    // A centre on the surface is in the solid: the face that closes lies on its other side. A sheet
    // through a centre has none, and closes the faces on both sides.
    const bool looksDown = mKind == kSolid && mNormal[axis] < 0;
    const bool looksUp = mKind == kSolid && !looksDown;
    if (!looksDown) AddFace(crossing, axis, kSolidHair);
    if (!looksUp) AddFace(crossing, axis, -kSolidHair);
  }

  void AddFace(const Vec3d& crossing, i32 axis, double nudge) {
    VecInt3D at;
    for (i32 a = 0; a < 3; ++a)
      at[a] = static_cast<i32>(std::floor(crossing[a] + (a == axis ? 0.5 + nudge : 0.0)));
    if (at[axis] < 0 || at[axis] > mLayout.dims[axis]) return;
    if (faces.empty() || !(faces.back() == Face{at, axis})) faces.push_back({at, axis});
  }

  /// From `p` straight into the solid it ends in less than `kThin` cells.
  bool IsThin(const Vec3d& p, const Vec3d& normal) const {
    const double cell = mLayout.cellSize;
    // One look settles the surfaces of thick solids.
    if (SampleLinear(mSurface.Distances(), mLayout.ToCells(p - normal * cell)) <= -kClearly * cell)
      return false;
    for (double s = kProbe; s <= kThin; s += kProbe)
      if (mSurface.Find(p - normal * (s * cell)).distance > kHair * cell) return true;
    return false;
  }

  const SharpSurface& mSurface;
  const GridLayout& mLayout;
  const Kind mKind;
  Vec3d mNormal;  ///< of the triangle in work
};

void ThinWalls::Clear() {
  mFaces.clear();
  mFilled.clear();
}

void ThinWalls::Find(SharpSurface surface, Kind kind, bool moves, i32 threads) {
  Clear();
  // From a place in the plane of a side, one triangle of it doesn't tell inside from outside.
  surface.LinkTriangles();
  const i32 count = surface.Mesh().GetTriangleCount();
  const i32 blocks = (count + kTrianglesAtOnce - 1) / kTrianglesAtOnce;
  std::vector<std::vector<Face>> found(blocks);
  ForEachBlock(blocks, threads, [&](i32 block) {
    Crossings crossings(surface, kind);
    const i32 end = std::min(count, (block + 1) * kTrianglesAtOnce);
    for (i32 t = block * kTrianglesAtOnce; t < end; ++t) crossings.AddTriangle(t);
    found[block] = std::move(crossings.faces);
  });
  for (const std::vector<Face>& part : found) mFaces.insert(mFaces.end(), part.begin(), part.end());
  SortFaces();
  if (kind == kSolid) FindFilled(surface, moves);
}

void ThinWalls::SortFaces() {
  std::sort(mFaces.begin(), mFaces.end(),
            [](const Face& a, const Face& b) { return OrderOf(a) < OrderOf(b); });
  mFaces.erase(std::unique(mFaces.begin(), mFaces.end()), mFaces.end());
}

namespace {

bool ComesBefore(const VecInt3D& a, const VecInt3D& b) {
  return std::tuple(a.z, a.y, a.x) < std::tuple(b.z, b.y, b.x);
}

bool Holds(const std::vector<VecInt3D>& sorted, const VecInt3D& cell) {
  return std::binary_search(sorted.begin(), sorted.end(), cell, ComesBefore);
}

/// In order, each once.
void SortCells(std::vector<VecInt3D>& cells) {
  std::sort(cells.begin(), cells.end(), ComesBefore);
  cells.erase(std::unique(cells.begin(), cells.end()), cells.end());
}

bool HoldsCentre(const SharpSurface& surface, const VecInt3D& cell) {
  const GridLayout& layout = surface.Distances().mLayout;
  const Vec3d p = layout.simOrigin + (ToReal(cell) + Vec3d{0.5, 0.5, 0.5}) * layout.simCell;
  return surface.Find(p).distance < kSolidHair * layout.cellSize;
}

}  // namespace

void ThinWalls::FindFilled(const SharpSurface& surface, bool moves) {
  const VecInt3D last = surface.Distances().mLayout.dims - VecInt3D{1, 1, 1};
  const auto exists = [&](const VecInt3D& cell) {
    return Min(cell, VecInt3D{}) == VecInt3D{} && Max(cell, last) == last;
  };
  for (const Face& face : mFaces)
    for (i32 side = 0; side < 2; ++side)
      if (const VecInt3D cell = face.at - ExtraOf(face.axis) * side; exists(cell))
        mFilled.push_back(cell);
  SortCells(mFilled);
  std::erase_if(mFilled, [&](const VecInt3D& cell) { return !HoldsCentre(surface, cell); });
  if (moves) CloseInside(surface, exists);
}

/// What distances leave open between cells of a wall is a tunnel without sides: a wall that moves
/// would blow through it what its closed faces push. Beside one at rest it is the part of a cell
/// that lies before the wall, and leads on.
template <class Exists>
void ThinWalls::CloseInside(const SharpSurface& surface, Exists&& exists) {
  std::vector<VecInt3D> beside;
  for (const VecInt3D& cell : mFilled)
    for (i32 axis = 0; axis < 3; ++axis)
      for (const i32 step : {-1, 1})
        if (const VecInt3D other = cell + ExtraOf(axis) * step;
            exists(other) && !Holds(mFilled, other))
          beside.push_back(other);
  SortCells(beside);
  std::erase_if(beside, [&](const VecInt3D& cell) { return !HoldsCentre(surface, cell); });
  for (const VecInt3D& cell : mFilled)
    for (i32 axis = 0; axis < 3; ++axis) {
      const VecInt3D below = cell - ExtraOf(axis), above = cell + ExtraOf(axis);
      if (Holds(mFilled, below) || Holds(beside, below)) mFaces.push_back({cell, axis});
      if (Holds(beside, above)) mFaces.push_back({above, axis});
    }
  SortFaces();
}

bool ThinWalls::Closes(const VecInt3D& at, i32 axis) const {
  const Face face{at, axis};
  const auto found =
      std::lower_bound(mFaces.begin(), mFaces.end(), face,
                       [](const Face& a, const Face& b) { return OrderOf(a) < OrderOf(b); });
  return found != mFaces.end() && *found == face;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
