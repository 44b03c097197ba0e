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
  TableMaker(std::span<const ParticleSource> sources, std::span<const std::string> names,
             const PropertySelection& selection)
      : mSources(sources), mNames(names), mSelection(selection) {}

  ParticleTable Make() {
    i64 count = 0;
    for (const ParticleSource& source : mSources) count += source.rows->Count();
    mTable.SetCount(count);
    AddVectors("position", [](const ParticleColumns& c, i32 row) { return c.Positions()[row]; });
    AddVectors("velocity", [](const ParticleColumns& c, i32 row) { return c.Velocities()[row]; });
    auto& ids = std::get<std::vector<i32>>(mTable.Add("id", ValueType::I32, 1).values);
    ForEachRow([&](const ParticleColumns& columns, i32 row, std::size_t place) {
      ids[place] = columns.Ids()[row];
    });
    if (mSources.size() > 1) AddGroups();
    AddProperties<double>();
    AddProperties<Vec3d>();
    AddProperties<bool>();
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
  /// Ids count anew in every store.
  void AddGroups() {
    ParticleColumn& column = mTable.Add("group", ValueType::I32, 1);
    column.words.assign(mNames.begin(), mNames.end());
    auto& groups = std::get<std::vector<i32>>(column.values);
    auto next = groups.begin();
    for (std::size_t i = 0; i < mSources.size(); ++i)
      next = std::fill_n(next, mSources[i].rows->Count(), static_cast<i32>(i));
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
        // Nothing would find switches without a name again.
        if (!column->IsAnywhere() || (std::is_same_v<T, bool> && column->Name().empty())) continue;
        if (!mSelection.Holds(key) || std::find(known.begin(), known.end(), key) != known.end())
          continue;
        known.push_back(key);
        AddProperty<T>(key, column->Name());
      }
  }
  template <class T>
  void AddProperty(const PropertyKey& key, const std::string& name) {
    constexpr bool isVector = std::is_same_v<T, Vec3d>, isSwitch = std::is_same_v<T, bool>;
    ParticleColumn& added =
        mTable.Add(name, isSwitch ? ValueType::U8 : ValueType::F32, isVector ? 3 : 1);
    std::size_t place = 0;
    for (const ParticleSource& source : mSources) {
      const PropertyColumn<T>* column = source.rows->Find<T>(key);
      for (i32 row = 0; row < source.rows->Count(); ++row, ++place) {
        T other{};
        if constexpr (isVector)
          other = PlaceOrFallback(key.id, *source.rows, row);
        else if constexpr (!isSwitch)
          other = FallbackOf(key.id);
        const T value = column ? column->Get(row, other) : other;
        if constexpr (isVector)
          Put(RealsOf(added), place, value);
        else if constexpr (isSwitch)
          std::get<std::vector<u8>>(added.values)[place] = value;
        else
          RealsOf(added)[place] = static_cast<f32>(value);
      }
    }
  }
  /// Who has no start of the frame began it where it was a substep ago.
  static Vec3d PlaceOrFallback(i32 id, const ParticleColumns& columns, i32 row) {
    const Vec3d other = FallbackOf(id, columns.Positions()[row]);
    const PropertyColumn<Vec3d>* old =
        id == kFrameStart ? columns.Find<Vec3d>(kOldPosition) : nullptr;
    return old ? old->Get(row, other) : other;
  }

  std::span<const ParticleSource> mSources;
  std::span<const std::string> mNames;
  const PropertySelection& mSelection;
  ParticleTable mTable;
};

Vec3d VectorAt(const ParticleColumn& column, i32 row) {
  return {column.At(row, 0), column.At(row, 1), column.At(row, 2)};
}

/// The property of a built-in name that means something to others; what is called the start of a
/// frame is where each was before.
std::optional<PropertyKey> BuiltIn(std::string_view name, int components) {
  for (const BuiltInProperty& property : BuiltInProperties()) {
    const bool isVector = property.id >= kFirstVector && property.id < kFirstBool;
    const bool isKnown = IsDeclaredProperty(property.id) || property.id == kFrameStart;
    if (property.name == name && isKnown && isVector == (components == 3))
      return PropertyKey(property.id == kFrameStart ? i32{kOldPosition} : property.id);
  }
  return {};
}

/// What tells a particle apart, its id and its group, and its row.
using NamedRow = std::pair<std::pair<i64, i64>, i64>;

/// The value of a column of whole numbers; nothing where it is none.
std::optional<i64> WholeAt(const ParticleColumn& column, i64 row) {
  constexpr double kMost = 0x1p53;
  return std::visit(
      [&](const auto& list) -> std::optional<i64> {
        const auto value = list[static_cast<std::size_t>(row)];
        if constexpr (std::is_floating_point_v<decltype(+value)>)
          if (!(std::abs(value) < kMost) || value != std::trunc(value)) return {};
        return static_cast<i64>(value);
      },
      column.values);
}

