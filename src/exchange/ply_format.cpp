// PLY: a number for each component of each particle, binary or text.
#include <fmt/format.h>

#include "exchange/attribute_names.h"
#include "exchange/format_parts.h"
#include "exchange/named_components.h"
#include "exchange/text_rows.h"
#include "host/geometry.h"
#include "host/ply_header.h"

namespace MELDO_GLOBAL::exchange {

namespace {

constexpr std::size_t kLongestPlyHeader = 1 << 16;

Stored StoredOf(host::PlyType type) {
  constexpr Stored types[] = {Stored::I8,  Stored::U8,  Stored::I16, Stored::U16,
                              Stored::I32, Stored::U32, Stored::F32, Stored::F64};
  return types[static_cast<int>(type)];
}

const char* PlyNameOf(const ParticleColumn& column, bool isWide) {
  switch (column.Type()) {
    case ValueType::U8: return "uchar";
    case ValueType::I32: return "int";
    case ValueType::I64: return isWide ? "double" : "int";
    case ValueType::F32: return "float";
    default: return "double";
  }
}

host::PlyHeader ReadHeaderOfPly(TextSource& text, ParticleTable& table) {
  std::string header, line;
  while (line != "end_header") {
    if (!text.Line(line)) Damaged("it is damaged: its header has no end");
    header += line + "\n";
    if (header.size() > kLongestPlyHeader) Damaged("it is damaged: its header has no end");
    if (line.starts_with("comment ")) table.remarks.emplace_back("comment", line.substr(8));
  }
  std::string_view rest = header;
  try {
    return host::ReadPlyHeader(rest);
  } catch (const host::MeshFileError& error) {
    Damaged(fmt::format("it {}", error.what()));
  }
}

std::size_t RowSizeOf(const host::PlyElement& element) {
  std::size_t size = 0;
  for (const host::PlyProperty& property : element.properties) {
    if (property.isList) Damaged("its points have lists, or stand behind something that has");
    size += SizeOf(StoredOf(property.type));
  }
  return size;
}

void ReadPlyRows(TextSource& text, ParticleTable& table, i64 count) {
  RowTaker taker(table);
  std::vector<TextNumber> row(taker.Width());
  for (i64 i = 0; i < count; ++i) {
    for (TextNumber& value : row) value = text.Number();
    taker.Take(row, text.Source());
  }
  taker.Finish();
}

void ReadPlyRecords(ByteSource& source, ParticleTable& table, const host::PlyElement& points,
                    const std::vector<ComponentPlace>& places, std::endian order) {
  RecordLayout layout(order);
  for (std::size_t i = 0; i < places.size(); ++i)
    layout.Add({places[i].column, StoredOf(points.properties[i].type), layout.Size(),
                places[i].component, 1});
  source.Expect(points.count, layout.Size(), "points");
  table.SetCount(points.count);
  layout.Read(source, table, points.count);
}

void ScaleColorBytes(ParticleTable& table) {
  ParticleColumn* color = table.Find("color", 3);
  if (!color || color->Type() != ValueType::U8) return;
  std::vector<f32> shares;
  for (const u8 byte : std::get<std::vector<u8>>(color->values))
    shares.push_back(static_cast<f32>(byte) / 255.0f);
  color->values = std::move(shares);
}

void ReadPlyPoints(ByteSource& source, ParticleTable& table) {
  TextSource text(source);
  const host::PlyHeader header = ReadHeaderOfPly(text, table);
  const bool isText = header.encoding == host::PlyEncoding::Ascii;
  for (const host::PlyElement& element : header.elements) {
    const std::size_t size = RowSizeOf(element);
    // Behind the last number of a text there may be nothing.
    source.Expect(element.count, isText ? 2 * element.properties.size() : size, "things", isText);
    if (element.name != "vertex") {
      for (i64 i = 0; isText && i < element.count * static_cast<i64>(element.properties.size());
           ++i)
        text.Real();
      if (!isText) source.Skip(static_cast<u64>(element.count) * size);
      continue;
    }
    std::vector<FlatColumn> flat;
    for (const host::PlyProperty& property : element.properties)
      flat.push_back({property.name, TypeFor(StoredOf(property.type))});
    const std::vector<ComponentPlace> places = JoinComponents(table, flat);
    ExpectPositions(table);
    if (isText) {
      ReadPlyRows(text, table, element.count);
    } else {
      const bool isLittle = header.encoding == host::PlyEncoding::Little;
      ReadPlyRecords(source, table, element, places,
                     isLittle ? std::endian::little : std::endian::big);
    }
    return ScaleColorBytes(table);
  }
  Damaged("it has no points");
}

void WritePlyPoints(WriteJob& job) {
  const ParticleTable& table = job.table;
  PositionColumn(table);
  std::string header = "ply\nformat binary_little_endian 1.0\n";
  for (const auto& [key, value] : table.remarks)
    if (key == "comment" && std::holds_alternative<std::string>(value))
      header += fmt::format("comment {}\n", std::get<std::string>(value));
  header += fmt::format("element vertex {}\n", table.Count());
  RecordLayout layout(std::endian::little);
  const std::vector<std::vector<std::string>> names = ComponentNames(table);
  for (std::size_t i = 0; i < table.Columns().size(); ++i) {
    const ParticleColumn& column = table.Columns()[i];
    const bool isWide = NeedsWide(column);
    for (const std::string& name : names[i])
      header += fmt::format("property {} {}\n", PlyNameOf(column, isWide), name);
    const Stored type = column.Type() != ValueType::I64 ? StoredAs(column.Type())
                        : isWide                        ? Stored::F64
                                                        : Stored::I32;
    AppendColumn(job, layout, i, type);
  }
  job.sink.Append(header + "end_header\n");
  layout.Write(job.sink, table, table.Count());
}

}  // namespace

const ParticleFormat& PlyFormat() {
  static const ParticleFormat format = {
      .name = "ply",
      .extensions = {".ply"},
      .begins = [](std::string_view h) { return h.starts_with("ply\n") || h.starts_with("ply\r"); },
      .read = ReadPlyPoints,
      .write = WritePlyPoints};
  return format;
}

}  // namespace MELDO_GLOBAL::exchange
