#include "fluids/dynamics/multigrid.h"

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

LevelLine Multigrid::Level::LineAt(i32 y, i32 z) const {
  const i32 c = Cell(1, y, z);
  return {arrays[kValue] + c,
          arrays[kRhs] + c,
          arrays[kInverse] + c,
          {arrays[kWeight] + c, arrays[kWeight + 1] + c, arrays[kWeight + 2] + c},
          Offset(1),
          Offset(2)};
}

bool Multigrid::Level::Resize(const VecInt3D& size) {
  dims = size;
  // A line's kernels may look one cell beyond the last.
  return arrays.Resize(Volume(dims) + 1);
}

void Multigrid::Free() {
  mFormed = false;
  mLevels.clear();
  mScratch = {};
  mPartials = {};
  mLastCells = {};
  mLastFactor = {};
  mLastValues = {};
}

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

bool Multigrid::Build(const LatticeMatrix& matrix, i32 threads) {
  const bool sameSize = mFormed && mLevels.front().dims == matrix.Dims();
  mFormed = false;
  if (!SetSizes(matrix.Dims(), threads)) return false;
  const bool changed = TakeMatrix(matrix) || !sameSize;
  if (changed) {
    for (std::size_t l = 1; l < mLevels.size(); ++l) FormCoarse(mLevels[l - 1], mLevels[l]);
    FactorLast();
  }
  mFormed = true;
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
  const double scale = largest > 0 ? 1 / largest : 1.0;
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

/// Adds the entries of a cell to the row of its coarse cell. The coarse cell's own row alone is
/// written: every face is met from both its sides.
void Multigrid::AddRow(const Level& fine, const Level& coarse, const VecInt3D& cell,
                       i32 parent) const {
  const float* inverse = fine.arrays[kInverse];
  const i32 c = fine.Cell(cell.x, cell.y, cell.z);
  const bool stray = parent != Home(fine, coarse, cell);
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
    if (line.least[i] > 0) continue;
    const i32 lowX = 1 + i * f.x, lastX = std::min(lowX + f.x, fine.dims.x - 1);
    for (i32 fz = low.z; fz < lastZ; ++fz)
      for (i32 fy = low.y; fy < lastY; ++fy)
        for (i32 fx = lowX; fx < lastX; ++fx) {
          const i32 c = fine.Cell(fx, fy, fz);
          if (inverse[c] == 0 || mark[c] != 0) continue;
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

void Multigrid::FactorLast() {
  const Level& level = mLevels.back();
  const float* inverse = level.arrays[kInverse];
  mLastCells.clear();
  for (i32 z = 1; z < level.dims.z - 1; ++z)
    for (i32 y = 1; y < level.dims.y - 1; ++y)
      for (i32 x = 1; x < level.dims.x - 1; ++x)
        if (inverse[level.Cell(x, y, z)] != 0) mLastCells.push_back(level.Cell(x, y, z));
  const std::size_t n = mLastCells.size();
  mLastFactor.assign(n * n, 0.0);
  mLastValues.resize(n);
  const auto at = [&](std::size_t i, std::size_t j) -> double& { return mLastFactor[i * n + j]; };
  for (std::size_t i = 0; i < n; ++i) {
    at(i, i) = 1.0 / inverse[mLastCells[i]];
    for (i32 axis = 0; axis < 3; ++axis) {
      const auto below = std::lower_bound(mLastCells.begin(), mLastCells.begin() + i,
                                          mLastCells[i] - level.Offset(axis));
      if (below == mLastCells.begin() + i || *below != mLastCells[i] - level.Offset(axis)) continue;
      at(i, below - mLastCells.begin()) = -level.arrays[kWeight + axis][*below];
    }
  }
  // A pivot that rounding alone keeps from 0 belongs to a region that is closed: its constant is
  // free, and 0 will do.
  for (std::size_t i = 0; i < n; ++i) {
    const double own = at(i, i);
    for (std::size_t j = 0; j < i; ++j) {
      double sum = at(i, j);
      for (std::size_t k = 0; k < j; ++k) sum -= at(i, k) * at(j, k);
      at(i, j) = sum;
    }
    double pivot = own;
    for (std::size_t j = 0; j < i; ++j) {
      const double entry = at(i, j) * at(j, j);
      pivot -= entry * at(i, j);
      at(i, j) = entry;
    }
    at(i, i) = pivot > 1e-5 * own ? 1 / pivot : 0.0;
  }
}

void Multigrid::SolveLast() {
  const Level& level = mLevels.back();
  const std::size_t n = mLastCells.size();
  const auto at = [&](std::size_t i, std::size_t j) { return mLastFactor[i * n + j]; };
  for (std::size_t i = 0; i < n; ++i) {
    double sum = level.arrays[kRhs][mLastCells[i]];
    for (std::size_t j = 0; j < i; ++j) sum -= at(i, j) * mLastValues[j];
    mLastValues[i] = sum;
  }
  for (std::size_t i = n; i-- > 0;) {
    double value = mLastValues[i] * at(i, i);
    for (std::size_t j = i + 1; j < n; ++j) value -= at(j, i) * mLastValues[j];
    mLastValues[i] = value;
    level.arrays[kValue][mLastCells[i]] = static_cast<float>(value);
  }
}

/// f(line, phase of the red half, n, z) for all lines.
template <class F>
void Multigrid::ForEachLine(const Level& level, F&& f) {
  const i32 n = level.dims.x - 2;
  ForEachBlock(std::max(0, level.dims.z - 2), level.threads, [&](i32 block) {
    const i32 z = block + 1;
    for (i32 y = 1; y < level.dims.y - 1; ++y) f(level.LineAt(y, z), (y + z) & 1, n, y, z);
  });
}

void Multigrid::Descend(std::size_t l) {
  if (l + 1 == mLevels.size()) {
    SolveLast();
    return;
  }
  Level &level = mLevels[l], &next = mLevels[l + 1];
  ForEachLine(level,
              [](const LevelLine& line, i32 red, i32 n, i32, i32) { StartLine(line, red, n); });
  ForEachLine(level,
              [](const LevelLine& line, i32 red, i32 n, i32, i32) { RelaxLine(line, red + 1, n); });
  Restrict(level, next);
  Descend(l + 1);
  Prolong(level, next);
  ForEachLine(level,
              [](const LevelLine& line, i32 red, i32 n, i32, i32) { RelaxLine(line, red + 1, n); });
  if (l > 0)
    ForEachLine(level,
                [](const LevelLine& line, i32 red, i32 n, i32, i32) { RelaxLine(line, red, n); });
}

double Multigrid::Cycle(const double* b) {
  const Level& level = mLevels.front();
  std::fill(mPartials.begin(), mPartials.end(), 0.0);
  if (mLevels.size() == 1) {
    SolveLast();
    for (const i32 c : mLastCells) mPartials[0] += level.arrays[kValue][c] * b[c];
    return mPartials[0];
  }
  Descend(0);
  ForEachLine(level, [&](const LevelLine& line, i32 red, i32 n, i32 y, i32 z) {
    mPartials[z] += RelaxDotLine(line, red, b + level.Cell(1, y, z), n);
  });
  double dot = 0;
  for (const double partial : mPartials) dot += partial;
  return dot;
}

void Multigrid::Restrict(Level& fine, const Level& coarse) {
  const i32 layers = coarse.dims.z - 2;
  const i32 workers = std::clamp(std::min(fine.threads, layers), 1, host::kMaxWorkers);
  const auto run = [&](i32 w) {
    RestrictLayers(fine, coarse, 1 + layers * w / workers, 1 + layers * (w + 1) / workers,
                   mScratch[w]);
  };
  if (workers == 1)
    run(0);
  else
    host::WorkerPool::Instance().Run(workers, run);
  for (const Stray& stray : fine.strays)
    if (stray.parent >= 0) coarse.arrays[kRhs][stray.parent] += stray.value;
}

void Multigrid::RestrictLayers(Level& fine, const Level& coarse, i32 first, i32 last,
                               std::vector<float>& scratch) {
  // Left-overs are made layer by layer, of which a coarse layer needs four; outermost cells stay 0.
  const i32 nx = fine.dims.x, ny = fine.dims.y, n = nx - 2, m = coarse.dims.x - 2;
  const std::size_t layer = static_cast<std::size_t>(nx) * ny;
  scratch.assign(4 * layer + 1, 0.0F);
  i32 held[4] = {-1, -1, -1, -1};
  const auto lineOf = [&](i32 y, i32 z) { return &scratch[(z & 3) * layer + y * nx + 1]; };
  const auto hold = [&](i32 z) {
    if (held[z & 3] == z) return;
    held[z & 3] = z;
    for (i32 y = 1; y < ny - 1; ++y) {
      if (z < 1 || z >= fine.dims.z - 1)
        std::fill_n(lineOf(y, z), n, 0.0F);
      else
        LeftOverLine(fine.LineAt(y, z), (y + z) & 1, lineOf(y, z), n);
    }
    if (z < 1 || z >= fine.dims.z - 1) return;
    const bool own = z >= (first - 1) * fine.factor.z + 1 && z < (last - 1) * fine.factor.z + 1;
    for (i32 k = fine.firstStrays[z]; k < fine.firstStrays[z + 1]; ++k) {
      float& left = scratch[(z & 3) * layer + fine.strays[k].cell % layer];
      if (own) fine.strays[k].value = left;
      left = 0;
    }
  };
  const VecInt3D f = fine.factor;
  for (i32 Z = first; Z < last; ++Z) {
    const i32 z0 = (Z - 1) * f.z + 1, z1 = std::min(z0 + f.z, fine.dims.z - 1);
    for (i32 z = z0 - (f.z - 1); z < z1 + (f.z - 1); ++z) hold(z);
    for (i32 Y = 1; Y < coarse.dims.y - 1; ++Y) {
      const LevelLine line = coarse.LineAt(Y, Z);
      const float* share = coarse.arrays[kShare] + coarse.Cell(1, Y, Z);
      float* rhs = coarse.arrays[kRhs] + coarse.Cell(1, Y, Z);
      std::fill_n(rhs, m, 0.0F);
      const i32 y0 = (Y - 1) * f.y + 1, y1 = std::min(y0 + f.y, ny - 1);
      for (i32 z = z0; z < z1; ++z)
        for (i32 y = y0; y < y1; ++y) {
          const float* own = lineOf(y, z);
          RestrictAlong(own, line.weight[0], share, f.x == 2, rhs, m);
          if (f.y == 2) {
            const i32 step = y == y0 ? -1 : 1;
            RestrictAcross(own, lineOf(y + step, z), line.weight[1] - (step < 0 ? line.ny : 0),
                           share, step * line.ny, f.x == 2, rhs, m);
          }
          if (f.z == 2) {
            const i32 step = z == z0 ? -1 : 1;
            RestrictAcross(own, lineOf(y, z + step), line.weight[2] - (step < 0 ? line.nz : 0),
                           share, step * line.nz, f.x == 2, rhs, m);
          }
        }
      for (i32 i = 0; i < m; ++i)
        if (line.inverse[i] == 0) rhs[i] = 0;
    }
  }
}

void Multigrid::Prolong(Level& fine, const Level& coarse) {
  for (Stray& stray : fine.strays) stray.value = fine.arrays[kValue][stray.cell];
  const i32 n = fine.dims.x - 2, m = coarse.dims.x - 2;
  const VecInt3D f = fine.factor;
  const i32 layers = coarse.dims.z - 2;
  const i32 workers = std::clamp(std::min(fine.threads, layers), 1, host::kMaxWorkers);
  const auto run = [&](i32 w) {
    std::vector<float>& base = mScratch[w];
    base.resize(std::max<std::size_t>(base.size(), m));
    for (i32 Z = 1 + layers * w / workers; Z < 1 + layers * (w + 1) / workers; ++Z)
      for (i32 Y = 1; Y < coarse.dims.y - 1; ++Y) {
        const LevelLine line = coarse.LineAt(Y, Z);
        const float* share = coarse.arrays[kShare] + coarse.Cell(1, Y, Z);
        for (i32 k = 0; k < f.y * f.z; ++k) {
          const i32 sideY = k % f.y, sideZ = k / f.y;
          const i32 y = (Y - 1) * f.y + 1 + sideY, z = (Z - 1) * f.z + 1 + sideZ;
          if (y >= fine.dims.y - 1 || z >= fine.dims.z - 1) continue;
          const i32 stepY = f.y == 1 ? 0 : sideY ? line.ny : -line.ny;
          const i32 stepZ = f.z == 1 ? 0 : sideZ ? line.nz : -line.nz;
          CorrectionLine(line.value, share, stepY, line.weight[1] - (sideY ? 0 : line.ny), stepZ,
                         line.weight[2] - (sideZ ? 0 : line.nz), base.data(), m);
          const LevelLine to = fine.LineAt(y, z);
          ProlongLine(base.data(), line.value, share, line.weight[0], f.x == 2, to.inverse,
                      (y + z) & 1, to.value, n);
        }
      }
  };
  if (workers == 1)
    run(0);
  else
    host::WorkerPool::Instance().Run(workers, run);
  for (const Stray& stray : fine.strays)
    fine.arrays[kValue][stray.cell] =
        stray.value + (stray.parent >= 0 ? coarse.arrays[kValue][stray.parent] : 0.0F);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