/// All rows by what tells them apart; empty where nothing does.
std::vector<NamedRow> NamedRows(const ParticleTable& table) {
  const ParticleColumn* ids = table.Find("id", 1);
  const ParticleColumn* groups = table.Find("group", 1);
  std::vector<NamedRow> rows;
  for (i64 row = 0; ids && row < table.Count(); ++row) {
    const std::optional<i64> id = WholeAt(*ids, row);
    const std::optional<i64> group = groups ? WholeAt(*groups, row) : 0;
    if (!id || !group) return {};
    rows.push_back({{*id, *group}, row});
  }
  std::sort(rows.begin(), rows.end());
  const auto isSame = [](const NamedRow& a, const NamedRow& b) { return a.first == b.first; };
  if (std::adjacent_find(rows.begin(), rows.end(), isSame) != rows.end()) return {};
  return rows;
}

/// The ids of the table, unless some are none of a store's or come twice.
void TakeIds(const ParticleTable& table, std::span<i32> ids) {
  const ParticleColumn* told = table.Find("id", 1);
  std::vector<i32> sorted;
  for (i64 row = 0; told && row < table.Count(); ++row) {
    const std::optional<i64> id = WholeAt(*told, row);
    if (!id || *id < 0 || *id >= std::numeric_limits<i32>::max()) break;
    sorted.push_back(ids[static_cast<std::size_t>(row)] = static_cast<i32>(*id));
  }
  std::sort(sorted.begin(), sorted.end());
  if (sorted.size() < ids.size() ||
      std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end())
    std::iota(ids.begin(), ids.end(), 0);
}

template <class T>
void TakeColumn(const ParticleColumn& column, const PropertyKey& key, ParticleStore& store) {
  auto& values = store.Require<T>(key, column.name);
  for (i32 row = 0; row < store.Count(); ++row)
    if constexpr (std::is_same_v<T, Vec3d>)
      values.Set(row, VectorAt(column, row));
    else
      values.Set(row, static_cast<T>(column.At(row)));
}

/// Gives a column to the property that it means; false where it means none.
bool TakeProperty(const ParticleColumn& column, const FindProperty& find, ParticleStore& store) {
  if (column.components == 3) {
    auto key = BuiltIn(column.name, 3);
    if (!key) key = find(column.name, PropertyType::Vector);
    if (key) TakeColumn<Vec3d>(column, *key, store);
    return key.has_value();
  }
  if (column.components != 1) return false;
  auto key = column.IsReal() ? BuiltIn(column.name, 1) : std::nullopt;
  if (!key && column.IsReal()) key = find(column.name, PropertyType::Scalar);
  if (key) {
    TakeColumn<double>(column, *key, store);
  } else if ((key = find(column.name, PropertyType::Switch))) {
    TakeColumn<bool>(column, *key, store);
  }
  return key.has_value();
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

ParticleTable TableOf(std::span<const ParticleSource> sources, std::span<const std::string> names,
                      const PropertySelection& selection) {
  return TableMaker(sources, names, selection).Make();
}

std::vector<i64> RowsOfSame(const ParticleTable& now, const ParticleTable& other) {
  const std::vector<NamedRow> own = NamedRows(now), others = NamedRows(other);
  std::vector<i64> rows;
  if (own.empty() || others.empty()) return rows;
  rows.assign(own.size(), -1);
  auto next = others.begin();
  for (const auto& [name, row] : own) {
    while (next != others.end() && next->first < name) ++next;
    if (next != others.end() && next->first == name)
      rows[static_cast<std::size_t>(row)] = next->second;
  }
  return rows;
}

std::vector<std::string> TakeTable(const ParticleTable& table, u16 flags, const FindProperty& find,
                                   ParticleStore& store) {
  const ParticleColumn* positions = table.Find("position", 3);
  const ParticleColumn* velocities = table.Find("velocity", 3);
  if (!positions && table.Count() > 0) throw host::FileError("its particles have no positions");
  CheckRoom(table, store);
  const i32 known = store.Count(), count = static_cast<i32>(table.Count());
  store.SetCount(count);
  TakeIds(table, store.Ids());
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
  const bool hasStarts = table.Find("frame_start", 3);
  std::vector<std::string> unknown;
  for (const ParticleColumn& column : table.Columns()) {
    if (&column == positions || &column == velocities) continue;
    if (hasStarts && column.name == "old_position") continue;
    const bool isName = column.name == "id" || column.name == "group";
    const bool isTaken = (column.IsReal() || !isName) && TakeProperty(column, find, store);
    if (!isTaken && column.IsReal()) unknown.push_back(column.name);
  }
  return unknown;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
