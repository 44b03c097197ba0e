#include "fluids/flow/narrow_gaps.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <map>

#include "fluids/flow/gap_probe.h"
#include "fluids/flow/solid_surfaces.h"
#include "fluids/volume/cell_fractions.h"
#include "fluids/volume/volume_base.h"
#include "framework/state_archive.h"
#include "grids/fixed_blocks.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kFineParts = 4, kFinePoints = kFineParts + 1;  // of a cell's edge, to measure it
constexpr double kFacing = -0.5;                   // at most, of the product of two sides' normals
constexpr double kContact = 1e-3, kWidestGap = 2;  // cells
constexpr double kHoldsSmoke = 0.25;               // least open part of a cell
constexpr double kUnresolved = 0.5;                // cells
constexpr std::size_t kMostLooks = 8;              // at a pair of solids in a step
constexpr i32 kGapChunk = 64;

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

}  // namespace

NarrowGaps::State NarrowGaps::StateOf(const GridBoundary& boundary) {
  const GridLayout& layout = boundary.GetLevelSet()->mLayout;
  State state{.obstacles = {},
              .dims = layout.dims,
              .origin = layout.originCell,
              .cell = layout.cellSize,
              .walls = boundary.mWalls};
  for (const VolumeBase* obstacle : boundary.mObstacles)
    if (obstacle->Has(FLAG_ENABLED) && obstacle->HasGridData() && !obstacle->IsSheet())
      state.obstacles.emplace_back(obstacle, obstacle->GridRevision());
  return state;
}

void NarrowGaps::Build(const GridBoundary& boundary, i32 threads) {
  State state = StateOf(boundary);
  if (state == mState) return;
  mState = std::move(state);
  mLayers.clear();
  if (mState.obstacles.empty()) return;
  const SolidSurfaces solids(boundary);
  mLayers.resize(mState.dims.z);
  ForEachBlock(mState.dims.z, threads, [&](i32 z) { ScanLayer(boundary, solids, z, mLayers[z]); });
  FindPlaces(solids, boundary.GetLevelSet()->mLayout);
}

void NarrowGaps::ScanLayer(const GridBoundary& boundary, const SolidSurfaces& solids, i32 z,
                           Layer& found) const {
  const EGrid<double>& level = *boundary.GetLevelSet();
  const VecInt3D n = mState.dims;
  if (z < 1 || z >= n.z - 1) return;
  u8 marks[kGapChunk], pinched[4][kGapChunk + 1];
  for (i32 y = 1; y < n.y - 1; ++y) {
    i32 first = n.x, last = 0;
    for (i32 s = 0; s < solids.Count(); ++s) {
      const CellBox& reach = solids.Reach(s);
      if (y < reach.min.y || y >= reach.max.y || z < reach.min.z || z >= reach.max.z) continue;
      first = std::min(first, reach.min.x);
      last = std::max(last, reach.max.x);
    }
    first = std::max(first, 1);
    last = std::min(last, n.x - 1);
    for (i32 x = first; x < last; x += kGapChunk) {
      const i32 count = std::min(kGapChunk, last - x);
      const double* a = level.mData + level.Index(x, y, z);
      const double* c = a + level.mSlice;
      MarkGapRow(a, a + level.mNx, c, c + level.mNx, level.mLayout.cellSize, count, marks);
      const double* rows[4] = {a, a + level.mNx, c, c + level.mNx};
      for (i32 r = 0; r < 4; ++r)
        MarkPinched(rows[r], level.mNx, level.mSlice, count + 1, pinched[r]);
      for (i32 i = 0; i < count; ++i) {
        u32 nodes = 0;
        for (i32 k = 0; k < 8; ++k) nodes |= u32{pinched[k >> 1][i + (k & 1)]} << k;
        if (marks[i] || nodes) AddCell(solids, level.mLayout, {x + i, y, z}, nodes, found);
      }
    }
  }
}

