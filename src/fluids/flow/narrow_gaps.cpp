#include "fluids/flow/narrow_gaps.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "fluids/flow/solid_surfaces.h"
#include "fluids/volume/cell_fractions.h"
#include "fluids/volume/volume_base.h"
#include "framework/state_archive.h"
#include "grids/fixed_blocks.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kFineParts = 4, kFinePoints = kFineParts + 1;  // of a cell's edge, to measure it
constexpr double kFacing = -0.5;  // at most, of the product of two sides' normals
// Cells. Of two whole cells it isn't for rounding to say whether they are a gap: they are none.
constexpr double kContact = 1e-3, kWidestGap = 2 - 1e-6;
constexpr double kInside = 0.2;        // cells, from a node into a cell
constexpr double kBesideEdge = 0.02;   // cells, from an edge into a cell
constexpr i32 kLooks = 3;              // along an edge, between its nodes
constexpr double kDeepestLook = 0.75;  // cells: from farther inside no look comes out
constexpr double kOblique = 0.6;       // at most, of the product of two sides' normals at a corner
constexpr double kHoldsSmoke = 0.25;   // least open part of a cell
// Between the points of two surfaces nearest to nodes; curved ones are nearer to each other.
constexpr double kSuspicious = 1;  // cells
constexpr i32 kGapChunk = 64;
constexpr i32 kReach = 3;  // cells from a gap to all that may bound it

/// Marks the cells of a row, between four rows of nodes, that may lie in a gap: some node isn't in
/// the open, none deep inside, and the distances don't rise as they do over a single surface.
SULVA_WIDE_KERNEL void MarkGapRow(const double* a, const double* b, const double* c,
                                  const double* d, double cell, i32 n, u8* __restrict marks) {
  const auto low = [](double p, double q) { return p < q ? p : q; };
  const double deepest = -1.8 * cell, steep = 0.97 * 0.97 * 16 * cell * cell;
  for (i32 x = 0; x < n; ++x) {
    const double a0 = a[x], a1 = a[x + 1], b0 = b[x], b1 = b[x + 1];
    const double c0 = c[x], c1 = c[x + 1], d0 = d[x], d1 = d[x + 1];
    const double least = low(low(low(a0, a1), low(b0, b1)), low(low(c0, c1), low(d0, d1)));
    const double gx = ((a1 + b1) + (c1 + d1)) - ((a0 + b0) + (c0 + d0));
    const double gy = ((b0 + b1) + (d0 + d1)) - ((a0 + a1) + (c0 + c1));
    const double gz = ((c0 + c1) + (d0 + d1)) - ((a0 + a1) + (b0 + b1));
    const i32 near = least <= 0, shallow = least > deepest;
    const i32 flat = gx * gx + gy * gy + gz * gz < steep;
    marks[x] = static_cast<u8>(near & shallow & flat);
  }
}

/// Marks the nodes of a row in the open with solid on both sides along an axis, in rows of `row`
/// nodes and layers of `slice`.
SULVA_WIDE_KERNEL void MarkPinched(const double* node, i32 row, i32 slice, i32 n,
                                   u8* __restrict marks) {
  for (i32 x = 0; x < n; ++x) {
    const i32 open = node[x] > 0;
    const i32 alongX = (node[x - 1] <= 0) & (node[x + 1] <= 0);
    const i32 alongY = (node[x - row] <= 0) & (node[x + row] <= 0);
    const i32 alongZ = (node[x - slice] <= 0) & (node[x + slice] <= 0);
    marks[x] = static_cast<u8>(open & (alongX | alongY | alongZ));
  }
}

/// Exact distances at the points of a cell.
struct FinePoints {
  double value[kFinePoints][kFinePoints][kFinePoints];  ///< by z, y, x

  FinePoints(const SolidSurfaces& solids, const GridLayout& layout, const VecInt3D& cell) {
    for (i32 k = 0; k < kFinePoints; ++k)
      for (i32 j = 0; j < kFinePoints; ++j)
        for (i32 i = 0; i < kFinePoints; ++i) {
          const Vec3d c = ToReal(cell) + ToReal(VecInt3D{i, j, k}) / kFineParts;
          value[k][j][i] = solids.DistanceAt(layout.simOrigin + c * layout.simCell);
        }
  }
  double At(const VecInt3D& p) const { return value[p.z][p.y][p.x]; }

