#include "cache/particle_exchange.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "grids/grid_memory.h"
#include "host/file_error.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using exchange::ParticleColumn;
using exchange::ParticleTable;
using exchange::ValueType;

namespace {

using namespace property_id;

/// The value of a particle that doesn't have a property.
double FallbackOf(i32 id) {
  switch (id) {
    case kRadius:
    case kDensity:
    case kMass:
    case kAnisotropy: return 1;
    case kAge: return 10000;
    default: return 0;
  }
}
Vec3d FallbackOf(i32 id, const Vec3d& position) {
  switch (id) {
    case kColor:
    case kUv: return {1, 1, 1};
    case kNormal: return {0, 1, 0};
    case kOldPosition:
    case kFrameStart: return position;
    default: return {};
  }
}

std::vector<f32>& RealsOf(ParticleColumn& column) {
  return std::get<std::vector<f32>>(column.values);
}
void Put(std::vector<f32>& values, std::size_t row, const Vec3d& v) {
  for (int a = 0; a < 3; ++a) values[3 * row + a] = static_cast<f32>(v[a]);
}

/// Fills a table from the rows of several stores.
class TableMaker {
 public:
  TableMaker(std::span<const ParticleSource> sources, const PropertySelection& selection)
      : mSources(sources), mSelection(selection) {}

  ParticleTable Make() {
    i64 count = 0;
    for (const ParticleSource& source : mSources) count += source.rows->Count();
    mTable.SetCount(count);
    AddVectors("position", [](const ParticleColumns& c, i32 row) { return c.Positions()[row]; });
    AddVectors("velocity", [](const ParticleColumns& c, i32 row) { return c.Velocities()[row]; });
    auto& ids = std::get<std::vector<i32>>(mTable.Add("id", ValueType::I32, 1).values);
    std::iota(ids.begin(), ids.end(), 0);
    AddProperties<double>();
    AddProperties<Vec3d>();
    return std::move(mTable);
  }

 private:
  /// Calls f(columns, row, place in the table) for all.
  template <class F>
  void ForEachRow(F&& f) const {
    std::size_t place = 0;
    for (const ParticleSource& source : mSources)
      for (i32 row = 0; row < source.rows->Count(); ++row) f(*source.rows, row, place++);
  }
  template <class Get>
  void AddVectors(std::string_view name, Get&& get) {
    std::vector<f32>& values = RealsOf(mTable.Add(std::string(name), ValueType::F32, 3));
    ForEachRow([&](const ParticleColumns& columns, i32 row, std::size_t place) {
      Put(values, place, get(columns, row));
    });
  }
  template <class T>
  void AddProperties() {
    std::vector<PropertyKey> known;
    for (const ParticleSource& source : mSources)
      for (const auto& column : source.rows->List<T>()) {
        const PropertyKey& key = column->Key();
        if (!mSelection.Holds(key) || std::find(known.begin(), known.end(), key) != known.end())
          continue;
        known.push_back(key);
        AddProperty<T>(key, column->Name());
      }
  }
  template <class T>
  void AddProperty(const PropertyKey& key, const std::string& name) {
    constexpr bool isVector = std::is_same_v<T, Vec3d>;
    std::vector<f32>& values = RealsOf(mTable.Add(name, ValueType::F32, isVector ? 3 : 1));
    std::size_t place = 0;
    for (const ParticleSource& source : mSources) {
      const PropertyColumn<T>* column = source.rows->Find<T>(key);
      for (i32 row = 0; row < source.rows->Count(); ++row, ++place) {
        if constexpr (isVector) {
          const Vec3d other = FallbackOf(key.id, source.rows->Positions()[row]);
          Put(values, place, column ? column->Get(row, other) : other);
        } else {
          const double other = FallbackOf(key.id);
          values[place] = static_cast<f32>(column ? column->Get(row, other) : other);
        }
      }
    }
  }

  std::span<const ParticleSource> mSources;
  const PropertySelection& mSelection;
  ParticleTable mTable;
};

Vec3d VectorAt(const ParticleColumn& column, i32 row) {
  return {column.At(row, 0), column.At(row, 1), column.At(row, 2)};
}

/// The property of a built-in name; what is called the start of a frame is where each was before.
std::optional<PropertyKey> BuiltIn(std::string_view name, int components) {
  for (const BuiltInProperty& property : BuiltInProperties()) {
    const bool isVector = property.id >= kFirstVector && property.id < kFirstBool;
    if (property.name == name && property.id >= 0 && isVector == (components == 3))
      return PropertyKey(property.id == kFrameStart ? i32{kOldPosition} : property.id);
  }
  return {};
}

void TakeColumn(const ParticleColumn& column, const PropertyKey& key, ParticleStore& store) {
  if (column.components == 3) {
    auto& values = store.Require<Vec3d>(key, column.name);
    for (i32 row = 0; row < store.Count(); ++row) values.Set(row, VectorAt(column, row));
  } else {
    auto& values = store.Require<double>(key, column.name);
    for (i32 row = 0; row < store.Count(); ++row) values.Set(row, column.At(row));
  }
}

void CheckRoom(const ParticleTable& table, const ParticleStore& store) {
  const double bytes = static_cast<double>(table.Bytes()) * 2;  // of reals that have 32 bits
  if (table.Count() <= std::numeric_limits<i32>::max() &&
      HasMemoryFor(std::max(bytes - static_cast<double>(store.Bytes()), 0.0)))
    return;
  RefuseParticles(static_cast<double>(table.Count()), bytes);
  throw host::FileError("there is no memory for its particles");
}

}  // namespace

ParticleTable TableOf(std::span<const ParticleSource> sources, const PropertySelection& selection) {
  return TableMaker(sources, selection).Make();
}

std::vector<std::string> TakeTable(const ParticleTable& table, u16 flags, const FindProperty& find,
                                   ParticleStore& store) {
  const ParticleColumn* positions = table.Find("position", 3);
  const ParticleColumn* velocities = table.Find("velocity", 3);
  if (!positions && table.Count() > 0) throw host::FileError("its particles have no positions");
  CheckRoom(table, store);
  const i32 known = store.Count(), count = static_cast<i32>(table.Count());
  store.SetCount(count);
  std::iota(store.Ids().begin(), store.Ids().end(), 0);
  for (i32 row = 0; row < count; ++row) {
    if (row >= known) store.Flags()[row] = flags;
    const Vec3d p = VectorAt(*positions, row),
                v = velocities ? VectorAt(*velocities, row) : Vec3d{};
    if (!std::isfinite(p.x + p.y + p.z) || !std::isfinite(v.x + v.y + v.z)) {
      store.SetCount(0);
      throw host::FileError("the position or velocity of a particle isn't a number");
    }
    store.Positions()[row] = p;
    store.Velocities()[row] = v;
  }
  std::vector<std::string> unknown;
  for (const ParticleColumn& column : table.Columns()) {
    if (&column == positions || &column == velocities || !column.IsReal()) continue;
    const bool fits = column.components == 1 || column.components == 3;
    std::optional<PropertyKey> key = fits ? BuiltIn(column.name, column.components) : std::nullopt;
    if (!key && fits) key = find(column.name, column.components);
    if (key)
      TakeColumn(column, *key, store);
    else
      unknown.push_back(column.name);
  }
  return unknown;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
