// How the levels of a multigrid cycle are formed.
#include "fluids/pressure/multigrid.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Cells off the outermost layer below which the last level is solved at once.
constexpr i32 kLastCells = 64;
/// Cells from which on a level's loops pay for more than one worker.
constexpr i32 kCellsOfWorker = 16384;

VecInt3D Inner(const VecInt3D& dims) {
  return {std::max(0, dims.x - 2), std::max(0, dims.y - 2), std::max(0, dims.z - 2)};
}
i64 Volume(const VecInt3D& v) { return i64{v.x} * v.y * v.z; }

/// Below this share of a row's diagonal a face counts as closed.
constexpr float kClosedShare = 0.005F;

VecInt3D FirstChild(const VecInt3D& coarse, const VecInt3D& factor) {
  return {(coarse.x - 1) * factor.x + 1, (coarse.y - 1) * factor.y + 1,
          (coarse.z - 1) * factor.z + 1};
}

}  // namespace

void Multigrid::SetPlaces(Level* fine, i32 axis, Level& level) {
  const i32 n = level.dims[axis];
  std::vector<float>& places = level.axes[axis].places;
  places.resize(n);
  if (!fine) {
    std::iota(places.begin(), places.end(), 0.0F);
    return;
  }
  const i32 factor = fine->factor[axis], fineCells = fine->dims[axis];
  Axis& from = fine->axes[axis];
  places.front() = from.places.front();
  places.back() = from.places.back();
  for (i32 i = 1; i < n - 1; ++i) {
    const i32 low = (i - 1) * factor + 1;
    const i32 high = std::min<i32>(low + factor - 1, fineCells - 2);
    places[i] = 0.5F * (from.places[low] + from.places[high]);
  }
  from.coarse.resize(fineCells);
  for (i32 i = 0; i < fineCells; ++i)
    from.coarse[i] = i == 0 ? 0 : i == fineCells - 1 ? n - 1 : (i - 1) / factor + 1;
  from.ratio.assign(fineCells, 1.0F);
  for (i32 i = 0; i + 1 < fineCells; ++i) {
    const float wide = places[from.coarse[i + 1]] - places[from.coarse[i]];
    if (wide > 0) from.ratio[i] = (from.places[i + 1] - from.places[i]) / wide;
  }
}

bool Multigrid::SetSizes(const VecInt3D& dims, i32 threads) {
  VecInt3D size = dims;
  std::size_t count = 0;
  for (;; ++count) {
    if (mLevels.size() <= count) mLevels.emplace_back(count == 0);
    Level& level = mLevels[count];
    if (!level.Resize(size)) return false;
    for (i32 axis = 0; axis < 3; ++axis)
      SetPlaces(count == 0 ? nullptr : &mLevels[count - 1], axis, level);
    const VecInt3D inner = Inner(size);
    level.threads =
        std::clamp<i32>(static_cast<i32>(Volume(inner) / kCellsOfWorker), 1, std::max(1, threads));
    level.factor = {1, 1, 1};
    if (Volume(inner) <= kLastCells) break;
    for (i32 axis = 0; axis < 3; ++axis) {
      if (inner[axis] < 2) continue;
      level.factor[axis] = 2;
      size[axis] = (inner[axis] + 1) / 2 + 2;
    }
  }
  while (mLevels.size() > count + 1) mLevels.pop_back();
  mScratch.resize(mLevels.front().threads);
  mPartials.resize(std::max(1, dims.z));
  return true;
}

namespace {

/// The coupling of a row to its lower neighbour on `axis`, which has no row. No band holds it: such
/// couplings are what the diagonal has beyond the other ones.
double CouplingBelow(const LatticeMatrix& matrix, i64 row) {
  const double* diagonal = matrix.Diagonal();
  double excess = diagonal[row];
  i32 missing = 0;
  for (i32 axis = 0; axis < 3; ++axis) {
    const i64 below = row - matrix.Offset(axis);
    missing += !(diagonal[below] > 0);
    excess += matrix.Upper(axis)[row] + matrix.Upper(axis)[below];
  }
  return excess <= 1e-9 * diagonal[row] ? 0.0 : excess / missing;
}

}  // namespace