  /// The open part of a face.
  double Face(i32 axis, i32 side) const {
    const i32 u = axis == 0 ? 1 : 0, v = axis == 2 ? 1 : 2;
    double inside = 0;
    for (i32 k = 0; k < kFineParts; ++k)
      for (i32 j = 0; j < kFineParts; ++j) {
        double corner[4];
        for (i32 i = 0; i < 4; ++i) {
          VecInt3D p;
          p[axis] = side * kFineParts;
          p[u] = j + (i == 1 || i == 2);
          p[v] = k + (i >= 2);
          corner[i] = At(p);
        }
        inside += SquareFraction(corner);
      }
    return 1 - inside / (kFineParts * kFineParts);
  }
  double Open() const {
    double inside = 0;
    for (i32 k = 0; k < kFineParts; ++k)
      for (i32 j = 0; j < kFineParts; ++j)
        for (i32 i = 0; i < kFineParts; ++i) {
          double corner[8];
          for (i32 c = 0; c < 8; ++c) corner[c] = At({i + (c & 1), j + (c >> 1 & 1), k + (c >> 2)});
          inside += CubeFraction(corner);
        }
    return 1 - inside / (kFineParts * kFineParts * kFineParts);
  }
};

/// Some of the surfaces stand across others.
bool HasCorner(const SolidSurfaces::Nearest* nearest, i32 count) {
  for (i32 i = 0; i < count; ++i)
    for (i32 j = 0; j < i; ++j)
      if (std::abs(Dot(nearest[i].normal, nearest[j].normal)) < kOblique &&
          nearest[i].solid != SolidSurfaces::kNone && nearest[j].solid != SolidSurfaces::kNone)
        return true;
  return false;
}

/// A node in a wall or on it knows the nearest side, not the end that faces another solid. Adds
/// what is nearest to places along the edges of a cell that begin at such nodes; how many there are
/// then.
i32 LookAlongEdges(const SolidSurfaces& solids, const GridLayout& layout, const VecInt3D& cell,
                   SolidSurfaces::Nearest* nearest, i32 count) {
  const Vec3d middle = ToReal(cell) + Vec3d{0.5, 0.5, 0.5};
  for (i32 k = 0; k < 8; ++k) {
    const double depth = -nearest[k].distance / layout.cellSize;
    if (!(depth > -kContact && depth < kDeepestLook)) continue;
    const Vec3d node = ToReal(cell + VecInt3D{k & 1, k >> 1 & 1, k >> 2}), inside = middle - node;
    for (i32 axis = 0; axis < 3; ++axis)
      for (i32 look = 1; look <= kLooks; ++look) {
        Vec3d p = node + inside * (2 * kBesideEdge);
        p[axis] = node[axis] + inside[axis] * (2.0 * look / (kLooks + 1));
        nearest[count++] = solids.Find(layout.simOrigin + p * layout.simCell);
      }
  }
  return count;
}

}  // namespace

NarrowGaps::State NarrowGaps::StateOf(const GridBoundary& boundary) {
  const GridLayout& layout = boundary.GetLevelSet()->mLayout;
  State state{.obstacles = {},
              .dims = layout.dims,
              .origin = layout.originCell,
              .cell = layout.cellSize,
              .walls = boundary.mWalls};
  for (const VolumeBase* obstacle : boundary.mObstacles) {
    if (!obstacle->Has(FLAG_ENABLED) || !obstacle->HasGridData() || obstacle->IsSheet()) continue;
    const GridLayout& own = obstacle->GetGrid()->mLayout;
    const VecInt3D low = own.originCell, high = low + own.dims;
    state.obstacles.push_back(
        {obstacle, obstacle->GridRevision(), GridBoundary::TravelOf(*obstacle) > 0, {low, high}});
  }
  return state;
}

bool NarrowGaps::State::IsThinRoom() const {
  bool isThin = false;
  for (i32 a = 0; a < 3; ++a)
    isThin |= dims[a] == 3 && (walls & kLowWall[a]) && (walls & kHighWall[a]);
  return isThin;
}

bool NarrowGaps::State::IsNearWall(const VecInt3D& cell) const {
  bool isNear = false;
  for (i32 a = 0; a < 3; ++a) {
    const i32 above = cell[a] - origin[a] - 1, below = dims[a] - 2 - (cell[a] - origin[a]);
    isNear |=
        ((walls & kLowWall[a]) && above < kReach) || ((walls & kHighWall[a]) && below < kReach);
  }
  return isNear;
}

