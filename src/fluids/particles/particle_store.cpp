#include "fluids/particles/particle_store.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace MELDO_GLOBAL::MELDO_SULVA {

void ParticleStore::Reset(const GridLayout& layout) {
  Clear();
  mLayout = layout;
  mBounds = {};
  mNextId = 0;
  mFilled = {};
  mBorn = mDied = 0;
  NoteRows();
}

void ParticleStore::Grew(i32 first) {
  const std::span<i32> ids = Ids();
  for (i32 row = first; row < Count(); ++row) ids[row] = static_cast<i32>(mNextId++);
  mBorn += Count() - first;
  NoteRows();
}

void ParticleStore::NoteRows() {
  mRowsById.clear();
  mMemory.Set(static_cast<u64>(Bytes()));
}

i32 ParticleStore::Create(const ParticleTemplate& particle) {
  const i32 row = Append(particle);
  Grew(row);
  return row;
}

void ParticleStore::Take(ParticleBirths& births) {
  const i32 first = Count();
  const i64 wanted = first + births.Count();
  // Half as many more have room, so that a stream of births doesn't copy all rows each step.
  if (wanted > RoomFor()) Reserve(first == 0 ? wanted : wanted + wanted / 2);
  mFilled.Add(births.Filled());
  for (i32 share = 0; share < kShares; ++share) {
    Append(births.Of(share));
    births.Of(share).Clear();
  }
  births.Clear();
  Grew(first);
}

void ParticleStore::NoteReplaced() {
  i32 last = -1;
  for (const i32 id : Ids()) last = std::max(last, id);
  mNextId = std::max(mNextId, static_cast<u32>(last) + 1);
  NoteRows();
}

void ParticleStore::IndexIds() {
  if (static_cast<i32>(mRowsById.size()) == Count()) return;
  mRowsById.clear();
  mRowsById.reserve(Count());
  const std::span<const i32> ids = Ids();
  for (i32 row = 0; row < Count(); ++row) mRowsById.emplace_back(ids[row], row);
  std::sort(mRowsById.begin(), mRowsById.end());
}

i32 ParticleStore::RowOf(i32 id) const {
  const auto found = std::lower_bound(mRowsById.begin(), mRowsById.end(), std::pair(id, 0));
  return found != mRowsById.end() && found->first == id ? found->second : -1;
}

void ParticleStore::HandOnLinks(i32 row) {
  for (const ParticleLink& link : LinksOf(row)) {
    const i32 other = RowOf(link.other);
    if (other >= 0 && !LinksOf(other).empty()) EditLinks(other).front().weight += link.weight;
  }
  if (!LinksOf(row).empty()) EditLinks(row).clear();
}

i32 ParticleStore::RemoveDead(bool keepOrder) {
  const std::span<const u16> flags = Flags();
  const auto isDead = [&](i32 row) { return !(flags[row] & PF_ALIVE); };
  if (HasLinks()) {
    IndexIds();
    for (i32 row = 0; row < Count(); ++row)
      if (isDead(row)) HandOnLinks(row);
  }
  std::vector<RowMove> moves;
  i32 count = 0;
  if (keepOrder) {
    for (i32 row = 0; row < Count(); ++row) {
      if (isDead(row)) continue;
      if (row != count) moves.push_back({row, count});
      ++count;
    }
  } else {
    i32 last = Count();  // rows behind it are spoken for
    for (; count < last; ++count) {
      if (!isDead(count)) continue;
      do --last;
      while (last > count && isDead(last));
      if (last > count)
        moves.push_back({last, count});
      else
        break;
    }
  }
  const i32 removed = Count() - count;
  if (removed == 0) return 0;
  MoveRows(moves);
  SetCount(count);
  mDied += removed;
  NoteRows();
  return removed;
}

void ParticleStore::EndBirths(i32 threads) {
  const PropertyColumn<double>* ages = Find<double>(property_id::kAge);
  const std::span<u16> flags = Flags();
  ForEachBlock(kShares, threads, [&](i32 part) {
    const IndexRange rows = PartOf(part, kShares);
    for (i32 row = rows.first; row < rows.last; ++row)
      if (!ages || !ages->Has(row)) flags[row] &= static_cast<u16>(~PF_NEWBORN);
  });
}

