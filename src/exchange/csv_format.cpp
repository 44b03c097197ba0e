// CSV: a line of names, then a line of numbers for each particle.
#include <fmt/format.h>

#include "exchange/format_parts.h"
#include "exchange/named_components.h"
#include "exchange/text_rows.h"

namespace MELDO_GLOBAL::exchange {

namespace {

/// Takes the next cell off a line of them.
std::string_view NextCell(std::string_view& line) {
  const std::size_t comma = line.find(',');
  std::string_view cell = line.substr(0, comma);
  line.remove_prefix(comma == std::string_view::npos ? line.size() : comma + 1);
  const auto isTrimmed = [](char c) { return c == ' ' || c == '\t' || c == '"'; };
  while (!cell.empty() && isTrimmed(cell.front())) cell.remove_prefix(1);
  while (!cell.empty() && isTrimmed(cell.back())) cell.remove_suffix(1);
  return cell;
}

std::vector<FlatColumn> NamesOfLine(std::string_view line) {
  std::vector<FlatColumn> flat;
  if (line.starts_with("\xEF\xBB\xBF")) line.remove_prefix(3);
  while (!line.empty()) {
    const std::string name(NextCell(line));
    flat.push_back({name, name == "id" || name == "kind" ? ValueType::I64 : ValueType::F64});
  }
  return flat;
}

void ReadCsv(ByteSource& source, ParticleTable& table) {
  TextSource text(source);
  std::string line;
  if (!text.Line(line)) Damaged("it is empty");
  const std::vector<FlatColumn> flat = NamesOfLine(line);
  JoinComponents(table, flat);
  if (!table.Find("position", 3)) Damaged("its first line names no columns x, y, z");
  RowTaker taker(table);
  std::vector<double> row(taker.Width());
  while (text.Line(line)) {
    if (line.empty()) continue;
    std::string_view cells = line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (cells.empty()) text.Fail(fmt::format("expected {} numbers, got {}", row.size(), i));
      row[i] = text.RealOf(NextCell(cells));
    }
    if (!cells.empty()) text.Fail(fmt::format("expected {} numbers, got more", row.size()));
    taker.Take(row, source);
  }
  taker.Finish();
}

void WriteCsv(WriteJob& job) {
  const ParticleTable& table = job.table;
  PositionColumn(table);
  std::string line;
  for (const ParticleColumn& column : table.Columns())
    for (const std::string& name : ComponentNames(column)) line += name + ",";
  for (i64 row = -1; row < table.Count(); ++row) {
    if (row >= 0) {
      line.clear();
      for (const ParticleColumn& column : table.Columns())
        for (int c = 0; c < column.components; ++c) AppendValue(line, column, row, c), line += ',';
    }
    line.back() = '\n';
    job.sink.Append(line);
  }
}

}  // namespace

const ParticleFormat& CsvFormat() {
  static const ParticleFormat format = {
      .name = "csv", .extensions = {".csv"}, .read = ReadCsv, .write = WriteCsv};
  return format;
}

}  // namespace MELDO_GLOBAL::exchange