bool Multigrid::TakeLine(const LatticeMatrix& matrix, double scale, i32 y, i32 z,
                         std::vector<float>& scratch) const {
  const Level& level = mLevels.front();
  const VecInt3D dims = level.dims;
  const i64 first = level.Cell(0, y, z);
  const double* diagonal = matrix.Diagonal() + first;
  scratch.resize(dims.x);
  InvertLine(diagonal, scale, scratch.data(), dims.x);
  bool changed = ReplaceLine(scratch.data(), level.arrays[kInverse] + first, dims.x);
  for (i32 axis = 0; axis < 3; ++axis) {
    ScaleLine(matrix.Upper(axis) + first, -scale, scratch.data(), dims.x);
    const i32 nextY = y + (axis == 1), nextZ = z + (axis == 2);
    const bool hasAbove = nextY > 0 && nextY < dims.y - 1 && nextZ > 0 && nextZ < dims.z - 1;
    const double* above = diagonal + level.Offset(axis);
    for (i32 x = 0; hasAbove && x < dims.x - 1; ++x)
      if (!(diagonal[x] > 0) && above[x] > 0)
        scratch[x] =
            static_cast<float>(scale * CouplingBelow(matrix, first + x + level.Offset(axis)));
    changed |= ReplaceLine(scratch.data(), level.arrays[kWeight + axis] + first, dims.x);
  }
  return changed;
}

bool Multigrid::TakeMatrix(const LatticeMatrix& matrix) {
  const Level& level = mLevels.front();
  const VecInt3D dims = level.dims;
  const i64 layer = i64{dims.x} * dims.y;
  const double* diagonal = matrix.Diagonal();
  const double largest = MaxBlocks(layer * dims.z, layer, level.threads, [&](i64 first, i64 last) {
    return *std::max_element(diagonal + first, diagonal + last);
  });
  const double scale = mScale = largest > 0 ? 1 / largest : 1.0;
  const double changed = MaxBlocks(dims.z, 1, level.threads, [&](i64 z, i64) {
    std::vector<float> scratch;
    bool any = false;
    for (const i32 a : {i32{kValue}, i32{kRhs}})
      std::fill_n(level.arrays[a] + z * layer, layer, 0.0F);
    for (i32 y = 0; y < dims.y; ++y)
      any |= TakeLine(matrix, scale, y, static_cast<i32>(z), scratch);
    return any ? 1.0 : 0.0;
  });
  return changed > 0;
}

bool Multigrid::IsWhole(const Level& fine, const VecInt3D& low) const {
  const float* inverse = fine.arrays[kInverse];
  const VecInt3D f = fine.factor;
  for (i32 z = 0; z < f.z; ++z)
    for (i32 y = 0; y < f.y; ++y)
      for (i32 x = 0; x < f.x; ++x) {
        const i32 c = fine.Cell(low.x + x, low.y + y, low.z + z);
        if (inverse[c] == 0) return false;
        const VecInt3D at{x, y, z};
        for (i32 axis = 0; axis < 3; ++axis)
          if (at[axis] + 1 < f[axis] && !IsOpen(fine, c, axis)) return false;
      }
  return true;
}

bool Multigrid::IsOpen(const Level& fine, i32 cell, i32 axis) {
  const float* inverse = fine.arrays[kInverse];
  return fine.arrays[kWeight + axis][cell] *
             std::max(inverse[cell], inverse[cell + fine.Offset(axis)]) >
         kClosedShare;
}

