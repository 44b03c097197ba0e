// BGEO, the classic binary layout of version 5: points with attributes, big-endian.
#include <fmt/format.h>

#include "exchange/attribute_names.h"
#include "exchange/format_parts.h"
#include "host/memory_budget.h"

namespace MELDO_GLOBAL::exchange {

namespace {

constexpr std::string_view kBgeoMagic = "BgeoV";
constexpr std::string_view kLaterMagic = "\x7fNSJ";
constexpr auto kBgeoOrder = std::endian::big;
constexpr i32 kBgeoVersion = 5, kBgeoComponents = 4096;
enum BgeoType : i32 {
  kBgeoFloat = 0,
  kBgeoInt = 1,
  kBgeoText = 2,
  kBgeoIndex = 4,
  kBgeoVector = 5
};

i32 BgeoWord(ByteSource& source) { return source.Number<i32>(kBgeoOrder); }

struct BgeoAttribute {
  std::string name;
  i32 components = 0;
  i32 type = 0;
  std::vector<std::string> words;
};

BgeoAttribute ReadBgeoAttribute(ByteSource& source) {
  BgeoAttribute a;
  a.name = source.Text(source.Number<u16>(kBgeoOrder));
  a.components = source.Number<u16>(kBgeoOrder);
  a.type = BgeoWord(source);
  if (a.components < 1 || a.components > kBgeoComponents)
    Damaged("it has an attribute of no possible size");
  if (a.type == kBgeoIndex) {
    const i32 count = BgeoWord(source);
    source.Expect(count, sizeof(u16), "texts");
    if (!host::MemoryAllows(static_cast<double>(count) * sizeof(std::string)))
      Damaged(fmt::format("the {} texts of '{}' don't fit into memory", count, PlainName(a.name)));
    for (i32 i = 0; i < count; ++i) a.words.push_back(source.Text(source.Number<u16>(kBgeoOrder)));
  } else if (a.type == kBgeoFloat || a.type == kBgeoInt || a.type == kBgeoVector) {
    source.Skip(4u * static_cast<u64>(a.components));
  } else if (a.type != kBgeoText) {
    Damaged(fmt::format("it has an attribute of the unknown type {}", a.type));
  }
  return a;
}

struct BgeoHeader {
  i32 points, primitives, pointGroups, primitiveGroups;
  i32 pointAttributes, vertexAttributes, primitiveAttributes, detailAttributes;
};

BgeoHeader ReadBgeoHeader(ByteSource& source) {
  if (source.Peek(kLaterMagic.size()) == kLaterMagic)
    Damaged("it is of the later layout of this extension; the classic one, version 5, is read");
  if (source.Text(kBgeoMagic.size()) != kBgeoMagic) Damaged("it is no BGEO file");
  if (const i32 version = BgeoWord(source); version != kBgeoVersion)
    Damaged(fmt::format("it is of version {}; version {} is read", version, kBgeoVersion));
  BgeoHeader h{};
  for (i32* count :
       {&h.points, &h.primitives, &h.pointGroups, &h.primitiveGroups, &h.pointAttributes,
        &h.vertexAttributes, &h.primitiveAttributes, &h.detailAttributes}) {
    *count = BgeoWord(source);
    if (*count < 0) Damaged("it has counts below 0");
  }
  return h;
}

/// What stands behind the points where that are all that there is: attributes of the whole.
/// A text among them ends it, with a warning: how long it is can't be told.
void ReadBgeoEnd(ByteSource& source, const BgeoHeader& header, ParticleTable& table) {
  if (header.primitives > 0 || header.pointGroups > 0 || header.primitiveGroups > 0) return;
  u64 values = 0;
  for (i64 i = 0;
       i < i64{header.vertexAttributes} + header.primitiveAttributes + header.detailAttributes;
       ++i) {
    const BgeoAttribute a = ReadBgeoAttribute(source);
    const bool isDetail = i >= i64{header.vertexAttributes} + header.primitiveAttributes;
    values += isDetail ? static_cast<u64>(a.components) : 0;
    if (a.type != kBgeoText) continue;
    return table.warnings.push_back(fmt::format(
        "what stands behind its points, from the text '{}' on, is left out", PlainName(a.name)));
  }
  source.Skip(4 * values);
  if (source.Number<u8>() != 0x00 || source.Number<u8>() != 0xff) Damaged("its end is damaged");
}

void ReadBgeo(ByteSource& source, ParticleTable& table) {
  const BgeoHeader header = ReadBgeoHeader(source);
  source.Expect(header.pointAttributes, 8, "attributes");
  std::vector<BgeoAttribute> attributes;
  std::size_t size = 4 * sizeof(f32);
  for (i32 i = 0; i < header.pointAttributes; ++i) {
    const BgeoAttribute& a = attributes.emplace_back(ReadBgeoAttribute(source));
    if (a.type == kBgeoText)
      Damaged(
          fmt::format("its attribute '{}' is a text of each point, whose length can't be told; "
                      "lists of texts that points number are read",
                      PlainName(a.name)));
    size += 4u * static_cast<std::size_t>(a.components);
  }
  source.Expect(header.points, size, "points");
  table.SetCount(header.points);
  RecordLayout layout(kBgeoOrder);
  table.Add("position", ValueType::F32, 3);
  layout.Append(table, 0, Stored::F32);
  layout.Reserve(std::string_view("\0\0\0\0", sizeof(f32)));
  for (BgeoAttribute& a : attributes) {
    const bool isReal = a.type == kBgeoFloat || a.type == kBgeoVector;
    ParticleColumn& column =
        AddFromFile(table, a.name, isReal ? ValueType::F32 : ValueType::I32, a.components);
    column.words = std::move(a.words);
    layout.Append(table, table.Columns().size() - 1, isReal ? Stored::F32 : Stored::I32);
  }
  layout.Read(source, table, header.points);
  ReadBgeoEnd(source, header, table);
}

void WriteBgeoText(ByteSink& sink, std::string_view text) {
  text = text.substr(0, 0xffff);
  sink.Number(static_cast<u16>(text.size()), kBgeoOrder);
  sink.Append(text);
}

void WriteBgeoAttribute(ByteSink& sink, const std::string& name, const ParticleColumn& column) {
  WriteBgeoText(sink, name);
  sink.Number(static_cast<u16>(column.components), kBgeoOrder);
  if (!column.words.empty()) {
    sink.Number(i32{kBgeoIndex}, kBgeoOrder);
    sink.Number(static_cast<i32>(column.words.size()), kBgeoOrder);
    for (const std::string& word : column.words) WriteBgeoText(sink, word);
    return;
  }
  // Colours, too, are vectors of numbers that don't turn with the object.
  const bool turns = column.components == 3 && column.name != "color" && column.name != "uv";
  sink.Number(!column.IsReal() ? i32{kBgeoInt}
              : turns          ? i32{kBgeoVector}
                               : i32{kBgeoFloat},
              kBgeoOrder);
  for (int c = 0; c < column.components; ++c) sink.Number(i32{0}, kBgeoOrder);
}

void WriteBgeo(WriteJob& job) {
  const ParticleTable& table = job.table;
  const std::size_t position = PositionColumn(table);
  if (table.Count() > std::numeric_limits<i32>::max())
    Damaged("the format holds no more than 2147483647 points");
  ByteSink& sink = job.sink;
  sink.Append(kBgeoMagic);
  for (const i64 value : {i64{kBgeoVersion}, table.Count(), i64{0}, i64{0}, i64{0},
                          static_cast<i64>(table.Columns().size()) - 1, i64{0}, i64{0}, i64{0}})
    sink.Number(static_cast<i32>(value), kBgeoOrder);
  RecordLayout layout(kBgeoOrder);
  AppendColumn(job, layout, position, Stored::F32);
  layout.Reserve(std::string_view("\x3f\x80\0\0", sizeof(f32)));  // 1, the fourth coordinate
  const std::vector<std::string> names = NamesInFile(table);
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i == position) continue;
    WriteBgeoAttribute(sink, names[i], table.Columns()[i]);
    AppendColumn(job, layout, i, ShortTypeOf(table.Columns()[i]));
  }
  layout.Write(sink, table, table.Count());
  sink.Append(std::string_view("\0\xff", 2));
}

}  // namespace

const ParticleFormat& BgeoFormat() {
  static const ParticleFormat format = {.name = "bgeo",
                                        .extensions = {".bgeo"},
                                        .gzip = GzipUse::ByName,
                                        .begins =
                                            [](std::string_view head) {
                                              return head.starts_with(kBgeoMagic) ||
                                                     head.starts_with(kLaterMagic);
                                            },
                                        .read = ReadBgeo,
                                        .write = WriteBgeo,
                                        .keepsWords = true};
  return format;
}

}  // namespace MELDO_GLOBAL::exchange
