#include "fluids/particles/particle_sort.h"

#include <cmath>

#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void ParticleSort::Reset(const GridLayout& layout) {
  Clear();
  mLayout = layout;
}

void ParticleSort::Clear(bool resetFlags) {
  if (resetFlags)
    for (ParticleGroup* group : mGroups) group->Store(mKind).Drop(property_id::kSortedVelocity);
  if (resetFlags)
    for (const Entry& entry : mEntries)
      mGroups[entry.group]->Store(mKind).Flags()[entry.row] |= PF_SORTED;
  mGroups.clear();
  mStarts.clear();
  mEntries.clear();
}

i32 ParticleSort::CellIndex(const Vec3d& p) const {
  const Vec3d v = mLayout.ToCells(p);
  VecInt3D cell;
  for (int a = 0; a < 3; ++a) {
    if (!(v[a] >= 0 && v[a] < mLayout.dims[a])) return -1;
    cell[a] = std::min(static_cast<i32>(v[a] + 1e-6), mLayout.dims[a] - 1);
  }
  return (cell.z * mLayout.dims.y + cell.y) * mLayout.dims.x + cell.x;
}

void ParticleSort::Build(std::span<ParticleGroup* const> groups, i32 kind, i32 threads,
                         bool storeVelocity) {
  Clear();
  mKind = kind;
  mGroups.assign(groups.begin(), groups.end());
  i64 total = 0;
  for (ParticleGroup* group : mGroups) total += group->Count(kind);
  mCells.resize(total);
  i64 first = 0;
  for (ParticleGroup* group : mGroups) {
    FindCells(group->Store(kind), mCells.data() + first, threads, storeVelocity);
    first += group->Count(kind);
  }
  CountCells(threads);
  PlaceEntries(threads);
}

void ParticleSort::FindCells(ParticleStore& store, i32* cells, i32 threads, bool storeVelocity) {
  const std::span<const Vec3d> positions = store.Positions(), velocities = store.Velocities();
  const std::span<u16> flags = store.Flags();
  PropertyColumn<Vec3d>* stored =
      storeVelocity ? &store.Require<Vec3d>(property_id::kSortedVelocity) : nullptr;
  ForEachBlock(kParts, threads, [&](i32 part) {
    const IndexRange rows = store.PartOf(part, kParts);
    for (i32 row = rows.first; row < rows.last; ++row) {
      const i32 cell = flags[row] & PF_ALIVE ? CellIndex(positions[row]) : -1;
      cells[row] = cell;
      flags[row] = static_cast<u16>(cell >= 0 ? flags[row] | PF_SORTED : flags[row] & ~PF_SORTED);
      if (stored) stored->Set(row, velocities[row]);
    }
  });
}

// Each worker looks at the cells of all particles and cares for a range of the cells: a look is
// cheap, and the order of the particles in a cell stays that of the rows.
void ParticleSort::CountCells(i32 threads) {
  const i32 count = mLayout.count, workers = std::clamp(threads, 1, kMostScans);
  mStarts.assign(i64{count} + 2, 0);
  ForEachBlock(workers, workers, [&](i32 worker) {
    const IndexRange own = PartOf(worker, workers, 0, count);
    i32* counts = mStarts.data() + 2;
    for (const i32 cell : mCells)
      if (cell >= own.first && cell < own.last) ++counts[cell];
  });
  for (i64 i = 2; i < i64{count} + 2; ++i) mStarts[i] += mStarts[i - 1];
}

void ParticleSort::PlaceEntries(i32 threads) {
  const i32 count = mLayout.count, workers = std::clamp(threads, 1, kMostScans);
  const i32 placed = mStarts.back();
  mEntries.resize(placed);
  // Ranges of cells with equally many particles each.
  std::vector<i32> ends(workers + 1, count);
  ends[0] = 0;
  for (i32 worker = 1; worker < workers; ++worker) {
    const i32 share = static_cast<i32>(i64{placed} * worker / workers);
    ends[worker] = static_cast<i32>(
        std::lower_bound(mStarts.begin() + 1, mStarts.end() - 1, share) - mStarts.begin() - 1);
  }
  ForEachBlock(workers, workers, [&](i32 worker) {
    i32* next = mStarts.data() + 1;
    const i32* cells = mCells.data();
    for (i32 group = 0; group < static_cast<i32>(mGroups.size()); ++group) {
      const std::span<const Vec3d> positions = mGroups[group]->Store(mKind).Positions();
      const i32 rows = static_cast<i32>(positions.size());
      for (i32 row = 0; row < rows; ++row)
        if (cells[row] >= ends[worker] && cells[row] < ends[worker + 1])
          mEntries[next[cells[row]]++] = {positions[row], row, group};
      cells += rows;
    }
  });
  // The start of each cell has become that of the next one.
  mStarts.pop_back();
}

std::vector<std::vector<ParticleSort::Entry>> ParticleSort::Gather(const VecInt3D& centre,
                                                                   i32 radius,
                                                                   bool exclusive) const {
  std::vector<std::vector<Entry>> lists;
  const i32 up = exclusive ? radius : radius + 1;
  const VecInt3D low = Max(centre - VecInt3D{radius, radius, radius}, VecInt3D{});
  const VecInt3D high = Min(centre + VecInt3D{up, up, up}, mLayout.dims);
  for (i32 z = low.z; z < high.z; ++z)
    for (i32 y = low.y; y < high.y; ++y)
      for (i32 x = low.x; x < high.x; ++x)
        if (const std::span<const Entry> cell = Cell({x, y, z}); !cell.empty())
          lists.emplace_back(cell.begin(), cell.end());
  return lists;
}

double ParticleSort::Density(const VecInt3D& cell, double h, double factor) const {
  double density = factor / (h * h * h);
  for (const Entry& entry : Cell(cell)) {
    const auto* column = mGroups[entry.group]->Store(mKind).Find<double>(property_id::kDensity);
    density -= column ? column->Get(entry.row, 1.0) : 1.0;
  }
  return density;
}

i64 ParticleSort::Bytes() const {
  return static_cast<i64>(mStarts.capacity() * sizeof(i32) + mCells.capacity() * sizeof(i32) +
                          mEntries.capacity() * sizeof(Entry));
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
