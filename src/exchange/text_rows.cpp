#include "exchange/text_rows.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

#include "exchange/record_layout.h"
#include "host/mesh_readers.h"

namespace MELDO_GLOBAL::exchange {

namespace {
constexpr i64 kRowsToJudgeBy = 1000, kRowsToCheck = 1 << 16;

/// A number as one of a column; false where that can't hold it.
template <class Value>
bool Convert(const TextNumber& number, Value& value) {
  if constexpr (std::is_integral_v<Value>) {
    constexpr i64 kLeast = std::numeric_limits<Value>::min(),
                  kMost = std::numeric_limits<Value>::max();
    value = static_cast<Value>(std::clamp(number.whole, kLeast, kMost));
    return value == number.whole && std::abs(number.real) < 0x1p63;
  } else {
    value = static_cast<Value>(number.real);
    return std::isfinite(value) || !std::isfinite(number.real);
  }
}

}  // namespace

RowTaker::RowTaker(ParticleTable& table) : mTable(table) {
  for (const ParticleColumn& column : table.Columns())
    mWidth += static_cast<std::size_t>(column.components);
  mMisfits.resize(table.Columns().size());
}

/// Growing by doubling would need three times the memory.
void RowTaker::ReserveFor(ByteSource& source) {
  const u64 taken = source.Position() - mStart;
  if (source.IsPacked() || taken == 0) return;
  const double share = static_cast<double>(source.MostLeft()) / static_cast<double>(taken);
  const auto rows = static_cast<std::size_t>(kRowsToJudgeBy * (1.02 + 1.02 * share));
  for (ParticleColumn& column : mTable.Columns())
    std::visit([&](auto& list) { list.reserve(rows * column.components); }, column.values);
}

void RowTaker::Take(const std::vector<TextNumber>& row, ByteSource& source) {
  if (mRows == 0) mStart = source.Position();
  if (mRows == kRowsToJudgeBy) ReserveFor(source);
  // Columns double when they grow.
  if (mRows >= kRowsToCheck && (mRows & (mRows - 1)) == 0) mTable.ExpectRoom(2 * mRows);
  std::size_t at = 0, place = 0;
  for (ParticleColumn& column : mTable.Columns()) {
    std::visit(
        [&](auto& list) {
          for (int c = 0; c < column.components; ++c)
            mMisfits[place] += !Convert(row[at++], list.emplace_back());
        },
        column.values);
    ++place;
  }
  ++mRows;
}

void RowTaker::Finish() {
  mTable.SetCount(mRows);
  for (std::size_t i = 0; i < mMisfits.size(); ++i)
    if (const ParticleColumn& column = mTable.Columns()[i]; mMisfits[i] > 0)
      mTable.warnings.push_back(MisfitText(column, mMisfits[i], StoredAs(column.Type())));
}

void NarrowWholeColumns(ParticleTable& table) {
  for (ParticleColumn& column : table.Columns())
    if (column.Type() == ValueType::I64 && CountMisfits(column, Stored::I32) == 0) {
      const auto& wide = std::get<std::vector<i64>>(column.values);
      column.values = std::vector<i32>(wide.begin(), wide.end());
    }
}

void NumbersOf(const TextSource& text, std::string_view line, std::vector<TextNumber>& numbers) {
  numbers.clear();
  for (std::string_view word = host::NextWord(line); !word.empty(); word = host::NextWord(line))
    numbers.push_back(text.NumberOf(word));
}

void AppendValue(std::string& line, const ParticleColumn& column, i64 row, int component) {
  const std::size_t at = static_cast<std::size_t>(row) * column.components + component;
  std::visit(
      [&](const auto& list) {
        // Small bytes, too, are numbers.
        fmt::format_to(std::back_inserter(line), "{}", +list[at]);
      },
      column.values);
}

void AppendWithin32(std::string& line, const ParticleColumn& column, i64 row, int component) {
  const auto* wide = std::get_if<std::vector<i64>>(&column.values);
  if (!wide) return AppendValue(line, column, row, component);
  const i64 value = (*wide)[static_cast<std::size_t>(row) * column.components + component];
  fmt::format_to(
      std::back_inserter(line), "{}",
      std::clamp<i64>(value, std::numeric_limits<i32>::min(), std::numeric_limits<i32>::max()));
}

}  // namespace MELDO_GLOBAL::exchange