NarrowGaps::Past::Past(State from, std::vector<Layer> found, const State& now)
    : state(std::move(from)), layers(std::move(found)) {
  const auto &before = state.obstacles, &after = now.obstacles;
  isOfSameSolids = state.cell == now.cell && before.size() == after.size();
  const VecInt3D reach{kReach, kReach, kReach};
  for (std::size_t i = 0; isOfSameSolids && i < after.size(); ++i) {
    isOfSameSolids = before[i].volume == after[i].volume;
    if (before[i] == after[i]) continue;
    for (const CellBox& box : {before[i].box, after[i].box})
      changed.push_back({box.min - reach, box.max + reach});
  }
}

const NarrowGaps::Cell* NarrowGaps::Past::Find(const Cell& cell, const State& now) const {
  const i32 z = cell.at.z - state.origin.z;
  if (!isOfSameSolids || z < 0 || z >= static_cast<i32>(layers.size())) return nullptr;
  if (state.IsNearWall(cell.at) || now.IsNearWall(cell.at)) return nullptr;
  for (const CellBox& box : changed)
    if (!Clip({cell.at, cell.at + VecInt3D{1, 1, 1}}, box.min, box.max).IsEmpty()) return nullptr;
  const auto isBefore = [](const Cell& a, const Cell& b) {
    return std::pair(a.at.y, a.at.x) < std::pair(b.at.y, b.at.x);
  };
  const auto at = std::lower_bound(layers[z].begin(), layers[z].end(), cell, isBefore);
  const bool isKnown = at != layers[z].end() && at->at == cell.at && at->pinched == cell.pinched;
  return isKnown ? &*at : nullptr;
}

void NarrowGaps::Build(const GridBoundary& boundary, i32 threads) {
  State state = StateOf(boundary);
  if (state == mState) return;
  const Past past(std::exchange(mState, std::move(state)), std::exchange(mLayers, {}), mState);
  if (mState.obstacles.empty() && !mState.IsThinRoom()) return;
  SolidSurfaces solids(boundary);
  const EGrid<double>& level = *boundary.GetLevelSet();
  mLayers.resize(mState.dims.z);
  ForEachBlock(mState.dims.z, threads, [&](i32 z) {
    ScanLayer(level, solids, z, mLayers[z]);
    for (Cell& cell : mLayers[z])
      if (const Cell* known = past.Find(cell, mState)) cell = *known;
  });
  std::vector<Cell*> unknown;
  for (Layer& layer : mLayers)
    for (Cell& cell : layer)
      if (!past.Find(cell, mState)) unknown.push_back(&cell);
  if (unknown.empty()) return;
  solids.LinkTriangles();
  ForEachBlock(static_cast<i32>(unknown.size()), threads,
               [&](i32 i) { MeasureCell(solids, level.mLayout, *unknown[i]); });
  mSuspects.clear();
  for (const Cell* cell : unknown)
    if (cell->suspect) mSuspects.push_back(*cell->suspect);
  FindPlaces(solids, level.mLayout.cellSize);
}

/// The cells of a row that an obstacle's grid covers.
IndexRange NarrowGaps::RowInReach(const SolidSurfaces& solids, i32 y, i32 z) const {
  const i32 n = mState.dims.x;
  if (mState.IsThinRoom()) return {1, n - 1};
  i32 first = n, last = 0;
  for (i32 s = 0; s < solids.Count(); ++s) {
    const CellBox& reach = solids.Reach(s);
    if (y < reach.min.y || y >= reach.max.y || z < reach.min.z || z >= reach.max.z) continue;
    first = std::min(first, reach.min.x);
    last = std::max(last, reach.max.x);
  }
  return {std::max(first, 1), std::min(last, n - 1)};
}

void NarrowGaps::ScanLayer(const EGrid<double>& level, const SolidSurfaces& solids, i32 z,
                           Layer& found) const {
  const VecInt3D n = mState.dims;
  if (z < 1 || z >= n.z - 1) return;
  u8 marks[kGapChunk], pinched[4][kGapChunk + 1];
  for (i32 y = 1; y < n.y - 1; ++y) {
    const IndexRange row = RowInReach(solids, y, z);
    for (i32 x = row.first; x < row.last; x += kGapChunk) {
      const i32 count = std::min(kGapChunk, row.last - x);
      const double* a = level.mData + level.Index(x, y, z);
      const double* c = a + level.mSlice;
      MarkGapRow(a, a + level.mNx, c, c + level.mNx, level.mLayout.cellSize, count, marks);
      const double* rows[4] = {a, a + level.mNx, c, c + level.mNx};
      for (i32 r = 0; r < 4; ++r)
        MarkPinched(rows[r], level.mNx, level.mSlice, count + 1, pinched[r]);
      for (i32 i = 0; i < count; ++i) {
        u32 nodes = 0;
        for (i32 k = 0; k < 8; ++k) nodes |= u32{pinched[k >> 1][i + (k & 1)]} << k;
        if (marks[i] || nodes)
          found.push_back({.at = mState.origin + VecInt3D{x + i, y, z}, .pinched = nodes});
      }
    }
  }
}

