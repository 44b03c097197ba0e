// CSV: a line of names, then a line of numbers for each particle, parted by commas, or as some
// tools have it by semicolons or tabs.
#include <fmt/format.h>

#include "exchange/attribute_names.h"
#include "exchange/format_parts.h"
#include "exchange/named_components.h"
#include "exchange/text_rows.h"

namespace MELDO_GLOBAL::exchange {

namespace {

/// What parts the cells of a file with such a first line.
char SeparatorOf(std::string_view line) {
  for (const char separator : {',', ';', '\t'})
    if (line.find(separator) != std::string_view::npos) return separator;
  return ',';
}

/// Takes the next cell off a line of them.
std::string_view NextCell(std::string_view& line, char separator) {
  const std::size_t end = line.find(separator);
  std::string_view cell = line.substr(0, end);
  line.remove_prefix(end == std::string_view::npos ? line.size() : end + 1);
  const auto isTrimmed = [](char c) { return c == ' ' || c == '\t' || c == '"'; };
  while (!cell.empty() && isTrimmed(cell.front())) cell.remove_prefix(1);
  while (!cell.empty() && isTrimmed(cell.back())) cell.remove_suffix(1);
  return cell;
}

std::vector<FlatColumn> NamesOfLine(std::string_view line, char separator) {
  std::vector<FlatColumn> flat;
  if (line.starts_with("\xEF\xBB\xBF")) line.remove_prefix(3);
  while (!line.empty()) {
    const std::string name(NextCell(line, separator));
    const bool isWhole = NameFromFile(name, 1) == "id" || name == "kind";
    flat.push_back({name, isWhole ? ValueType::I64 : ValueType::F64});
  }
  return flat;
}

/// The number of a cell. Where commas don't part cells they may be decimal ones.
TextNumber NumberOfCell(const TextSource& text, std::string_view cell, char separator,
                        std::string_view column) {
  if (cell.empty()) text.Fail(fmt::format("the cell of '{}' is empty", column));
  if (separator == ',' || cell.find(',') == std::string_view::npos) return text.NumberOf(cell);
  std::string pointed(cell);
  pointed[pointed.find(',')] = '.';
  return text.NumberOf(pointed);
}

void ReadCsv(ByteSource& source, ParticleTable& table) {
  TextSource text(source);
  std::string line;
  if (!text.Line(line)) Damaged("it is empty");
  const char separator = SeparatorOf(line);
  const std::vector<FlatColumn> flat = NamesOfLine(line, separator);
  JoinComponents(table, flat);
  if (!table.Find("position", 3)) Damaged("its first line names no columns x, y, z");
  RowTaker taker(table);
  std::vector<TextNumber> row(taker.Width());
  while (text.Line(line)) {
    if (line.empty()) continue;
    std::string_view cells = line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (cells.empty()) text.Fail(fmt::format("expected {} numbers, got {}", row.size(), i));
      row[i] = NumberOfCell(text, NextCell(cells, separator), separator, flat[i].name);
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
  for (const std::vector<std::string>& names : ComponentNames(table))
    for (const std::string& name : names) line += name + ",";
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
