// PRT: channels of any type in one packed stream of records.
#include <fmt/format.h>

#include "exchange/attribute_names.h"
#include "exchange/format_parts.h"

namespace MELDO_GLOBAL::exchange {

namespace {

constexpr std::string_view kPrtMagic = "\xc0PRT\r\n\x1a\n";
constexpr std::string_view kPrtSignature = "Extensible Particle Format";
constexpr i32 kPrtHeader = 56, kPrtEntry = 44, kPrtChannels = 4096;
constexpr std::size_t kPrtName = 32, kPrtRecord = 1 << 16;

constexpr NamePair kPrtNames[] = {
    {"position", "Position"},  {"velocity", "Velocity"}, {"id", "ID"},
    {"color", "Color"},        {"density", "Density"},   {"age", "Age"},
    {"life_span", "LifeSpan"}, {"normal", "Normal"},     {"uv", "TextureCoord"},
    {"radius", "Radius"}};

/// By their numbers in files.
constexpr Stored kPrtTypes[] = {Stored::I16, Stored::I32, Stored::I64, Stored::F16,
                                Stored::F32, Stored::F64, Stored::U16, Stored::U32,
                                Stored::U64, Stored::I8,  Stored::U8};

i32 PrtTypeOf(ValueType type) {
  const Stored stored = StoredAs(type);
  return static_cast<i32>(std::find(std::begin(kPrtTypes), std::end(kPrtTypes), stored) -
                          std::begin(kPrtTypes));
}

struct PrtChannel {
  std::string name;
  Stored type;
  i32 arity;
  i32 offset;
};

PrtChannel ReadPrtChannel(ByteSource& source, i32 entrySize) {
  PrtChannel channel;
  channel.name = source.Text(kPrtName);
  channel.name.resize(std::min(channel.name.find('\0'), channel.name.size()));
  const i32 type = source.Number<i32>();
  channel.arity = source.Number<i32>();
  channel.offset = source.Number<i32>();
  source.Skip(static_cast<u64>(entrySize - kPrtEntry));
  if (type < 0 || type >= static_cast<i32>(std::size(kPrtTypes)))
    Damaged(fmt::format("it has a channel of the unknown type {}", type));
  channel.type = kPrtTypes[type];
  if (channel.arity < 1 || channel.offset < 0 ||
      channel.offset + channel.arity * static_cast<i64>(SizeOf(channel.type)) >
          static_cast<i64>(kPrtRecord))
    Damaged("it has a channel of no possible size");
  return channel;
}

i64 ReadPrtHeader(ByteSource& source) {
  if (source.Text(kPrtMagic.size()) != kPrtMagic) Damaged("it is no PRT file");
  const i32 length = source.Number<i32>();
  if (!source.Text(kPrtName).starts_with(kPrtSignature)) Damaged("it is no PRT file of particles");
  const i32 version = source.Number<i32>();
  const i64 count = source.Number<i64>();
  if (version < 0 || version > 2) Damaged(fmt::format("it is of the unknown version {}", version));
  if (count == -1) Damaged("its writer never finished it");
  if (length < kPrtHeader) Damaged("its header has no possible length");
  source.Skip(static_cast<u64>(length - kPrtHeader));
  return count;
}

void ReadPrt(ByteSource& source, ParticleTable& table) {
  const i64 count = ReadPrtHeader(source);
  if (source.Number<i32>() != 4) Damaged("its header is damaged");
  const i32 channels = source.Number<i32>(), entrySize = source.Number<i32>();
  if (channels < 0 || channels > kPrtChannels || entrySize < kPrtEntry)
    Damaged("its list of channels is damaged");
  std::vector<PrtChannel> list;
  std::size_t size = 0, held = 0;
  for (i32 i = 0; i < channels; ++i) {
    const PrtChannel& c = list.emplace_back(ReadPrtChannel(source, entrySize));
    size = std::max(size, c.offset + c.arity * SizeOf(c.type));
    held += c.arity * SizeOf(c.type);
  }
  if (held > size) Damaged("it has channels that overlap");
  ByteSource body = ByteSource::Unpacked(source);
  body.Expect(count, size, "particles");
  table.SetCount(count);
  RecordLayout layout(std::endian::little);
  for (const PrtChannel& c : list) {
    AddFromFile(table, c.name, TypeFor(c.type), c.arity, kPrtNames);
    layout.Add(
        {table.Columns().size() - 1, c.type, static_cast<std::size_t>(c.offset), 0, c.arity});
  }
  ExpectPositions(table);
  layout.Read(body, table, count);
  if (!body.AtEnd()) Damaged("it holds more particles than it says");
}

void WritePrt(WriteJob& job) {
  const ParticleTable& table = job.table;
  PositionColumn(table);
  ByteSink& sink = job.sink;
  sink.Append(kPrtMagic);
  sink.Number(kPrtHeader);
  sink.Field(kPrtSignature, kPrtName);
  sink.Number(i32{1});
  sink.Number(table.Count());
  sink.Number(i32{4});
  sink.Number(static_cast<i32>(table.Columns().size()));
  sink.Number(kPrtEntry);
  const std::vector<std::string> names = NamesInFile(table, kPrtNames, kPrtName - 1);
  RecordLayout layout(std::endian::little);
  for (std::size_t i = 0; i < names.size(); ++i) {
    const ParticleColumn& column = table.Columns()[i];
    sink.Field(names[i], kPrtName);
    sink.Number(PrtTypeOf(column.Type()));
    sink.Number(i32{column.components});
    sink.Number(static_cast<i32>(layout.Size()));
    layout.Append(table, i, StoredAs(column.Type()));
  }
  ByteSink body(sink, Wrapping::Zlib);
  layout.Write(body, table, table.Count());
  body.Finish();
}

}  // namespace

const ParticleFormat& PrtFormat() {
  static const ParticleFormat format = {
      .name = "prt",
      .extensions = {".prt"},
      .begins = [](std::string_view head) { return head.starts_with(kPrtMagic); },
      .read = ReadPrt,
      .write = WritePrt};
  return format;
}

}  // namespace MELDO_GLOBAL::exchange
