#include "fluids/particles/particle_sort.h"

#include <bit>
#include <cmath>
#include <utility>

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
    for (const Entry& entry : std::span(mEntries.data(), mCount))
      mGroups[entry.group]->Store(mKind).Flags()[entry.row] |= PF_SORTED;
  mGroups.clear();
  mStarts.clear();
  mCount = 0;
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
                         bool storeVelocity, std::span<const GroupShare> shares) {
  Clear();
  mKind = kind;
  mGroups.assign(groups.begin(), groups.end());
  i64 total = 0;
  mFirst.clear();
  mPositions.clear();
  for (ParticleGroup* group : mGroups) {
    mFirst.push_back(total);
    mPositions.push_back(group->Store(kind).Positions().data());
    total += group->Count(kind);
  }
  mCells.resize(total);
  const u32 last = static_cast<u32>(std::max(mLayout.count, 1) - 1);
  mShift = std::max(static_cast<i32>(std::bit_width(last)) - kRangeBits, 0);
  mCounts.assign(mGroups.size() * kParts * (((mLayout.count - 1) >> mShift) + 1), 0);
  const i32 groupCount = static_cast<i32>(mGroups.size());
  for (i32 group = 0; group < groupCount; ++group)
    FindCells(group, shares.empty() ? nullptr : &shares[group], threads, storeVelocity);
  StartRanges();
  for (i32 group = 0; group < groupCount; ++group) FillRanges(group, threads);
  // Equally many particles for each worker.
  const auto rangeOf = [&](i32 part, i32 parts) {
    const i32 placed = static_cast<i32>(i64{mCount} * part / parts);
    const auto ends = mRangeStart.end() - 1;
    return static_cast<i32>(
        (part == parts ? ends : std::lower_bound(mRangeStart.begin(), ends, placed)) -
        mRangeStart.begin());
  };
  const i32 workers = std::clamp(threads, 1, host::kMaxWorkers);
  ForEachBlock(workers, workers, [&](i32 worker) {
    const i32 end = rangeOf(worker + 1, workers);
    for (i32 range = worker == 0 ? 0 : rangeOf(worker, workers); range < end; ++range)
      SortRange(range);
  });
}

void ParticleSort::FindCells(i32 group, const GroupShare* share, i32 threads, bool storeVelocity) {
  ParticleStore& store = mGroups[group]->Store(mKind);
  i32* cells = mCells.data() + mFirst[group];
  const std::span<const Vec3d> positions = store.Positions(), velocities = store.Velocities();
  const std::span<u16> flags = store.Flags();
  PropertyColumn<Vec3d>* stored =
      storeVelocity ? &store.Require<Vec3d>(property_id::kSortedVelocity) : nullptr;
  ForEachBlock(kParts, threads, [&](i32 part) {
    const IndexRange rows = store.PartOf(part, kParts);
    i32* counts = CountsOf(group, part);
    for (i32 row = rows.first; row < rows.last; ++row) {
      const bool isOurs = (flags[row] & PF_ALIVE) && (!share || share->IsOurs(positions[row]));
      const i32 cell = isOurs ? CellIndex(positions[row]) : -1;
      cells[row] = cell;
      if (cell >= 0) ++counts[cell >> mShift];
      flags[row] = static_cast<u16>(cell >= 0 ? flags[row] | PF_SORTED : flags[row] & ~PF_SORTED);
      if (stored) stored->Set(row, velocities[row]);
    }
  });
}

void ParticleSort::StartRanges() {
  const i32 ranges = Ranges(), parts = static_cast<i32>(mGroups.size()) * kParts;
  mRangeStart.assign(ranges + 1, 0);
  i32 placed = 0;
  for (i32 range = 0; range < ranges; ++range) {
    mRangeStart[range] = placed;
    for (i32 part = 0; part < parts; ++part)
      placed += std::exchange(mCounts[i64{part} * ranges + range], placed);
  }
  mRangeStart[ranges] = mCount = placed;
  // What is there already is only written over.
  if (mEntries.size() < static_cast<std::size_t>(placed)) {
    mEntries.resize(placed);
    mPlaced.resize(placed);
  }
  mStarts.resize(i64{mLayout.count} + 1);
  mStarts.back() = placed;
  if (ranges == 0) std::fill(mStarts.begin(), mStarts.end(), 0);
}

void ParticleSort::FillRanges(i32 group, i32 threads) {
  const ParticleStore& store = mGroups[group]->Store(mKind);
  const i32* cells = mCells.data() + mFirst[group];
  ForEachBlock(kParts, threads, [&](i32 part) {
    const IndexRange rows = store.PartOf(part, kParts);
    i32* next = CountsOf(group, part);
    for (i32 row = rows.first; row < rows.last; ++row) {
      if (cells[row] < 0) continue;
      mPlaced[next[cells[row] >> mShift]++] = {cells[row], row, group};
    }
  });
}

void ParticleSort::SortRange(i32 range) {
  const i32 first = range << mShift, last = std::min(first + (1 << mShift), mLayout.count);
  // The starts of the range's cells serve as their counts first; the next range has its own.
  i32* starts = mStarts.data() + first;
  std::fill(starts, starts + (last - first), 0);
  for (i32 i = mRangeStart[range]; i < mRangeStart[range + 1]; ++i)
    ++starts[mPlaced[i].cell - first];
  i32 placed = mRangeStart[range + 1];
  for (i32 cell = last - first - 1; cell >= 0; --cell) {
    placed -= starts[cell];
    starts[cell] = placed + starts[cell];
  }
  // From the end of each cell backwards, so that its start is left over.
  for (i32 i = mRangeStart[range + 1] - 1; i >= mRangeStart[range]; --i) {
    const Placed& particle = mPlaced[i];
    mEntries[--starts[particle.cell - first]] = {mPositions[particle.group][particle.row],
                                                 particle.row, particle.group};
  }
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
  const auto bytes = [](const auto& values) { return values.capacity() * sizeof(values[0]); };
  return static_cast<i64>(bytes(mStarts) + bytes(mEntries) + bytes(mCells) + bytes(mCounts) +
                          bytes(mPlaced));
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
