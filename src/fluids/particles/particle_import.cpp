#include "fluids/particles/particle_import.h"

#include <algorithm>
#include <optional>

#include "exchange/particles_object.h"
#include "fluids/particles/point_table.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Where particles of a file stand: `place` puts them into the world, `worldToSim` takes host units
/// to those of the simulation.
struct ImportPlace {
  Matrix place;
  Vec3d worldToSim{1, 1, 1};
};

using exchange::ParticleColumn;
using exchange::ParticleTable;

/// What becomes of a column.
struct ImportedColumn {
  const ParticleColumn* column;
  PropertyKey key;
  std::string name;
  enum class As { Real, Vector, Switch } as;
};

Vec3d VectorAt(const ParticleColumn& column, i64 row) {
  return {column.At(row, 0), column.At(row, 1), column.At(row, 2)};
}

std::optional<PropertyKey> KeyFor(const ParticleColumn& column, std::span<iProperty* const> users) {
  for (const BuiltInProperty& property : BuiltInProperties()) {
    if (property.name != column.name || !IsDeclaredProperty(property.id)) continue;
    const bool isVector = property.id >= property_id::kFirstVector;
    if (column.components == (isVector ? 3 : 1)) return PropertyKey(property.id);
  }
  for (const iProperty* user : users)
    if (user->PropertyId() >= property_id::kFirstBool && user->mName == column.name)
      return user->Key();
  return {};
}

std::vector<ImportedColumn> ColumnsToImport(const ParticleTable& table,
                                            std::span<iProperty* const> users) {
  std::vector<ImportedColumn> imported;
  for (const ParticleColumn& column : table.Columns()) {
    const auto key = KeyFor(column, users);
    if (!key || key->id == property_id::kPosition || key->id == property_id::kVelocity) continue;
    using enum ImportedColumn::As;
    const bool isSwitch =
        column.Type() == exchange::ValueType::U8 && key->id >= property_id::kFirstBool;
    if (column.components == 3)
      imported.push_back({&column, *key, column.name, Vector});
    else if (column.components == 1)
      imported.push_back({&column, *key, column.name, isSwitch ? Switch : Real});
  }
  return imported;
}

Vec3d PlacedVector(i32 id, const Vec3d& v, const ImportPlace& where) {
  switch (id) {
    case property_id::kOldPosition:
    case property_id::kFrameStart: return (where.place * v) * where.worldToSim;
    case property_id::kNormal: return Normalised(where.place.Rotate(v));
    default: return v;
  }
}

void AppendParticles(const ParticleTable& table, const ImportPlace& where,
                     std::span<iProperty* const> users, ParticleStore& store) {
  const ParticleColumn* positions = table.Find("position", 3);
  const ParticleColumn* velocities = table.Find("velocity", 3);
  if (!positions) return;
  const std::vector<ImportedColumn> columns = ColumnsToImport(table, users);
  ParticleTemplate particle;
  for (i64 row = 0; row < table.Count(); ++row) {
    particle.position = (where.place * VectorAt(*positions, row)) * where.worldToSim;
    if (velocities)
      particle.velocity = where.place.Rotate(VectorAt(*velocities, row)) * where.worldToSim;
    for (const ImportedColumn& c : columns) {
      if (c.as == ImportedColumn::As::Vector)
        particle.Set(c.key, PlacedVector(c.key.id, VectorAt(*c.column, row), where), c.name);
      else if (c.as == ImportedColumn::As::Switch)
        particle.Set(c.key, c.column->At(row) != 0, c.name);
      else
        particle.Set(
            c.key,
            c.column->At(row) * (c.key.id == property_id::kRadius ? where.worldToSim.x : 1.0),
            c.name);
    }
    store.Create(particle);
  }
}

}  // namespace

exchange::ParticleTable PointsOf(const ParticleColumns& particles, const host::PointsObject& object,
                                 const GridLayout& domain) {
  ParticleTable table = TableOf(particles);
  const Matrix toOwn = Inverse(object.GlobalMatrix());
  const auto change = [&](std::string_view name, int components, auto&& f) {
    ParticleColumn* column = table.Find(name, components);
    auto* values = column ? std::get_if<std::vector<f64>>(&column->values) : nullptr;
    if (!values) return;
    for (std::size_t i = 0; i < values->size(); i += static_cast<std::size_t>(components))
      f(values->data() + i);
  };
  const auto changeVectors = [&](std::string_view name, auto&& f) {
    change(name, 3, [&](double* at) {
      const Vec3d v = f(Vec3d{at[0], at[1], at[2]});
      for (i32 a = 0; a < 3; ++a) at[a] = v[a];
    });
  };
  const Vec3d& scale = domain.simToWorld;
  for (const i32 id : {property_id::kPosition, property_id::kOldPosition})
    changeVectors(NameOfProperty(id), [&](const Vec3d& v) { return toOwn * (v * scale); });
  changeVectors(NameOfProperty(property_id::kVelocity),
                [&](const Vec3d& v) { return toOwn.Rotate(v * scale); });
  changeVectors(NameOfProperty(property_id::kNormal),
                [&](const Vec3d& v) { return Normalised(toOwn.Rotate(v)); });
  change(NameOfProperty(property_id::kRadius), 1, [&](double* at) { *at *= scale.x; });
  return table;
}

void AppendPoints(const host::PointsObject& object, const GridLayout& domain,
                  std::span<iProperty* const> users, ParticleStore& store) {
  const ImportPlace where{object.GlobalMatrix(), domain.worldToSim};
  if (const auto* file = dynamic_cast<const exchange::ParticlesObject*>(&object))
    return AppendParticles(file->Table(), where, users, store);
  ParticleTemplate particle;
  for (const Vec3d& point : object.points) {
    particle.position = (where.place * point) * where.worldToSim;
    store.Create(particle);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
