#include "io/point_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <map>

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;
using exchange::ParticleColumn;
using exchange::ParticleTable;
using exchange::ValueType;

namespace {

/// A name that every reader takes: letters, digits and underscores.
std::string WrittenName(const std::string& name) {
  std::string plain = name.empty() ? "property" : name;
  for (char& c : plain)
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  return plain;
}

/// A property of some of the kinds, and its name in the file.
struct WrittenProperty {
  PropertyKey key;
  ValueType type;
  int components;
  std::string name;
};

class TableMaker {
 public:
  TableMaker(const ParticleSet& particles, u32 kinds) : mParticles(particles) {
    for (i32 kind = 0; kind < kParticleKinds; ++kind)
      if (kinds == 0 || (kinds >> kind & 1)) mKinds.push_back(kind);
  }

  ParticleTable Make() {
    i64 count = 0;
    for (const i32 kind : mKinds) count += mParticles.Count(kind);
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
    if (mKinds.size() > 1) mTable.Add("kind", ValueType::U8, 1);
    auto& columns = mTable.Columns();
    auto& position = List<f64>(columns[0]);
    auto& velocity = List<f64>(columns[1]);
    auto& id = List<i32>(columns[2]);
    std::size_t row = 0;
    ForEachStore([&](i32 kind, const ParticleStore& store) {
      for (i32 i = 0; i < store.Count(); ++i, ++row) {
        Put(position, row, store.Positions()[i]);
        Put(velocity, row, store.Velocities()[i]);
        id[row] = store.Ids()[i];
        if (mKinds.size() > 1) List<u8>(columns[3])[row] = static_cast<u8>(kind);
      }
    });
  }

  void GatherProperties() {
    ForEachStore([&](i32, const ParticleStore& store) {
      Gather<double>(store, ValueType::F64, 1);
      Gather<Vec3d>(store, ValueType::F64, 3);
      Gather<bool>(store, ValueType::U8, 1);
    });
    std::stable_sort(mProperties.begin(), mProperties.end(),
                     [](const auto& a, const auto& b) { return a.key.id < b.key.id; });
  }

  template <class T>
  void Gather(const ParticleStore& store, ValueType type, int components) {
    for (const auto& column : store.List<T>()) {
      const PropertyKey& key = column->Key();
      const bool isKnown =
          std::any_of(mProperties.begin(), mProperties.end(), [&](const WrittenProperty& p) {
            return p.key == key && p.type == type && p.components == components;
          });
      if (!isKnown && IsDeclaredProperty(key.id))
        mProperties.push_back({key, type, components, WrittenName(column->Name())});
    }
  }

  template <class T, class Value>
  void Fill(const PropertyKey& key, ParticleColumn& to) {
    auto& values = List<Value>(to);
    std::size_t row = 0;
    ForEachStore([&](i32, const ParticleStore& store) {
      const PropertyColumn<T>* from = store.Find<T>(key);
      for (i32 i = 0; from && i < store.Count(); ++i) Put(values, row + i, from->Get(i, T{}));
      row += static_cast<std::size_t>(store.Count());
    });
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

  template <class F>
  void ForEachStore(F&& f) const {
    for (const i32 kind : mKinds) f(kind, mParticles.Store(kind));
  }

  const ParticleSet& mParticles;
  std::vector<i32> mKinds;
  std::vector<WrittenProperty> mProperties;
  ParticleTable mTable;
};

}  // namespace

ParticleTable TableOf(const ParticleSet& particles, u32 kinds) {
  return TableMaker(particles, kinds).Make();
}

}  // namespace MELDO_GLOBAL::app