void Multigrid::FindStraysOf(const Level& fine, const VecInt3D& cell,
                             std::vector<Stray>& strays) const {
  if (IsWhole(fine, FirstChild(cell, fine.factor))) return;
  const float* inverse = fine.arrays[kInverse];
  i32 cells[8], part[8], count = 0;
  const VecInt3D low = FirstChild(cell, fine.factor);
  for (i32 k = 0; k < fine.factor.x * fine.factor.y * fine.factor.z; ++k) {
    const VecInt3D p{low.x + k % fine.factor.x, low.y + k / fine.factor.x % fine.factor.y,
                     low.z + k / (fine.factor.x * fine.factor.y)};
    const i32 c = fine.Cell(p.x, p.y, p.z);
    if (inverse[c] == 0) continue;
    cells[count] = c;
    part[count] = count;
    ++count;
  }
  // Parts: cells that faces join which aren't all but closed.
  i32 parts = count;
  const auto join = [&](i32 a, i32 b) {
    if (part[a] == part[b]) return;
    const i32 from = std::max(part[a], part[b]), to = std::min(part[a], part[b]);
    std::replace(part, part + count, from, to);
    --parts;
  };
  for (i32 a = 0; a < count; ++a)
    for (i32 b = a + 1; b < count; ++b)
      for (i32 axis = 0; axis < 3; ++axis)
        if (cells[b] - cells[a] == fine.Offset(axis) && IsOpen(fine, cells[a], axis)) join(a, b);
  if (parts <= 1) return;
  i32 largest = 0;
  for (i32 a = 1; a < count; ++a)
    if (std::count(part, part + count, part[a]) > std::count(part, part + count, part[largest]))
      largest = a;
  for (i32 a = 0; a < count; ++a)
    if (part[a] != part[largest]) strays.push_back({cells[a], -1});
}

/// The coarse neighbour that most of a stray's flow goes to. It can't hang on another stray, which
/// may lie behind a wall of its own.
i32 Multigrid::ParentOfStray(const Level& fine, const Level& coarse, i32 cell) const {
  const VecInt3D at = fine.Place(cell);
  const i32 home = Home(fine, coarse, at);
  float strongest = 0;
  i32 parent = -1;
  for (i32 axis = 0; axis < 3; ++axis)
    for (const i32 side : {-1, 1}) {
      const i32 next = cell + side * fine.Offset(axis);
      const float w = fine.arrays[kWeight + axis][std::min(next, cell)];
      if (fine.arrays[kInverse][next] == 0 || fine.arrays[kValue][next] != 0 || !(w > strongest))
        continue;
      VecInt3D beyond = at;
      beyond[axis] += side;
      const i32 neighbour = Home(fine, coarse, beyond);
      if (neighbour == home) continue;
      strongest = w;
      parent = neighbour;
    }
  return parent;
}

void Multigrid::FindStrays(Level& fine, const Level& coarse) {
  const i32 layers = coarse.dims.z - 2;
  mStraysOfLayers.resize(std::max<std::size_t>(mStraysOfLayers.size(), std::max(layers, 0)));
  ForEachBlock(layers, fine.threads, [&](i32 block) {
    std::vector<Stray>& strays = mStraysOfLayers[block];
    strays.clear();
    for (i32 y = 1; y < coarse.dims.y - 1; ++y)
      for (i32 x = 1; x < coarse.dims.x - 1; ++x) FindStraysOf(fine, {x, y, block + 1}, strays);
    std::sort(strays.begin(), strays.end(),
              [](const Stray& a, const Stray& b) { return a.cell < b.cell; });
  });
  fine.strays.clear();
  for (i32 layer = 0; layer < layers; ++layer)
    fine.strays.insert(fine.strays.end(), mStraysOfLayers[layer].begin(),
                       mStraysOfLayers[layer].end());
  fine.firstStrays.assign(fine.dims.z + 1, 0);
  for (const Stray& stray : fine.strays)
    ++fine.firstStrays[stray.cell / (fine.dims.x * fine.dims.y) + 1];
  std::partial_sum(fine.firstStrays.begin(), fine.firstStrays.end(), fine.firstStrays.begin());
  // While the coarse level is formed, the value of a stray is its number in the list, from 1 on.
  for (std::size_t k = 0; k < fine.strays.size(); ++k)
    fine.arrays[kValue][fine.strays[k].cell] = static_cast<float>(k + 1);
  for (Stray& stray : fine.strays) stray.parent = ParentOfStray(fine, coarse, stray.cell);
}

