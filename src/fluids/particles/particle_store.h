// All particles of one kind in a group.
#pragma once
#include "fluids/particles/particle_births.h"
#include "framework/bounds.h"
#include "grids/grid_layout.h"
#include "grids/grid_memory.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The box that particles fill.
struct ParticleBounds {
  VecInt3D minCell{0x7fffffff, 0x7fffffff, 0x7fffffff};  ///< with the radii, global cells
  VecInt3D maxCell{-0x7fffffff, -0x7fffffff, -0x7fffffff};
  Bounds box;            ///< with the radii and the default one, simulation units
  double maxRadius = 0;  ///< simulation units
  double maxRadiusCells = 0;

  /// Takes in a particle; `margin` widens the box beyond its radius.
  void Add(const Vec3d& position, double radius, double margin, const GridLayout& cells);
  void Add(const ParticleBounds& other);
};

/// The particles of one kind, with ids. The dead stay in their rows until `RemoveDead`.
class ParticleStore : public ParticleColumns {
 public:
  /// Drops all particles, and takes the cells of `layout`; ids start from 0 again.
  void Reset(const GridLayout& layout);
  /// Makes a particle; returns its row.
  i32 Create(const ParticleTemplate& particle);
  /// Appends births in the order of their shares and empties them.
  void Take(ParticleBirths& births);
  /// Removes the particles without `PF_ALIVE`; returns their number. The last one of the rows takes
  /// the place of one that goes, or with `keepOrder` the rest keep their order. The weights of the
  /// links of those that go are handed on to the first link of each other end.
  i32 RemoveDead(bool keepOrder);
  /// All rows were set from outside, ids among them: births go on behind the largest.
  void NoteReplaced();
  /// Those without an age aren't newborn any more; what moves the others tells them so.
  void EndBirths(i32 threads);
  /// Bounds of all rows: the radius of each particle, or the default one, widens its box.
  void UpdateBounds(i32 threads);
  const ParticleBounds& GetBounds() const { return mBounds; }
  /// Those of particles that are about to come.
  void SetBounds(const ParticleBounds& bounds) { mBounds = bounds; }
  /// The same of those in a box alone.
  ParticleBounds BoundsWithin(const Vec3d& low, const Vec3d& high, i32 threads) const;
  /// Makes ready for `RowOf`: on the pipeline thread, after the last birth or removal.
  void IndexIds();
  /// The row of the particle with an id, or -1. Any worker.
  i32 RowOf(i32 id) const;

  /// What particles made so far fill at rest, those who are gone among them; nothing where emitters
  /// told it of fewer than half.
  FilledSpace Filled() const {
    return 2 * mFilled.particles >= i64{mNextId} ? mFilled : FilledSpace();
  }

  const GridLayout& Layout() const { return mLayout; }
  /// The radius of particles without one: half a cell. Simulation units.
  double DefaultRadius() const { return mLayout.halfCell; }

  i64 mBorn = 0;  ///< since the last look of the statistics
  i64 mDied = 0;
  void Persist(StateArchive& archive);

 private:
  /// Rows from `first` on are new.
  void Grew(i32 first);
  /// Rows have changed their number or places.
  void NoteRows();
  void HandOnLinks(i32 row);
  void PersistLayout(StateArchive& archive);

  GridLayout mLayout;
  ParticleBounds mBounds;
  u32 mNextId = 0;
  FilledSpace mFilled;
  std::vector<std::pair<i32, i32>> mRowsById;  ///< sorted; empty when rows changed
  CountedMemory mMemory;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
