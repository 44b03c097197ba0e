// Particles of all kinds, and their neighbours.
#pragma once
#include <array>

#include "fluids/particles/particle.h"
#include "fluids/particles/particle_store.h"
#include "fluids/particles/point_tree.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A store and a tree for each kind of particle. Whoever adds, moves or removes particles of a kind
/// marks its tree as stale, and whoever asks for neighbours builds it before.
class ParticleSet {
 public:
  ParticleStore& Store(i32 kind) { return mStores[kind]; }
  const ParticleStore& Store(i32 kind) const { return mStores[kind]; }
  i32 Count(i32 kind) const { return IsParticleKind(kind) ? mStores[kind].Count() : 0; }
  i64 CountAll() const;

  /// Whether `births` more particles like `particle` have room; where they haven't, the refusal is
  /// kept, and the run ends with it. Emitters ask before they make any.
  bool HasRoom(i32 kind, double births, const ParticleTemplate& particle) const;
  /// Appends births in the order of their shares and empties them; its tree is stale from then on.
  void Take(i32 kind, ParticleBirths& births);

  /// Sorts the particles of a kind for searches; nothing where its tree is up to date. With
  /// `onlyMarked` those with `PF_MARK` alone.
  void BuildTree(i32 kind, i32 threads, bool force = false, bool onlyMarked = false);
  /// Its tree, or null where no particle was in it.
  const PointTree* Tree(i32 kind) const;
  void MarkTreeStale(i32 kind) {
    mStale |= KindBit(kind);
    ++mChanges[kind];
  }
  /// How often particles of a kind were added, moved or removed: what was sorted at another count
  /// is stale.
  u64 Changes(i32 kind) const { return mChanges[kind]; }

  /// Calls f(row, distanceSquared) for the nearest particles closer than `radius`, at most as many
  /// as the worker's `buffer` takes, by ascending distance. Nothing without a tree.
  template <class F>
  void ForEachNeighbour(i32 kind, const Vec3d& point, double radius, NeighbourBuffer& buffer,
                        F&& f) const {
    const PointTree* tree = Tree(kind);
    if (!tree) return;
    tree->FindNearest(point, radius, buffer);
    for (const TreeHit& hit : buffer.Hits()) f(hit.index, hit.distanceSquared);
  }
  /// The same as a list.
  std::vector<TreeHit> GetNeighbours(i32 kind, const Vec3d& point, double radius,
                                     i32 capacity = NeighbourBuffer::kDefault) const;
  /// How many particles are closer than `radius`, at most `limit`; 0 without a tree.
  i32 CountNeighbours(i32 kind, const Vec3d& point, double radius,
                      i32 limit = NeighbourBuffer::kDefault) const {
    const PointTree* tree = Tree(kind);
    return tree ? tree->CountWithin(point, radius, limit) : 0;
  }

  /// In this frame a kind is played from a cache, and nothing moves it. Its particles fill cells of
  /// this size, simulation units, whatever those of the scene are.
  void SetCached(i32 kind, double cell) {
    mCached |= KindBit(kind);
    mPlayedCells[static_cast<std::size_t>(kind)] = cell;
  }
  void ClearCached(i32 kind) {
    mCached &= static_cast<u8>(~KindBit(kind));
    mPlayedCells[static_cast<std::size_t>(kind)] = 0;
  }
  /// The cells of the scene that a kind is played from; 0 where it isn't, or nobody knows them.
  double PlayedCell(i32 kind) const { return mPlayedCells[static_cast<std::size_t>(kind)]; }
  bool IsCached(i32 kind) const { return mCached & KindBit(kind); }

  /// Bounds of all kinds.
  void UpdateBounds(i32 threads);
  i64 Bytes() const;
  void Persist(StateArchive& archive);

 protected:
  static constexpr u8 KindBit(i32 kind) { return static_cast<u8>(1u << kind); }

  std::array<ParticleStore, kParticleKinds> mStores;
  std::array<PointTree, kParticleKinds> mTrees;
  std::array<u64, kParticleKinds> mChanges{};
  u8 mStale = 0xff;
  u8 mCached = 0;
  std::array<double, kParticleKinds> mPlayedCells{};  ///< told anew in every frame
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
