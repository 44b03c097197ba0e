// GEO, the classic text layout of version 5: points with attributes.
#include <fmt/format.h>

#include "exchange/attribute_names.h"
#include "exchange/format_parts.h"
#include "exchange/text_rows.h"

namespace MELDO_GLOBAL::exchange {

namespace {

constexpr std::string_view kGeoMagic = "PGEOMETRY";
constexpr std::string_view kGeoMarks = "()";
constexpr i64 kGeoComponents = 4096;

struct GeoCounts {
  i64 points = 0, primitives = 0, pointGroups = 0, primitiveGroups = 0;
  i64 pointAttributes = 0, vertexAttributes = 0, primitiveAttributes = 0, attributes = 0;
};

GeoCounts ReadGeoCounts(TextSource& text) {
  text.Expect(kGeoMagic);
  if (text.Word() != "V5") text.Fail("it is of another version; V5 is read");
  GeoCounts counts;
  const std::pair<std::string_view, i64*> words[] = {{"NPoints", &counts.points},
                                                     {"NPrims", &counts.primitives},
                                                     {"NPointGroups", &counts.pointGroups},
                                                     {"NPrimGroups", &counts.primitiveGroups},
                                                     {"NPointAttrib", &counts.pointAttributes},
                                                     {"NVertexAttrib", &counts.vertexAttributes},
                                                     {"NPrimAttrib", &counts.primitiveAttributes},
                                                     {"NAttrib", &counts.attributes}};
  for (const auto& [word, count] : words) {
    text.Expect(word);
    *count = text.Whole();
    if (*count < 0) text.Fail("expected a count from 0 on");
  }
  return counts;
}

/// Adds the column of an attribute; empty, as rows come one by one.
void ReadGeoAttribute(TextSource& text, ParticleTable& table) {
  const std::string name(text.Word());
  const i64 components = text.Whole();
  const std::string type(text.Word());
  if (components < 1 || components > kGeoComponents) text.Fail("an attribute has no possible size");
  const bool isReal = type == "float" || type == "vector";
  if (!isReal && type != "int" && type != "index")
    text.Fail(fmt::format("an attribute has the unknown type \"{}\"", PlainName(type, 40)));
  ParticleColumn& column = AddFromFile(table, name, isReal ? ValueType::F32 : ValueType::I64,
                                       static_cast<int>(components));
  i64 values = components;
  if (type == "index") {
    values = text.Whole();
    text.Source().Expect(values, 2, "texts");
  }
  for (i64 i = 0; i < values; ++i) {
    const std::string_view word = text.Word();
    if (type == "index")
      column.words.emplace_back(word);
    else
      text.RealOf(word);
  }
}

void ReadGeoPoints(TextSource& text, ParticleTable& table, i64 count) {
  constexpr std::size_t kPlace = 3;
  RowTaker taker(table);
  std::vector<TextNumber> row(taker.Width());
  for (i64 i = 0; i < count; ++i) {
    for (std::size_t c = 0; c < kPlace; ++c) row[c] = text.Number(kGeoMarks);
    text.Real(kGeoMarks);
    if (row.size() > kPlace) {
      text.Expect("(", kGeoMarks);
      for (std::size_t c = kPlace; c < row.size(); ++c) row[c] = text.Number(kGeoMarks);
      text.Expect(")", kGeoMarks);
    }
    taker.Take(row, text.Source());
  }
  taker.Finish();
  NarrowWholeColumns(table);
}

void ReadGeo(ByteSource& source, ParticleTable& table) {
  TextSource text(source);
  const GeoCounts counts = ReadGeoCounts(text);
  // Of a place and its weight no number is shorter than two letters.
  source.Expect(counts.points, 8, "points");
  source.Expect(counts.pointAttributes, 8, "attributes");
  table.Add("position", ValueType::F32, 3);
  if (counts.pointAttributes > 0) text.Expect("PointAttrib");
  for (i64 i = 0; i < counts.pointAttributes; ++i) ReadGeoAttribute(text, table);
  ReadGeoPoints(text, table, counts.points);
  // What comes between tells of polygons and groups.
  for (std::string_view word = text.Word(); word != "endExtra"; word = text.Word())
    if (word.empty() && !text.WasQuoted()) text.Fail("it ends too early");
}

std::string GeoQuoted(std::string_view word) {
  std::string quoted = "\"";
  for (const char c : word) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

void WriteGeoAttribute(ByteSink& sink, const std::string& name, const ParticleColumn& column) {
  std::string line = fmt::format("{} {} ", name, column.components);
  if (!column.words.empty()) {
    line += fmt::format("index {}", column.words.size());
    for (const std::string& word : column.words) line += ' ' + GeoQuoted(word);
  } else {
    line += column.IsReal() ? "float" : "int";
    for (int c = 0; c < column.components; ++c) line += " 0";
  }
  sink.Append(line + "\n");
}

/// The value as the format's readers take it: what single precision or 32 bits hold.
void AppendShort(std::string& line, const ParticleColumn& column, i64 row, int component) {
  if (column.Type() == ValueType::F64)
    line += fmt::format("{}", static_cast<f32>(column.At(row, component)));
  else
    AppendWithin32(line, column, row, component);
}

void WriteGeo(WriteJob& job) {
  const ParticleTable& table = job.table;
  const std::size_t position = PositionColumn(table);
  const std::vector<std::string> names = NamesInFile(table);
  job.sink.Append(
      fmt::format("PGEOMETRY V5\nNPoints {} NPrims 0\nNPointGroups 0 NPrimGroups 0\n"
                  "NPointAttrib {} NVertexAttrib 0 NPrimAttrib 0 NAttrib 0\n",
                  table.Count(), names.size() - 1));
  if (names.size() > 1) job.sink.Append("PointAttrib\n");
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i != position) WriteGeoAttribute(job.sink, names[i], table.Columns()[i]);
    TellMisfits(job, table.Columns()[i], ShortTypeOf(table.Columns()[i]));
  }
  std::string line;
  for (i64 row = 0; row < table.Count(); ++row) {
    line.clear();
    for (int c = 0; c < 3; ++c) AppendShort(line, table.Columns()[position], row, c), line += ' ';
    line += '1';
    const char* separator = " (";
    for (std::size_t i = 0; i < names.size(); ++i)
      for (int c = 0; i != position && c < table.Columns()[i].components; ++c) {
        line += separator;
        AppendShort(line, table.Columns()[i], row, c);
        separator = " ";
      }
    line += names.size() > 1 ? ")\n" : "\n";
    job.sink.Append(line);
  }
  job.sink.Append("beginExtra\nendExtra\n");
}

}  // namespace

const ParticleFormat& GeoFormat() {
  static const ParticleFormat format = {
      .name = "geo",
      .extensions = {".geo"},
      .gzip = GzipUse::ByName,
      .begins = [](std::string_view head) { return head.starts_with(kGeoMagic); },
      .read = ReadGeo,
      .write = WriteGeo,
      .keepsWords = true};
  return format;
}

}  // namespace MELDO_GLOBAL::exchange
