#include "exchange/text_rows.h"

#include <fmt/format.h>

#include <iterator>

#include "host/mesh_readers.h"

namespace MELDO_GLOBAL::exchange {

namespace {
constexpr i64 kRowsToJudgeBy = 1000;
}

RowTaker::RowTaker(ParticleTable& table) : mTable(table) {
  for (const ParticleColumn& column : table.Columns())
    mWidth += static_cast<std::size_t>(column.components);
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

void RowTaker::Take(const std::vector<double>& row, ByteSource& source) {
  if (mRows == 0) mStart = source.Position();
  if (mRows == kRowsToJudgeBy) ReserveFor(source);
  std::size_t at = 0;
  for (ParticleColumn& column : mTable.Columns())
    std::visit(
        [&](auto& list) {
          using Value = typename std::remove_reference_t<decltype(list)>::value_type;
          for (int c = 0; c < column.components; ++c) {
            double value = row[at++];
            if constexpr (std::is_integral_v<Value>) {
              constexpr double kMost = sizeof(Value) == 8   ? 0x1p62
                                       : sizeof(Value) == 4 ? 0x1p31 - 1
                                                            : 255;
              const double least = sizeof(Value) == 1 ? 0 : -kMost;
              value = value >= least ? std::min(value, kMost) : least;
            }
            list.push_back(static_cast<Value>(value));
          }
        },
        column.values);
  ++mRows;
}

void RowTaker::Finish() { mTable.SetCount(mRows); }

void NumbersOf(const TextSource& text, std::string_view line, std::vector<double>& numbers) {
  numbers.clear();
  for (std::string_view word = host::NextWord(line); !word.empty(); word = host::NextWord(line))
    numbers.push_back(text.RealOf(word));
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

}  // namespace MELDO_GLOBAL::exchange
