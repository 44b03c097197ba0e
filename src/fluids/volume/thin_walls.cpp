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
constexpr double kDiagonalHair = 1e-6;  // of an edge's length
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

/// The diagonals from the origin that begin on the side of an edge on which the triangle lies, as
/// the sides of a rim; those along the edge belong to both of its sides.
u8 SidesOf(const Vec2D<double>& p, const Vec2D<double>& q, const Vec2D<double>& third) {
  const double dx = q.x - p.x, dy = q.y - p.y;
  const double own = dx * (third.y - p.y) - dy * (third.x - p.x);
  const double hair = kDiagonalHair * (std::abs(dx) + std::abs(dy));
  u8 sides = 0;
  for (i32 j = 0; j < 4; ++j) {
    const double side = dx * (j & 2 ? 1 : -1) - dy * (j & 1 ? 1 : -1);
    if ((own < 0 ? -side : side) >= -hair) sides |= 1 << j;
  }
  return sides;
}

/// The sides of the line through the origin on which a triangle is. As `HoldsOrigin`, edges
/// included: which of the lines along them count isn't for rounding to say.
u8 SidesRound(const Vec2D<double> (&p)[3], double (&weights)[3]) {
  bool touches = HoldsOrigin(p[0], p[1], p[2], weights);
  u8 sides = ThinWalls::kAllSides;
  for (i32 a = 0; a < 3; ++a) {
    const i32 b = (a + 1) % 3, c = 3 - a - b;
    double share;
    if (!IsOnEdge(p[a], p[b], share)) continue;
    sides &= SidesOf(p[a], p[b], p[c]);
    if (std::exchange(touches, true)) continue;
    weights[a] = 1 - share;
    weights[b] = share;
    weights[c] = 0;
  }
  return touches ? sides : 0;
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

  std::vector<Rim> found;

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
        const u8 sides = SidesRound({at(0), at(1), at(2)}, w);
        if (!sides) continue;
        Vec3d crossing;
        crossing[axis] = w[0] * p[0][axis] + w[1] * p[1][axis] + w[2] * p[2][axis];
        crossing[u] = j + 0.5;
        crossing[v] = k + 0.5;
        Add(crossing, axis, sides);
      }
  }

  void Add(const Vec3d& crossing, i32 axis, u8 sides) {
    if (mKind == kSolid && !IsThin(mLayout.simOrigin + crossing * mLayout.simCell, mNormal)) return;
    // A centre on the surface is in the solid: the face that closes lies on its other side. A sheet
    // through a centre has none, and closes the faces on both sides.
    const bool looksDown = mKind == kSolid && mNormal[axis] < 0;
    const bool looksUp = mKind == kSolid && !looksDown;
    if (!looksDown) AddFace(crossing, axis, kSolidHair, sides);
    if (!looksUp) AddFace(crossing, axis, -kSolidHair, sides);
  }

  void AddFace(const Vec3d& crossing, i32 axis, double nudge, u8 sides) {
    VecInt3D at;
    for (i32 a = 0; a < 3; ++a)
      at[a] = static_cast<i32>(std::floor(crossing[a] + (a == axis ? 0.5 + nudge : 0.0)));
    if (at[axis] < 0 || at[axis] > mLayout.dims[axis]) return;
    if (!found.empty() && found.back().face == Face{at, axis})
      found.back().sides |= sides;
    else
      found.push_back({{at, axis}, sides});
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
  mRims.clear();
  mInside.clear();
  mFilled.clear();
}

void ThinWalls::Find(SharpSurface surface, Kind kind, bool moves, i32 threads) {
  Clear();
  // From a place in the plane of a side, one triangle of it doesn't tell inside from outside.
  surface.LinkTriangles();
  const i32 count = surface.Mesh().GetTriangleCount();
  const i32 blocks = (count + kTrianglesAtOnce - 1) / kTrianglesAtOnce;
  std::vector<std::vector<Rim>> found(blocks);
  ForEachBlock(blocks, threads, [&](i32 block) {
    Crossings crossings(surface, kind);
    const i32 end = std::min(count, (block + 1) * kTrianglesAtOnce);
    for (i32 t = block * kTrianglesAtOnce; t < end; ++t) crossings.AddTriangle(t);
    found[block] = std::move(crossings.found);
  });
  for (const std::vector<Rim>& part : found) mRims.insert(mRims.end(), part.begin(), part.end());
  TakeFaces();
  if (kind == kSolid) FindFilled(surface, moves);
}

/// From `mRims`, which holds all that was found; what stays there are rims.
void ThinWalls::TakeFaces() {
  std::sort(mRims.begin(), mRims.end(),
            [](const Rim& a, const Rim& b) { return OrderOf(a.face) < OrderOf(b.face); });
  std::size_t kept = 0;
  for (auto rim = mRims.begin(); rim != mRims.end();) {
    Rim whole = *rim;
    for (++rim; rim != mRims.end() && rim->face == whole.face; ++rim) whole.sides |= rim->sides;
    mFaces.push_back(whole.face);
    if (whole.sides != kAllSides) mRims[kept++] = whole;
  }
  mRims.resize(kept);
}

void ThinWalls::SortFaces(std::vector<Face>& faces) {
  std::sort(faces.begin(), faces.end(),
            [](const Face& a, const Face& b) { return OrderOf(a) < OrderOf(b); });
  faces.erase(std::unique(faces.begin(), faces.end()), faces.end());
}

namespace {

bool ComesBefore(const VecInt3D& a, const VecInt3D& b) {
  return std::tuple(a.z, a.y, a.x) < std::tuple(b.z, b.y, b.x);
}

bool Holds(const std::vector<ThinWalls::Face>& sorted, const ThinWalls::Face& face) {
  return std::binary_search(
      sorted.begin(), sorted.end(), face,
      [](const ThinWalls::Face& a, const ThinWalls::Face& b) { return OrderOf(a) < OrderOf(b); });
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
      if (Holds(mFilled, below) || Holds(beside, below)) AddInside({cell, axis});
      if (Holds(beside, above)) AddInside({above, axis});
    }
  SortFaces(mInside);
  mFaces.insert(mFaces.end(), mInside.begin(), mInside.end());
  SortFaces(mFaces);
}

/// A way along a rim may go on along it.
void ThinWalls::AddInside(const Face& face) {
  const VecInt3D step = ExtraOf(face.axis);
  const auto isRim = [&](const VecInt3D& at) {
    const u8 sides = SidesAt(at, face.axis);
    return sides != 0 && sides != kAllSides;
  };
  const bool isAlongRim = isRim(face.at - step) && isRim(face.at + step);
  if (!isAlongRim && !Closes(face.at, face.axis)) mInside.push_back(face);
}

bool ThinWalls::Closes(const VecInt3D& at, i32 axis) const { return Holds(mFaces, {at, axis}); }

u8 ThinWalls::SidesAt(const VecInt3D& at, i32 axis) const {
  const Face face{at, axis};
  const auto rim =
      std::lower_bound(mRims.begin(), mRims.end(), face,
                       [](const Rim& a, const Face& b) { return OrderOf(a.face) < OrderOf(b); });
  if (rim != mRims.end() && rim->face == face) return rim->sides;
  return Closes(at, axis) && !Holds(mInside, face) ? kAllSides : 0;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
