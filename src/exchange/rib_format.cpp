// RIB: a statement of points for a renderer. It is a programming language, so it is only written.
#include <fmt/format.h>

#include "exchange/attribute_names.h"
#include "exchange/format_parts.h"
#include "exchange/text_rows.h"

namespace MELDO_GLOBAL::exchange {

namespace {

/// All values of a column behind its declaration.
void WriteRibList(ByteSink& sink, const ParticleTable& table, const std::string& declared,
                  const ParticleColumn& column) {
  constexpr std::size_t kLine = 120;
  sink.Append("\n    \"" + declared + "\" [");
  std::string line;
  for (i64 row = 0; row < table.Count(); ++row)
    for (int c = 0; c < column.components; ++c) {
      line += ' ';
      AppendValue(line, column, row, c);
      if (line.size() < kLine) continue;
      sink.Append(line + "\n     ");
      line.clear();
    }
  sink.Append(line + " ]");
}

/// A renderer wants diameters.
ParticleColumn WidthsOf(const ParticleTable& table, const ParticleColumn& radius) {
  ParticleColumn widths;
  std::vector<f32> values;
  for (i64 row = 0; row < table.Count(); ++row)
    values.push_back(static_cast<f32>(2 * radius.At(row)));
  widths.values = std::move(values);
  return widths;
}

void WriteRib(WriteJob& job) {
  const ParticleTable& table = job.table;
  const std::size_t position = PositionColumn(table);
  job.sink.Append("version 3.04\nAttributeBegin\n  Points");
  WriteRibList(job.sink, table, "P", table.Columns()[position]);
  const std::vector<std::string> names = NamesInFile(table);
  for (std::size_t i = 0; i < names.size(); ++i) {
    const ParticleColumn& column = table.Columns()[i];
    if (i == position) continue;
    if (column.name == "radius" && column.components == 1)
      WriteRibList(job.sink, table, "width", WidthsOf(table, column));
    else if (column.name == "color" && column.components == 3)
      WriteRibList(job.sink, table, "Cs", column);
    else if (column.components == 1 || column.components == 3)
      WriteRibList(
          job.sink, table,
          fmt::format("varying {} {}", column.components == 3 ? "vector" : "float", names[i]),
          column);
    else
      job.report.lost.push_back(column.name);
  }
  job.sink.Append("\nAttributeEnd\n");
}

}  // namespace

const ParticleFormat& RibFormat() {
  static const ParticleFormat format = {
      .name = "rib",
      .extensions = {".rib"},
      .gzip = GzipUse::ByName,
      .begins = [](std::string_view head) { return head.starts_with("version 3"); },
      .write = WriteRib};
  return format;
}

}  // namespace MELDO_GLOBAL::exchange
