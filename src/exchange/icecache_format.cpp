// ICECACHE: attributes of a point cloud, packed, in blocks of elements.
#include <fmt/format.h>

#include "exchange/attribute_names.h"
#include "exchange/format_parts.h"

namespace MELDO_GLOBAL::exchange {

namespace {

constexpr std::string_view kIceMagic = "ICECACHE";
constexpr u32 kIceOldest = 100, kIceNewest = 103, kIceBlobsFrom = 102, kIceStepsFrom = 103;
constexpr i64 kIceBlock = 4000;
constexpr u32 kIceSingle = 1, kIceOfAll = 1, kIcePerPoint = 2, kIceAttributes = 4096;
constexpr std::string_view kIcePosition = "PointPosition";
enum IceType : u32 {
  kIceBool = 1,
  kIceLong = 2,
  kIceFloat = 4,
  kIceVector3 = 16,
  kIceColor = 512,
  kIceLocation = 2048
};

constexpr NamePair kIceNames[] = {{"position", "PointPosition"},
                                  {"velocity", "PointVelocity"},
                                  {"radius", "Size"},
                                  {"id", "ID"},
                                  {"color", "Color"},
                                  {"mass", "Mass"},
                                  {"orientation", "Orientation"}};

/// Numbers of 4 bytes that a value of a type has; 0 for what isn't made of numbers.
int IceComponents(u32 type) {
  constexpr std::pair<u32, int> sizes[] = {
      {kIceBool, 1}, {kIceLong, 1}, {kIceFloat, 1}, {8, 2},         {kIceVector3, 3}, {32, 4},
      {64, 4},       {128, 9},      {256, 16},      {kIceColor, 4}, {16384, 4}};
  for (const auto& [known, size] : sizes)
    if (known == type) return size;
  return 0;
}

struct IceAttribute {
  std::string name;
  u32 type = 0, structure = 0, context = 0;
};

IceAttribute ReadIceAttribute(ByteSource& source) {
  IceAttribute a;
  const u32 length = source.Number<u32>();
  source.Expect(length, 1, "letters of a name");
  a.name = source.Text(length);
  source.Skip((4 - length % 4) % 4);
  a.type = source.Number<u32>();
  a.structure = source.Number<u32>();
  a.context = source.Number<u32>();
  source.Skip(2 * sizeof(u32));
  if (a.type == kIceLocation) source.Skip(source.Number<u32>());
  return a;
}

i64 ReadIceHeader(ByteSource& source, std::vector<IceAttribute>& attributes) {
  if (source.Text(kIceMagic.size()) != kIceMagic) Damaged("it is no ICECACHE file");
  const u32 version = source.Number<u32>();
  if (version < kIceOldest || version > kIceNewest)
    Damaged(fmt::format("it is of the unknown version {}", version));
  source.Skip(sizeof(u32));
  const u32 points = source.Number<u32>();
  source.Skip(3 * sizeof(u32));
  if (version >= kIceStepsFrom) source.Skip(sizeof(u32));
  if (version >= kIceBlobsFrom && source.Number<u32>() > 0)
    Damaged("it carries data of a user, which aren't read");
  const u32 count = source.Number<u32>();
  if (count > kIceAttributes) Damaged("its list of attributes is damaged");
  for (u32 i = 0; i < count; ++i) attributes.push_back(ReadIceAttribute(source));
  return points;
}

void CopyFirstRow(ParticleColumn& column, i64 first, i64 rows) {
  std::visit(
      [&](auto& list) {
        const std::size_t width = static_cast<std::size_t>(column.components);
        for (i64 row = first + 1; row < first + rows; ++row)
          std::copy_n(list.begin() + first * width, width, list.begin() + row * width);
      },
      column.values);
}

/// Blocks of values of the columns from `from` on, each of which may be one value for all.
void ReadIceBlocks(ByteSource& source, ParticleTable& table, const RecordLayout& layout,
                   std::size_t from) {
  for (i64 first = 0; first < table.Count(); first += kIceBlock) {
    const i64 rows = std::min(kIceBlock, table.Count() - first);
    const u32 isConstant = source.Number<u32>();
    if (isConstant > 1) Damaged("a block of its values is damaged");
    layout.Read(source, table, isConstant ? 1 : rows, first);
    for (std::size_t i = from; isConstant && i < table.Columns().size(); ++i)
      CopyFirstRow(table.Columns()[i], first, rows);
  }
}

/// Passes over a value that all points share.
void LeaveOutIceValue(ByteSource& source, ParticleTable& table, const IceAttribute& a) {
  source.Skip(sizeof(u32) * (1 + static_cast<u64>(IceComponents(a.type))));
  table.warnings.push_back(
      fmt::format("its attribute '{}', one for all points, is left out", PlainName(a.name)));
}

bool IsOpaque(const ParticleColumn& opacity) {
  const auto& values = std::get<std::vector<f32>>(opacity.values);
  return std::all_of(values.begin(), values.end(), [](f32 value) { return value == 1; });
}

/// Answers false, with a warning, where what stands behind an attribute can't be found.
bool ReadIceValues(ByteSource& source, ParticleTable& table, const IceAttribute& a) {
  const int components = IceComponents(a.type);
  if (components > 0 && a.structure == kIceSingle && a.context == kIceOfAll) {
    LeaveOutIceValue(source, table, a);
    return true;
  }
  if (components == 0 || a.structure != kIceSingle || a.context != kIcePerPoint) {
    const std::string what = fmt::format(
        "its attribute '{}' isn't a number or vector of each point, and what stands "
        "behind it can't be found",
        PlainName(a.name));
    if (!table.Find("position", 3)) Damaged(what);
    table.warnings.push_back(what);
    return false;
  }
  const bool isWhole = a.type == kIceBool || a.type == kIceLong;
  const Stored type = isWhole ? Stored::I32 : Stored::F32;
  const i64 blocks = (table.Count() + kIceBlock - 1) / kIceBlock;
  source.Expect(blocks, 2 * sizeof(u32), "blocks of values");
  // A colour has a fourth number, how opaque it is.
  const bool isColor = a.type == kIceColor;
  const std::size_t own = table.Columns().size();
  AddFromFile(table, a.name, TypeFor(type), isColor ? 3 : components, kIceNames);
  if (isColor) table.Add(table.Columns().back().name + "_opacity", TypeFor(type), 1);
  RecordLayout layout(std::endian::little);
  for (std::size_t i = own; i < table.Columns().size(); ++i) layout.Append(table, i, type);
  if (a.name == kIcePosition)
    layout.Read(source, table, table.Count());
  else
    ReadIceBlocks(source, table, layout, own);
  if (isColor && IsOpaque(table.Columns().back())) table.Columns().pop_back();
  return true;
}

void ReadIcecache(ByteSource& source, ParticleTable& table) {
  std::vector<IceAttribute> attributes;
  const i64 points = ReadIceHeader(source, attributes);
  // Of each point at least its place is stored in full.
  source.Expect(points, 3 * sizeof(f32), "points");
  table.SetCount(points);
  for (const IceAttribute& attribute : attributes)
    if (!ReadIceValues(source, table, attribute)) return;
  ExpectPositions(table);
  if (!source.AtEnd()) Damaged("it goes on behind its last value");
}

u32 IceTypeOf(const ParticleColumn& column) {
  if (column.components == 1) return column.IsReal() ? u32{kIceFloat} : u32{kIceLong};
  if (column.name == "color" && column.components == 3) return kIceColor;
  switch (column.components) {
    case 2: return 8;
    case 3: return kIceVector3;
    case 4: return 32;
    case 9: return 128;
    case 16: return 256;
    default: return 0;
  }
}

void WriteIceAttribute(ByteSink& sink, const std::string& name, u32 type, bool isKnown) {
  sink.Number(static_cast<u32>(name.size()));
  sink.Append(name + std::string((4 - name.size() % 4) % 4, '_'));
  sink.Number(type);
  sink.Number(kIceSingle);
  sink.Number(kIcePerPoint);
  sink.Number(u32{0});
  sink.Number(isKnown ? u32{1} : u32{2});
}

void WriteIcecache(WriteJob& job) {
  const ParticleTable& table = job.table;
  PositionColumn(table);
  const std::vector<std::string> names = NamesInFile(table, kIceNames);
  std::vector<std::size_t> kept;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const ParticleColumn& column = table.Columns()[i];
    // Readers take whole numbers one by one.
    if (IceTypeOf(column) == 0 || (!column.IsReal() && column.components > 1))
      job.report.lost.push_back(column.name);
    else
      kept.push_back(i);
  }
  ByteSink& sink = job.sink;
  sink.Append(kIceMagic);
  for (const i64 value : {i64{kIceNewest}, i64{0}, table.Count(), i64{0}, i64{0}, i64{0}, i64{1},
                          i64{0}, static_cast<i64>(kept.size())})
    sink.Number(static_cast<u32>(value));
  for (const std::size_t i : kept)
    WriteIceAttribute(sink, names[i], IceTypeOf(table.Columns()[i]), names[i] == kIcePosition);
  for (const std::size_t i : kept) {
    RecordLayout layout(std::endian::little);
    AppendColumn(job, layout, i, ShortTypeOf(table.Columns()[i]));
    constexpr f32 kOpaque = 1;
    if (IceTypeOf(table.Columns()[i]) == kIceColor)
      layout.Reserve({reinterpret_cast<const char*>(&kOpaque), sizeof kOpaque});
    const bool isPosition = names[i] == kIcePosition;
    const i64 block = isPosition ? std::max<i64>(table.Count(), 1) : kIceBlock;
    for (i64 first = 0; first < table.Count(); first += block) {
      if (!isPosition) sink.Number(u32{0});
      layout.Write(sink, table, std::min(block, table.Count() - first), first);
    }
  }
}

}  // namespace

const ParticleFormat& IcecacheFormat() {
  static const ParticleFormat format = {
      .name = "icecache",
      .extensions = {".icecache"},
      .gzip = GzipUse::Always,
      .begins = [](std::string_view head) { return head.starts_with(kIceMagic); },
      .read = ReadIcecache,
      .write = WriteIcecache};
  return format;
}

}  // namespace MELDO_GLOBAL::exchange
