#include "fluids/particles/point_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <map>

namespace MELDO_GLOBAL::MELDO_SULVA {

using exchange::ParticleColumn;
using exchange::ParticleTable;
using exchange::ValueType;

namespace {

/// Some of the particles of a table, and the number that stands at each of them in a column.
struct ParticlePart {
  const ParticleColumns* particles;
  u8 label;
};

/// A property of some of the kinds, and its name in the file.
struct WrittenProperty {
  PropertyKey key;
  ValueType type;
  int components;
  std::string name;
};

class TableMaker {
 public:
  /// `label` names the column of the parts' labels; empty without one.
  TableMaker(std::vector<ParticlePart> parts, std::string label)
      : mParts(std::move(parts)), mLabel(std::move(label)) {}

  ParticleTable Make() {
    i64 count = 0;
    for (const ParticlePart& part : mParts) count += part.particles->Count();
    mTable.SetCount(count);
    AddFields();
    GatherProperties();
    for (const WrittenProperty& property : mProperties) {
      ParticleColumn& column = mTable.Add(property.name, property.type, property.components);
      if (property.type == ValueType::U8)
        Fill<bool, u8>(property.key, column);
      else if (property.components == 3)
        Fill<Vec3d, f64>(property.key, column);
      else
        Fill<double, f64>(property.key, column);
    }
    return std::move(mTable);
  }

 private:
  void AddFields() {
    mTable.Add("position", ValueType::F64, 3);
    mTable.Add("velocity", ValueType::F64, 3);
    mTable.Add("id", ValueType::I32, 1);
    if (!mLabel.empty()) mTable.Add(mLabel, ValueType::U8, 1);
    auto& columns = mTable.Columns();
    auto& position = List<f64>(columns[0]);
    auto& velocity = List<f64>(columns[1]);
    auto& id = List<i32>(columns[2]);
    std::size_t row = 0;
    for (const auto& [particles, label] : mParts)
      for (i32 i = 0; i < particles->Count(); ++i, ++row) {
        Put(position, row, particles->Positions()[i]);
        Put(velocity, row, particles->Velocities()[i]);
        id[row] = particles->Ids()[i];
        if (!mLabel.empty()) List<u8>(columns[3])[row] = label;
      }
  }

  void GatherProperties() {
    for (const ParticlePart& part : mParts) {
      Gather<double>(*part.particles, ValueType::F64, 1);
      Gather<Vec3d>(*part.particles, ValueType::F64, 3);
      Gather<bool>(*part.particles, ValueType::U8, 1);
    }
    std::stable_sort(mProperties.begin(), mProperties.end(),
                     [](const auto& a, const auto& b) { return a.key.id < b.key.id; });
  }

  template <class T>
  void Gather(const ParticleColumns& particles, ValueType type, int components) {
    for (const auto& column : particles.List<T>()) {
      const PropertyKey& key = column->Key();
      const bool isKnown =
          std::any_of(mProperties.begin(), mProperties.end(), [&](const WrittenProperty& p) {
            return p.key == key && p.type == type && p.components == components;
          });
      // Where deformers take particles is there to be shown.
      const bool isShown = IsDeclaredProperty(key.id) || key.id == property_id::kDeformed;
      if (!isKnown && isShown)
        mProperties.push_back({key, type, components, ColumnNameOf(column->Name())});
    }
  }

  template <class T, class Value>
  void Fill(const PropertyKey& key, ParticleColumn& to) {
    auto& values = List<Value>(to);
    std::size_t row = 0;
    for (const ParticlePart& part : mParts) {
      const PropertyColumn<T>* from = part.particles->Find<T>(key);
      const i32 count = part.particles->Count();
      for (i32 i = 0; from && i < count; ++i) Put(values, row + i, from->Get(i, T{}));
      row += static_cast<std::size_t>(count);
    }
  }

  template <class Value>
  static std::vector<Value>& List(ParticleColumn& column) {
    return std::get<std::vector<Value>>(column.values);
  }
  template <class Value, class T>
  static void Put(std::vector<Value>& list, std::size_t row, const T& value) {
    list[row] = static_cast<Value>(value);
  }
  static void Put(std::vector<f64>& list, std::size_t row, const Vec3d& v) {
    for (int a = 0; a < 3; ++a) list[3 * row + a] = v[a];
  }

  std::vector<ParticlePart> mParts;
  std::string mLabel;
  std::vector<WrittenProperty> mProperties;
  ParticleTable mTable;
};

}  // namespace

std::string ColumnNameOf(const std::string& property) {
  std::string plain = property.empty() ? "property" : property;
  for (char& c : plain)
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  return plain;
}

ParticleTable TableOf(const ParticleSet& particles, u32 kinds) {
  std::vector<ParticlePart> parts;
  for (i32 kind = 0; kind < kParticleKinds; ++kind)
    if (kinds == 0 || (kinds >> kind & 1))
      parts.push_back({&particles.Store(kind), static_cast<u8>(kind)});
  const char* label = parts.size() > 1 ? "kind" : "";
  return TableMaker(std::move(parts), label).Make();
}

ParticleTable TableOf(const ParticleColumns& particles) {
  return TableMaker({{&particles, 0}}, "").Make();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