/// A cell lies in a gap if the surfaces nearest to its nodes are two sides of one, or those nearest
/// to the neighbours of its pinched nodes: of such a gap the cell may see one side alone.
void NarrowGaps::MeasureCell(const SolidSurfaces& solids, const GridLayout& layout,
                             Cell& cell) const {
  const VecInt3D at = cell.at - mState.origin;
  SolidSurfaces::Nearest nearest[8 + 8 + 6 * 8 + 3 * 8 * kLooks];
  const double size = layout.cellSize;
  i32 count = 8;
  for (i32 k = 0; k < 8; ++k) {
    const VecInt3D node = at + VecInt3D{k & 1, k >> 1 & 1, k >> 2};
    nearest[k] = solids.AtNode(node);
    if (!(std::abs(nearest[k].distance) < kContact * size)) continue;
    // On an edge it may know the one that lies beside the gap.
    const Vec3d inside =
        ToReal(node) * (1 - 2 * kInside) + (ToReal(at) * 2 + Vec3d{1, 1, 1}) * kInside;
    nearest[count++] = solids.Find(layout.simOrigin + inside * layout.simCell);
  }
  double width = kWidestGap * size;
  const SolidSurfaces::Nearest *one = nullptr, *other = nullptr;
  for (u32 pinched = cell.pinched; pinched; pinched &= pinched - 1) {
    const i32 k = std::countr_zero(pinched);
    for (i32 axis = 0; axis < 3; ++axis)
      for (const i32 side : {-1, 1})
        nearest[count++] =
            solids.AtNode(at + VecInt3D{k & 1, k >> 1 & 1, k >> 2} + ExtraOf(axis) * side);
  }
  const auto findNarrowest = [&] {
    for (i32 i = 0; i < count; ++i)
      for (i32 j = 0; j < i; ++j) {
        const SolidSurfaces::Nearest &p = nearest[i], &q = nearest[j];
        if (p.solid == SolidSurfaces::kNone || q.solid == SolidSurfaces::kNone) continue;
        if (!(Dot(p.normal, q.normal) < kFacing)) continue;
        const Vec3d across = q.at - p.at;
        const double w = std::min(Dot(across, p.normal), -Dot(across, q.normal));
        if (!(w > kContact * size) || w >= width) continue;
        width = w;
        one = &p;
        other = &q;
      }
  };
  findNarrowest();
  if (!one && HasCorner(nearest, count)) {
    count = LookAlongEdges(solids, layout, at, nearest, count);
    findNarrowest();
  }
  if (!one) return;
  const FinePoints points(solids, layout, at);
  for (i32 axis = 0; axis < 3; ++axis)
    for (i32 side = 0; side < 2; ++side)
      cell.faces[axis][side] = static_cast<float>(points.Face(axis, side));
  cell.open = static_cast<float>(points.Open());
  cell.isGap = true;
  if (width < kSuspicious * size)
    cell.suspect = {one->at + one->normal * (width / 2), one->solid, other->solid};
}

void NarrowGaps::Open(Grid_VolumeFractions& fractions) const {
  EGrid<float>* cells = fractions.GetRead(0, 0);
  for (i32 axis = 0; axis < 3; ++axis) {
    EGrid<float>* faces = fractions.GetRead(axis, 1);
    for (const Layer& layer : mLayers)
      for (const Cell& cell : layer) {
        if (!cell.isGap || !faces || !cells) continue;
        const VecInt3D at = cell.at - mState.origin, above = at + ExtraOf(axis);
        (*faces)(at.x, at.y, at.z) = fractions.Least(cell.faces[axis][0]);
        (*faces)(above.x, above.y, above.z) = fractions.Least(cell.faces[axis][1]);
        (*cells)(at.x, at.y, at.z) = cell.open;
      }
  }
}

void NarrowGaps::Mark(SolidCells& cells) const {
  for (const Layer& layer : mLayers)
    for (const Cell& cell : layer)
      if (cell.isGap && cell.open >= kHoldsSmoke) cells.Open(cell.at - mState.origin);
}

void NarrowGaps::Persist(StateArchive& archive) { archive(mTold); }

}  // namespace MELDO_GLOBAL::MELDO_SULVA
