// Particles as arrays: one per field, and one per property.
#pragma once
#include <memory>
#include <span>
#include <vector>

#include "fluids/particles/particle_template.h"
#include "fluids/particles/property_column.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class Particle;

/// A bond to another particle, which it names by its id: one that leaves lets none dangle.
struct ParticleLink {
  f32 weight = 0;
  i32 other = -1;
};

/// A row that takes the place of another one.
struct RowMove {
  i32 from = 0, to = 0;
};

/// Any number of particles in rows. Loops stream the arrays that they need; who handles a particle
/// on its own takes a `Particle`. Rows and columns are added and removed on the pipeline thread,
/// or by the one worker that owns the columns.
class ParticleColumns {
 public:
  i32 Count() const { return static_cast<i32>(mPositions.size()); }
  bool IsEmpty() const { return mPositions.empty(); }

  std::span<Vec3d> Positions() { return mPositions; }  ///< simulation units
  std::span<const Vec3d> Positions() const { return mPositions; }
  std::span<Vec3d> Velocities() { return mVelocities; }  ///< simulation units a second
  std::span<const Vec3d> Velocities() const { return mVelocities; }
  std::span<u16> Flags() { return mFlags; }  ///< bits of `ParticleFlag`
  std::span<const u16> Flags() const { return mFlags; }
  std::span<i32> Ids() { return mIds; }  ///< -1 until a store takes it
  std::span<const i32> Ids() const { return mIds; }

  /// A handle on a row; `particle.h` has it.
  Particle At(i32 row);

  /// All columns of a type, by id and, of one id, as they came.
  template <class T>
  auto& List() {
    if constexpr (std::is_same_v<T, double>) {
      return mScalars;
    } else if constexpr (std::is_same_v<T, Vec3d>) {
      return mVectors;
    } else {
      return mSwitches;
    }
  }
  template <class T>
  const auto& List() const {
    return const_cast<ParticleColumns*>(this)->List<T>();
  }
  /// The column of a property (T: double, Vec3d or bool); null where no particle has ever had it.
  /// Fields have none. Pointers last until a column is added or the columns are reset.
  template <class T>
  PropertyColumn<T>* Find(const PropertyKey& key) {
    for (const auto& column : List<T>())
      if (column->Key().Answers(key)) return column.get();
    return nullptr;
  }
  template <class T>
  const PropertyColumn<T>* Find(const PropertyKey& key) const {
    return const_cast<ParticleColumns*>(this)->Find<T>(key);
  }
  /// Of the columns that answer to a property, the first in which a particle has a value; null
  /// where it has none.
  template <class T>
  PropertyColumn<T>* FindOf(const PropertyKey& key, i32 row) {
    for (const auto& column : List<T>())
      if (column->Key().Answers(key) && column->Has(row)) return column.get();
    return nullptr;
  }
  template <class T>
  const PropertyColumn<T>* FindOf(const PropertyKey& key, i32 row) const {
    return const_cast<ParticleColumns*>(this)->FindOf<T>(key, row);
  }
  /// The column of a property, made without values where there is none; a `name` for a user's.
  template <class T>
  PropertyColumn<T>& Require(const PropertyKey& key, std::string_view name = {});
  /// Takes a property from all particles.
  void Drop(const PropertyKey& key);

  /// Makes a particle and returns its row. What a kind is born with takes the place of what the
  /// template says: a ballistic one gets mass 1, a diffuse one age and life span 100, one of
  /// vorticity that of 0.
  i32 Append(const ParticleTemplate& particle);
  /// Adds the particles of others behind the own ones.
  void Append(const ParticleColumns& others);
  /// Copies particles over others, one after the other.
  void MoveRows(std::span<const RowMove> moves);
  /// Drops the particles from row `count` on, or appends as many without anything.
  void SetCount(i32 count);
  void Clear();

  /// The rows of one of `parts` parts: it starts at a multiple of 64, so that all of its columns
  /// may be written while others write theirs.
  IndexRange PartOf(i32 part, i32 parts) const;

  const std::vector<ParticleLink>& LinksOf(i32 row) const;
  std::vector<ParticleLink>& EditLinks(i32 row);
  bool HasLinks() const { return !mLinks.empty(); }
  void ClearLinks() { mLinks.clear(); }

  /// Room for `count` particles in all; and for how many there is some.
  void Reserve(i64 count);
  i64 RoomFor() const { return static_cast<i64>(mPositions.capacity()); }
  /// Bytes that the arrays hold.
  i64 Bytes() const;
  void Persist(StateArchive& archive);

 private:
  template <class F>
  void ForEachColumn(F&& f);
  template <class T>
  void AppendList(const ParticleColumns& others, i32 first);
  template <class T>
  void AppendEntries(const std::vector<ParticleTemplate::Entry<T>>& entries, i32 row);
  template <class T>
  void PersistList(StateArchive& archive);
  void Resize(i32 count);
  void GiveWhatKindsAreBornWith(i32 row, u16 flags);

  std::vector<i32> mIds;
  std::vector<u16> mFlags;
  std::vector<Vec3d> mPositions, mVelocities;
  std::vector<std::unique_ptr<PropertyColumn<double>>> mScalars;
  std::vector<std::unique_ptr<PropertyColumn<Vec3d>>> mVectors;
  std::vector<std::unique_ptr<PropertyColumn<bool>>> mSwitches;
  std::vector<std::vector<ParticleLink>> mLinks;  ///< empty until there is a first one
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
