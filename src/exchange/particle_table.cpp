#include "exchange/particle_table.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/file_error.h"
#include "host/memory_budget.h"

namespace MELDO_GLOBAL::exchange {

std::size_t ParticleColumn::Width() const {
  return std::visit([](const auto& list) { return sizeof list[0]; }, values);
}

double ParticleColumn::At(i64 row, int component) const {
  const std::size_t at = static_cast<std::size_t>(row) * components + component;
  return std::visit([at](const auto& list) { return static_cast<double>(list[at]); }, values);
}

void ParticleColumn::Resize(i64 rows) {
  std::visit([&](auto& list) { list.resize(static_cast<std::size_t>(rows) * components); }, values);
}

void ParticleTable::SetCount(i64 count) {
  ExpectRoom(count);
  mCount = count;
  for (ParticleColumn& column : mColumns) column.Resize(count);
}

ParticleColumn& ParticleTable::Add(std::string name, ValueType type, int components) {
  std::string free = name;
  for (int use = 2; Find(free); ++use) free = fmt::format("{}_{}", name, use);
  ParticleColumn column{std::move(free), components, EmptyValues(type), {}};
  ExpectRoom(mCount, column.Width() * static_cast<std::size_t>(components));
  column.Resize(mCount);
  return mColumns.emplace_back(std::move(column));
}

void ParticleTable::ExpectRoom(i64 rows, std::size_t more) const {
  if (!mIsLimited) return;
  std::size_t width = more;
  for (const ParticleColumn& column : mColumns)
    width += column.Width() * static_cast<std::size_t>(column.components);
  const double bytes = static_cast<double>(rows) * static_cast<double>(width);
  if (!host::MemoryAllows(bytes))
    throw host::FileError(
        fmt::format("it doesn't fit into memory: the columns of its {} particles need {:.0f} MB",
                    rows, bytes / 1e6));
}

const ParticleColumn* ParticleTable::Find(std::string_view name, int components) const {
  const auto found = std::find_if(mColumns.begin(), mColumns.end(),
                                  [&](const ParticleColumn& c) { return c.name == name; });
  const bool fits = found != mColumns.end() && (components == 0 || found->components == components);
  return fits ? &*found : nullptr;
}

i64 ParticleTable::Bytes() const {
  std::size_t bytes = 0;
  for (const ParticleColumn& column : mColumns)
    bytes +=
        std::visit([](const auto& list) { return list.size() * sizeof list[0]; }, column.values);
  return static_cast<i64>(bytes);
}

ParticleTable ParticleTable::Picked(std::span<const i64> rows) const {
  ParticleTable picked;
  picked.remarks = remarks;
  picked.spacing = spacing;
  picked.mCount = static_cast<i64>(rows.size());
  for (const ParticleColumn& column : mColumns) {
    ParticleColumn& own = picked.mColumns.emplace_back();
    own.name = column.name;
    own.components = column.components;
    own.words = column.words;
    own.values = EmptyValues(column.Type());
    std::visit(
        [&](auto& to) {
          const auto& from = std::get<std::remove_reference_t<decltype(to)>>(column.values);
          to.reserve(rows.size() * static_cast<std::size_t>(column.components));
          for (const i64 row : rows)
            to.insert(to.end(), from.begin() + row * column.components,
                      from.begin() + (row + 1) * column.components);
        },
        own.values);
  }
  return picked;
}

ColumnValues EmptyValues(ValueType type) {
  switch (type) {
    case ValueType::U8: return std::vector<u8>();
    case ValueType::I32: return std::vector<i32>();
    case ValueType::I64: return std::vector<i64>();
    case ValueType::F32: return std::vector<f32>();
    default: return std::vector<f64>();
  }
}

}  // namespace MELDO_GLOBAL::exchange