i32 Multigrid::ParentOf(const Level& fine, const Level& coarse, const VecInt3D& cell) const {
  const float mark = fine.arrays[kValue][fine.Cell(cell.x, cell.y, cell.z)];
  if (mark != 0) return fine.strays[static_cast<std::size_t>(mark) - 1].parent;
  return Home(fine, coarse, cell);
}

/// Hands on what couples a cell to air inside of it.
void Multigrid::AddExcess(const Level& fine, const Level& coarse, i32 cell, i32 parent) const {
  // The finest level has none: there a liquid's air has cells of its own.
  if (!mHasAir || &fine == &mLevels.front() || fine.arrays[kExcess][cell] == 0) return;
  const float scaled = 0.5F * fine.arrays[kExcess][cell];
  coarse.arrays[kInverse][parent] += scaled;
  coarse.arrays[kExcess][parent] += scaled;
}

/// Adds the entries of a cell to the row of its coarse cell. The coarse cell's own row alone is
/// written: every face is met from both its sides.
void Multigrid::AddRow(const Level& fine, const Level& coarse, const VecInt3D& cell,
                       i32 parent) const {
  const float* inverse = fine.arrays[kInverse];
  const i32 c = fine.Cell(cell.x, cell.y, cell.z);
  const bool stray = parent != Home(fine, coarse, cell);
  AddExcess(fine, coarse, c, parent);
  float& diagonal = coarse.arrays[kInverse][parent];
  for (i32 axis = 0; axis < 3; ++axis) {
    const float* weight = fine.arrays[kWeight + axis];
    const std::vector<float>& ratio = fine.axes[axis].ratio;
    const i32 offset = fine.Offset(axis);
    for (i32 side = 0; side < 2; ++side) {
      const float w = weight[side ? c : c - offset];
      if (w == 0) continue;
      VecInt3D next = cell;
      next[axis] += side ? 1 : -1;
      if (inverse[side ? c + offset : c - offset] == 0) {
        const float scaled = w * ratio[std::min(cell[axis], next[axis])];
        diagonal += scaled;
        if (mHasAir && next[axis] != 0 && next[axis] != fine.dims[axis] - 1)
          coarse.arrays[kExcess][parent] += scaled;
        if (stray) continue;
        if (next[axis] == 0) coarse.arrays[kWeight + axis][parent - coarse.Offset(axis)] += scaled;
        if (next[axis] == fine.dims[axis] - 1) coarse.arrays[kWeight + axis][parent] += scaled;
        continue;
      }
      const i32 other = ParentOf(fine, coarse, next);
      if (other < 0 || other == parent) continue;
      for (i32 a = 0; a < 3; ++a) {
        if (std::abs(other - parent) != coarse.Offset(a)) continue;
        const float scaled = w * (a == axis ? ratio[std::min(cell[a], next[a])]
                                            : 1 / static_cast<float>(fine.factor[a]));
        diagonal += scaled;
        if (other > parent) coarse.arrays[kWeight + a][parent] += scaled;
        break;
      }
    }
  }
}