/// Adds the cell if the surfaces nearest to its nodes are two sides of a gap, or those nearest to
/// the neighbours of its `pinched` nodes: of such a gap the cell may see one side alone.
void NarrowGaps::AddCell(const SolidSurfaces& solids, const GridLayout& layout,
                         const VecInt3D& cell, u32 pinched, Layer& found) const {
  SolidSurfaces::Nearest nearest[8 + 6 * 8];
  i32 count = 8;
  for (i32 k = 0; k < 8; ++k)
    nearest[k] = solids.AtNode(cell + VecInt3D{k & 1, k >> 1 & 1, k >> 2});
  const double size = layout.cellSize;
  double width = kWidestGap * size;
  const SolidSurfaces::Nearest *one = nullptr, *other = nullptr;
  for (; pinched; pinched &= pinched - 1) {
    const i32 k = std::countr_zero(pinched);
    for (i32 axis = 0; axis < 3; ++axis)
      for (const i32 side : {-1, 1})
        nearest[count++] =
            solids.AtNode(cell + VecInt3D{k & 1, k >> 1 & 1, k >> 2} + ExtraOf(axis) * side);
  }
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
  if (!one) return;
  const FinePoints points(solids, layout, cell);
  for (i32 axis = 0; axis < 3; ++axis)
    for (i32 side = 0; side < 2; ++side) {
      VecInt3D at = cell;
      at[axis] += side;
      found.faces.push_back({at, axis, static_cast<float>(points.Face(axis, side))});
    }
  found.cells.push_back({cell, static_cast<float>(points.Open())});
  if (width < kUnresolved * size)
    found.suspects.push_back({one->at + one->normal * (width / 2), one->solid, other->solid});
}

void NarrowGaps::Open(Grid_VolumeFractions& fractions) const {
  EGrid<float>* faces[3];
  for (i32 axis = 0; axis < 3; ++axis) faces[axis] = fractions.GetRead(axis, 1);
  EGrid<float>* cells = fractions.GetRead(0, 0);
  for (const Layer& layer : mLayers) {
    for (const Face& face : layer.faces)
      if (faces[face.axis])
        (*faces[face.axis])(face.at.x, face.at.y, face.at.z) = fractions.Least(face.open);
    for (const Cell& cell : layer.cells)
      if (cells) (*cells)(cell.at.x, cell.at.y, cell.at.z) = cell.open;
  }
}

void NarrowGaps::Mark(SolidCells& cells) const {
  for (const Layer& layer : mLayers)
    for (const Cell& cell : layer.cells)
      if (cell.open >= kHoldsSmoke) cells.Open(cell.at);
}

void NarrowGaps::Persist(StateArchive& archive) { archive(mTold); }

void NarrowGaps::FindPlaces(const SolidSurfaces& solids, const GridLayout& layout) {
  const auto volume = [&](i32 solid) { return solid < 0 ? nullptr : solids.Volume(solid); };
  // A volume that no scene file names has no node.
  const auto id = [&](i32 solid) {
    const host::BaseNode* node = solid < 0 ? nullptr : volume(solid)->Node();
    return node ? node->Id() : solid < 0 ? u64{0} : ~static_cast<u64>(solid);
  };
  std::map<std::pair<u64, u64>, std::vector<const Suspect*>> pairs;
  for (const Layer& layer : mLayers)
    for (const Suspect& suspect : layer.suspects) {
      const auto [low, high] = std::minmax({id(suspect.one), id(suspect.other)});
      pairs[{low, high}].push_back(&suspect);
    }
  const GapProbe probe(solids, layout.cellSize);
  for (const auto& [pair, suspects] : pairs) {
    if (std::find(mTold.begin(), mTold.end(), pair) != mTold.end()) continue;
    const std::size_t looks = std::min(suspects.size(), kMostLooks);
    for (std::size_t i = 0; i < looks; ++i) {
      const Suspect& suspect = *suspects[i * suspects.size() / looks];
      const auto gap = probe.Look(suspect.at);
      if (!gap || gap->width >= kUnresolved * layout.cellSize) continue;
      // Behind the crease of a mesh that crosses itself its triangles seem to leave room.
      if (suspect.one == suspect.other && !gap->isParallel) continue;
      const VolumeBase *one = volume(suspect.one), *other = volume(suspect.other);
      if (!one) std::swap(one, other);
      mTold.push_back(pair);
      mPlaces.push_back({one, other, gap->at, gap->width / layout.cellSize});
      break;
    }
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
