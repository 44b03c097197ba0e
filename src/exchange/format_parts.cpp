#include "exchange/format_parts.h"

#include <algorithm>
#include <cmath>

#include "exchange/attribute_names.h"

namespace MELDO_GLOBAL::exchange {

int PlaceOf(const ParticleTable& table, std::string_view name, int components) {
  const ParticleColumn* found = table.Find(name, components);
  return found ? static_cast<int>(found - table.Columns().data()) : -1;
}

std::size_t PositionColumn(const ParticleTable& table) {
  const int place = PlaceOf(table, "position", 3);
  if (place < 0) Damaged("its particles have no positions");
  return static_cast<std::size_t>(place);
}

void ExpectPositions(const ParticleTable& table) { PositionColumn(table); }

double RemarkedNumber(const ParticleTable& table, std::string_view key, double otherwise) {
  for (const auto& [name, value] : table.remarks) {
    if (name != key) continue;
    if (const auto* whole = std::get_if<i32>(&value)) return *whole;
    if (const auto* real = std::get_if<double>(&value); real && std::isfinite(*real)) return *real;
  }
  return otherwise;
}

void MakeIdsWhole(ParticleTable& table) {
  ParticleColumn* ids = table.Find("id", 1);
  if (!ids || !ids->IsReal()) return;
  constexpr double kMost = 0x1p53, kShort = 0x1p31;
  bool isWhole = true, isShort = true;
  for (i64 row = 0; row < table.Count() && isWhole; ++row) {
    const double id = ids->At(row);
    isWhole = std::abs(id) <= kMost && id == std::trunc(id);
    isShort = isShort && id >= -kShort && id < kShort;
  }
  if (!isWhole) return;
  ColumnValues whole = EmptyValues(isShort ? ValueType::I32 : ValueType::I64);
  std::visit(
      [&](auto& list) {
        using Id = typename std::remove_reference_t<decltype(list)>::value_type;
        list.resize(static_cast<std::size_t>(table.Count()));
        if constexpr (std::is_integral_v<Id>)
          for (i64 row = 0; row < table.Count(); ++row) list[row] = static_cast<Id>(ids->At(row));
      },
      whole);
  ids->values = std::move(whole);
}

void LoseAllBut(WriteJob& job, std::initializer_list<std::string_view> kept) {
  for (const ParticleColumn& column : job.table.Columns())
    if (std::find(kept.begin(), kept.end(), column.name) == kept.end())
      job.report.lost.push_back(column.name);
}

ParticleColumn& ReadColumn(ByteSource& source, ParticleTable& table, std::string_view inFile,
                           Stored type, int components, std::endian order) {
  source.Expect(table.Count(), components * SizeOf(type), "values of particles");
  AddFromFile(table, inFile, TypeFor(type), components);
  const std::size_t place = table.Columns().size() - 1;
  RecordLayout layout(order);
  layout.Append(table, place, type);
  layout.Read(source, table, table.Count());
  return table.Columns()[place];
}

void WriteColumn(WriteJob& job, std::size_t column, Stored type, std::endian order) {
  RecordLayout layout(order);
  AppendColumn(job, layout, column, type);
  layout.Write(job.sink, job.table, job.table.Count());
}

void AppendColumn(WriteJob& job, RecordLayout& layout, std::size_t column, Stored type) {
  TellMisfits(job, job.table.Columns()[column], type);
  layout.Append(job.table, column, type);
}

void TellMisfits(WriteJob& job, const ParticleColumn& column, Stored type) {
  if (const i64 count = CountMisfits(column, type); count > 0)
    job.report.changed.emplace(column.name, MisfitText(column, count, type));
}

}  // namespace MELDO_GLOBAL::exchange