void ParticleStore::UpdateBounds(i32 threads) {
  constexpr double most = std::numeric_limits<double>::max();
  mBounds = BoundsWithin({-most, -most, -most}, {most, most, most}, threads);
}

ParticleBounds ParticleStore::BoundsWithin(const Vec3d& low, const Vec3d& high, i32 threads) const {
  constexpr i64 kBlock = 1 << 16;
  const PropertyColumn<double>* radii = Find<double>(property_id::kRadius);
  const double standard = DefaultRadius();
  const std::span<const Vec3d> positions = Positions();
  const auto isInside = [&](const Vec3d& p) {
    return p.x >= low.x && p.y >= low.y && p.z >= low.z && p.x <= high.x && p.y <= high.y &&
           p.z <= high.z;
  };
  const auto boundsOf = [&](i32 block) {
    ParticleBounds own;
    const i64 first = block * kBlock, last = std::min<i64>(first + kBlock, Count());
    if (!radii) {
      // All reach equally far: those at the corners tell it.
      Bounds places;
      for (i64 row = first; row < last; ++row)
        if (const Vec3d& p = positions[row]; isInside(p)) places.Add({p, p});
      if (!places.IsValid()) return own;
      own.Add(places.min, standard, standard, mLayout);
      own.Add(places.max, standard, standard, mLayout);
      return own;
    }
    for (i32 row = static_cast<i32>(first); row < last; ++row)
      if (const Vec3d& p = positions[row]; isInside(p))
        own.Add(p, radii ? radii->Get(row, standard) : standard, standard, mLayout);
    return own;
  };
  ParticleBounds all =
      ReduceBlocks(static_cast<i32>((Count() + kBlock - 1) / kBlock), threads, ParticleBounds(),
                   boundsOf, [](ParticleBounds a, const ParticleBounds& b) {
                     a.Add(b);
                     return a;
                   });
  all.maxRadiusCells = all.maxRadius * mLayout.simToCell.x;
  return all;
}

void ParticleBounds::Add(const Vec3d& p, double radius, double margin, const GridLayout& cells) {
  constexpr double most = 1 << 30;
  maxRadius = std::max(maxRadius, radius);
  const double wide = radius + margin;
  const i32 reach = static_cast<i32>(std::min(std::floor(radius * cells.simToCell.x), most)) + 1;
  for (int a = 0; a < 3; ++a) {
    const i32 cell =
        static_cast<i32>(std::clamp(std::floor(p[a] * cells.simToCell[a] - 0.5), -most, most - 1));
    minCell[a] = std::min(minCell[a], cell - reach);
    maxCell[a] = std::max(maxCell[a], cell + reach);
    box.min[a] = std::min(box.min[a], p[a] - wide);
    box.max[a] = std::max(box.max[a], p[a] + wide);
  }
}

void ParticleBounds::Add(const ParticleBounds& other) {
  for (int a = 0; a < 3; ++a) {
    minCell[a] = std::min(minCell[a], other.minCell[a]);
    maxCell[a] = std::max(maxCell[a], other.maxCell[a]);
  }
  box.Add(other.box);
  maxRadius = std::max(maxRadius, other.maxRadius);
}

void ParticleStore::Persist(StateArchive& archive) {
  ParticleColumns::Persist(archive);
  archive(mNextId, mBorn, mDied, mFilled.particles, mFilled.volume);
  PersistLayout(archive);
  if (archive.IsLoading()) NoteRows();
}

void ParticleStore::PersistLayout(StateArchive& archive) {
  VecInt3D dims = mLayout.dims;
  Vec3d size = mLayout.worldSize, origin = mLayout.worldOrigin;
  f32 cell = mLayout.cellSize;
  archive(dims, size, cell, origin);
  if (archive.IsLoading() && archive.IsGood()) mLayout.Set(dims, size, cell, origin);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
