#include "fluids/particles/particle_set.h"

#include <limits>

#include "grids/grid_memory.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

i64 ParticleSet::CountAll() const {
  i64 count = 0;
  for (const ParticleStore& store : mStores) count += store.Count();
  return count;
}

bool ParticleSet::HasRoom(i32 kind, double births, const ParticleTemplate& particle) const {
  if (!IsParticleKind(kind)) return false;
  const double total = Count(kind) + births;
  // Rows and births grow by halves; a tree may stand beside them, and what moves particles keeps
  // where each was when the frame began.
  constexpr double kGrowth = 1.5, kTreeBytes = 48, kMotionBytes = sizeof(Vec3d) * kGrowth;
  const double bytes =
      (total + births) * particle.Bytes() * kGrowth + total * (kTreeBytes + kMotionBytes);
  const double held = static_cast<double>(mStores[kind].Bytes());
  if (total < std::numeric_limits<i32>::max() && HasMemoryFor(std::max(bytes - held, 0.0)))
    return true;
  RefuseParticles(total, bytes);
  return false;
}

void ParticleSet::Take(i32 kind, ParticleBirths& births) {
  if (!IsParticleKind(kind) || births.Count() == 0) return;
  mStores[kind].Take(births);
  MarkTreeStale(kind);
}

void ParticleSet::BuildTree(i32 kind, i32 threads, bool force, bool onlyMarked) {
  if (!IsParticleKind(kind) || (!(mStale & KindBit(kind)) && !force)) return;
  const ParticleStore& store = mStores[kind];
  mTrees[kind].Build(store.Positions(), threads,
                     onlyMarked ? store.Flags() : std::span<const u16>(), PF_MARK);
  mStale = onlyMarked ? mStale | KindBit(kind) : mStale & ~KindBit(kind);
}

const PointTree* ParticleSet::Tree(i32 kind) const {
  return IsParticleKind(kind) && !mTrees[kind].IsEmpty() ? &mTrees[kind] : nullptr;
}

std::vector<TreeHit> ParticleSet::GetNeighbours(i32 kind, const Vec3d& point, double radius,
                                                i32 capacity) const {
  NeighbourBuffer buffer(capacity);
  std::vector<TreeHit> hits;
  ForEachNeighbour(kind, point, radius, buffer, [&](i32 row, double distanceSquared) {
    hits.push_back({row, distanceSquared});
  });
  return hits;
}

void ParticleSet::UpdateBounds(i32 threads) {
  for (ParticleStore& store : mStores) store.UpdateBounds(threads);
}

i64 ParticleSet::Bytes() const {
  i64 bytes = 0;
  for (const ParticleStore& store : mStores) bytes += store.Bytes();
  for (const PointTree& tree : mTrees) bytes += tree.Bytes();
  return bytes;
}

void ParticleSet::Persist(StateArchive& archive) {
  for (ParticleStore& store : mStores) store.Persist(archive);
  archive(mCached);
  if (!archive.IsLoading()) return;
  // Bounds and trees follow from the particles.
  mStale = 0xff;
  for (PointTree& tree : mTrees) tree.Clear();
  UpdateBounds(1);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