/// Rows of a line of coarse cells. Where no fine cell about one lacks a row or strays, its row is a
/// sum over its faces; the others are put together cell by cell.
void Multigrid::FormLine(const Level& fine, const Level& coarse, i32 y, i32 z,
                         CoarseLine& line) const {
  const VecInt3D f = fine.factor, low = FirstChild({1, y, z}, f);
  const i32 n = coarse.dims.x - 2, first = coarse.Cell(1, y, z);
  const bool inside = f == VecInt3D{2, 2, 2} && low.y + 2 < fine.dims.y && low.z + 2 < fine.dims.z;
  // An odd line's last coarse cell holds one fine cell only; its second isn't there.
  const i32 whole = inside ? (fine.dims.x - 2) / 2 : 0;
  line.least.assign(n, 0.0F);
  if (inside) {
    const i32 c = fine.Cell(1, low.y, low.z);
    line.Sum(fine.arrays[kInverse] + c, fine.arrays[kValue] + c,
             {fine.arrays[kWeight] + c, fine.arrays[kWeight + 1] + c, fine.arrays[kWeight + 2] + c},
             fine.Offset(1), fine.Offset(2), 2 * whole);
    const float ratioY[2] = {fine.axes[1].ratio[low.y - 1], fine.axes[1].ratio[low.y + 1]};
    const float ratioZ[2] = {fine.axes[2].ratio[low.z - 1], fine.axes[2].ratio[low.z + 1]};
    line.Form(fine.axes[0].ratio.data() + 1, ratioY, ratioZ, whole, coarse.arrays[kInverse] + first,
              {coarse.arrays[kWeight] + first, coarse.arrays[kWeight + 1] + first,
               coarse.arrays[kWeight + 2] + first});
  }
  const float* inverse = fine.arrays[kInverse];
  const float* mark = fine.arrays[kValue];
  const i32 lastY = std::min(low.y + f.y, fine.dims.y - 1);
  const i32 lastZ = std::min(low.z + f.z, fine.dims.z - 1);
  for (i32 i = 0; i < n; ++i) {
    if (line.least[i] > 0 && !(mHasAir && &fine != &mLevels.front())) continue;
    const bool isWhole = line.least[i] > 0;
    const i32 lowX = 1 + i * f.x, lastX = std::min(lowX + f.x, fine.dims.x - 1);
    for (i32 fz = low.z; fz < lastZ; ++fz)
      for (i32 fy = low.y; fy < lastY; ++fy)
        for (i32 fx = lowX; fx < lastX; ++fx) {
          const i32 c = fine.Cell(fx, fy, fz);
          if (inverse[c] == 0 || mark[c] != 0) continue;
          if (isWhole)
            AddExcess(fine, coarse, c, first + i);
          else
            AddRow(fine, coarse, {fx, fy, fz}, first + i);
        }
  }
}

void Multigrid::FormCoarse(Level& fine, Level& coarse) {
  FindStrays(fine, coarse);
  const i64 layer = i64{coarse.dims.x} * coarse.dims.y;
  ForEachBlock(coarse.dims.z, coarse.threads, [&](i32 z) {
    for (i32 a = 0; a < kArrays; ++a) std::fill_n(coarse.arrays[a] + z * layer, layer, 0.0F);
  });
  ForEachBlock(std::max(0, coarse.dims.z - 2), fine.threads, [&](i32 block) {
    CoarseLine line;
    for (i32 y = 1; y < coarse.dims.y - 1; ++y) FormLine(fine, coarse, y, block + 1, line);
  });
  for (const Stray& stray : fine.strays)
    if (stray.parent >= 0) AddRow(fine, coarse, fine.Place(stray.cell), stray.parent);
  for (const Stray& stray : fine.strays) fine.arrays[kValue][stray.cell] = 0;
  ForEachBlock(coarse.dims.z, coarse.threads, [&](i32 z) {
    for (i64 c = z * layer; c < (z + 1) * layer; ++c) {
      float& diagonal = coarse.arrays[kInverse][c];
      if (!(diagonal > 0)) continue;
      diagonal = 1 / diagonal;
      float best = 0;
      for (i32 axis = 0; axis < 3; ++axis) {
        const float* weight = coarse.arrays[kWeight + axis];
        best = std::max({best, weight[c], weight[c - coarse.Offset(axis)]});
      }
      if (best > 0) coarse.arrays[kShare][c] = 0.25F / best;
    }
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
