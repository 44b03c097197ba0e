// What a file of particles holds of each.
#pragma once
#include <string>
#include <vector>

#include "fluids/particles/particle_set.h"

namespace MELDO_GLOBAL::app {

/// A property of some of the kinds, and its name in the file.
struct PointProperty {
  MELDO_SULVA::PropertyKey key;
  int components;  ///< 3 of a vector, 1 of a number, 0 of a switch
  std::string name;
};

/// The particles of some kinds as a table: the fields, and a column for each property that nodes
/// can declare. A particle that doesn't have a property has 0.
class PointTable {
 public:
  /// `kinds` has a bit for each kind; 0 for all.
  PointTable(const MELDO_SULVA::ParticleSet& particles, u32 kinds);

  /// Whether there is a column of the kind: unless only one was asked for.
  bool TellsKinds() const { return mKinds.size() > 1; }
  i64 Count() const;
  /// By id; names are apart, of letters, digits and underscores.
  const std::vector<PointProperty>& Properties() const { return mProperties; }

  /// Calls f(name, isByte) for every column behind those of the fields.
  template <class F>
  void ForEachColumn(F&& f) const {
    if (TellsKinds()) f(std::string("kind"), true);
    for (const PointProperty& property : mProperties) {
      if (property.components != 3) {
        f(property.name, property.components == 0);
      } else {
        for (const char* axis : {"_x", "_y", "_z"}) f(property.name + axis, false);
      }
    }
  }

  /// Gives every value in the order of kinds and rows: out.Number for position and velocity,
  /// out.Whole for the id, out.Byte for the kind and switches, out.Number for the rest, and
  /// out.EndRow() behind each particle.
  template <class Out>
  void Write(Out& out) const {
    for (const i32 kind : mKinds) WriteKind(kind, out);
  }

 private:
  template <class T>
  void Gather(i32 kind, int components);

  template <class Out>
  void WriteKind(i32 kind, Out& out) const {
    const MELDO_SULVA::ParticleStore& store = mParticles.Store(kind);
    struct Found {
      const MELDO_SULVA::PropertyColumn<double>* scalar = nullptr;
      const MELDO_SULVA::PropertyColumn<Vec3d>* vector = nullptr;
      const MELDO_SULVA::PropertyColumn<bool>* flag = nullptr;
      int components = 1;
    };
    std::vector<Found> columns;
    for (const PointProperty& property : mProperties) {
      Found found{.components = property.components};
      if (found.components == 1) found.scalar = store.Find<double>(property.key);
      if (found.components == 3) found.vector = store.Find<Vec3d>(property.key);
      if (found.components == 0) found.flag = store.Find<bool>(property.key);
      columns.push_back(found);
    }
    const auto vector = [&](const Vec3d& v) { out.Number(v.x), out.Number(v.y), out.Number(v.z); };
    for (i32 row = 0; row < store.Count(); ++row) {
      vector(store.Positions()[row]);
      vector(store.Velocities()[row]);
      out.Whole(store.Ids()[row]);
      if (TellsKinds()) out.Byte(static_cast<u8>(kind));
      for (const Found& found : columns) {
        if (found.components == 1) out.Number(found.scalar ? found.scalar->Get(row, 0) : 0);
        if (found.components == 3) vector(found.vector ? found.vector->Get(row, {}) : Vec3d{});
        if (found.components == 0) out.Byte(found.flag && found.flag->Get(row, false));
      }
      out.EndRow();
    }
  }

  const MELDO_SULVA::ParticleSet& mParticles;
  std::vector<i32> mKinds;
  std::vector<PointProperty> mProperties;
};

}  // namespace MELDO_GLOBAL::app
