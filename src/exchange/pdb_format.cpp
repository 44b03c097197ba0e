// PDB: the memory of a program as it stood, channel by channel, with pointers of 32 or 64 bits.
#include <fmt/format.h>

#include "exchange/attribute_names.h"
#include "exchange/format_parts.h"
#include "host/file_error.h"

namespace MELDO_GLOBAL::exchange {

namespace {

constexpr i32 kPdbMagic = 670;
constexpr std::size_t kPdbFacts = 24, kPdbRest = 32, kPdbName = 256;
enum PdbType : i32 { kPdbVector = 1, kPdbReal = 2, kPdbLong = 3 };

/// Where things stand, by the width of pointers.
struct PdbShape {
  std::size_t header, channel, typeInChannel, data;
};
constexpr std::size_t kPdbHead = 6;  ///< of a channel
constexpr PdbShape kPdb32 = {60, 36, 4, 20}, kPdb64 = {64, 56, 8, 24},
                   kPdb64Padded = {72, 56, 8, 24};

struct PdbHeader {
  std::endian order = std::endian::little;
  i64 particles = 0;
  i64 channels = 0;
};

PdbHeader ReadPdbHeader(ByteSource& source, const PdbShape& shape) {
  PdbHeader header;
  const i32 magic = source.Number<i32>();
  if (magic != kPdbMagic) {
    if (magic != static_cast<i32>(__builtin_bswap32(kPdbMagic))) Damaged("it is no PDB file");
    header.order = std::endian::big;
  }
  source.Skip(12);
  header.particles = source.Number<u32>(header.order);
  header.channels = source.Number<u32>(header.order);
  source.Skip(shape.header - kPdbFacts);
  source.Expect(header.channels, kPdbHead + shape.channel + shape.data, "channels");
  return header;
}

struct PdbChannel {
  std::string name;
  i32 type = 0;
  u32 bytes = 0;  ///< of a particle
};

PdbChannel ReadPdbChannel(ByteSource& source, const PdbShape& shape, std::endian order) {
  PdbChannel channel;
  source.Skip(kPdbHead + shape.channel);
  for (int c = source.Get(); c != 0; c = source.Get()) {
    if (c < 0 || channel.name.size() == kPdbName) Damaged("the name of a channel has no end");
    channel.name += static_cast<char>(c);
  }
  channel.type = source.Number<i32>(order);
  channel.bytes = source.Number<u32>(order);
  source.Skip(shape.data - 2 * sizeof(u32));
  return channel;
}

/// Whether a file of that shape ends where this one does.
bool HasPdbShape(ByteSource& source, const PdbShape& shape) {
  source.Rewind();
  try {
    const PdbHeader header = ReadPdbHeader(source, shape);
    for (i64 i = 0; i < header.channels; ++i) {
      const PdbChannel channel = ReadPdbChannel(source, shape, header.order);
      source.Expect(header.particles, channel.bytes, "values");
      source.Skip(static_cast<u64>(header.particles) * channel.bytes);
    }
    return source.AtEnd();
  } catch (const host::FileError&) {
    return false;
  }
}

void ReadPdbValues(ByteSource& source, ParticleTable& table, const PdbChannel& channel,
                   std::endian order) {
  const bool isReal = channel.type == kPdbVector || channel.type == kPdbReal;
  const u32 components = channel.bytes / sizeof(f32);
  if ((!isReal && channel.type != kPdbLong) || components < 1 || channel.bytes % sizeof(f32) != 0 ||
      components > kPdbName) {
    table.warnings.push_back(
        fmt::format("the channel '{}' has a type that is left out", PlainName(channel.name)));
    source.Skip(static_cast<u64>(table.Count()) * channel.bytes);
    return;
  }
  ReadColumn(source, table, channel.name, isReal ? Stored::F32 : Stored::I32,
             static_cast<int>(components), order);
}

void ReadPdb(ByteSource& source, ParticleTable& table) {
  const PdbShape* shape = nullptr;
  for (const PdbShape* each : {&kPdb32, &kPdb64, &kPdb64Padded})
    if (!shape && HasPdbShape(source, *each)) shape = each;
  source.Rewind();
  if (!shape) {
    ReadPdbHeader(source, kPdb32);
    Damaged("its channels don't end where the file does: it is cut or damaged");
  }
  const PdbHeader header = ReadPdbHeader(source, *shape);
  table.SetCount(header.particles);
  for (i64 i = 0; i < header.channels; ++i) {
    const PdbChannel channel = ReadPdbChannel(source, *shape, header.order);
    ReadPdbValues(source, table, channel, header.order);
  }
  ExpectPositions(table);
}

void WritePdbAs(WriteJob& job, const PdbShape& shape) {
  const ParticleTable& table = job.table;
  PositionColumn(table);
  ByteSink& sink = job.sink;
  sink.Number(kPdbMagic);
  sink.Number(u16{1});
  sink.Number(u16{0});
  sink.Number(1.0f);
  sink.Number(0.0f);
  sink.Number(static_cast<u32>(table.Count()));
  sink.Number(static_cast<u32>(table.Columns().size()));
  sink.Field("", shape.header - kPdbFacts);
  constexpr NamePair kNames[] = {{"radius", "radiusPP"}, {"color", "rgbPP"}};
  const std::vector<std::string> names = NamesInFile(table, kNames, kPdbName - 1);
  for (std::size_t i = 0; i < names.size(); ++i) {
    const ParticleColumn& column = table.Columns()[i];
    const i32 type = !column.IsReal()         ? i32{kPdbLong}
                     : column.components == 3 ? i32{kPdbVector}
                                              : i32{kPdbReal};
    const u32 bytes = static_cast<u32>(column.components * sizeof(f32));
    sink.Append(std::string_view("c\0\1\0\0\0", kPdbHead));
    sink.Field("", shape.typeInChannel);
    sink.Number(type);
    sink.Number(bytes);
    sink.Field("", shape.channel - shape.typeInChannel - 2 * sizeof(u32));
    sink.Append(names[i]);
    sink.Append(std::string_view("\0", 1));
    sink.Number(type);
    sink.Number(bytes);
    sink.Number(static_cast<u32>(table.Count() * bytes));
    sink.Number(i32{1});
    sink.Field("", shape.data - 4 * sizeof(u32));
    WriteColumn(job, i, ShortTypeOf(column), std::endian::little);
  }
}

void WritePdb32(WriteJob& job) { WritePdbAs(job, kPdb32); }
void WritePdb64(WriteJob& job) { WritePdbAs(job, kPdb64); }

bool BeginsAsPdb(std::string_view head) {
  return head.starts_with(std::string_view("\x9e\x02\0\0", 4)) ||
         head.starts_with(std::string_view("\0\0\x02\x9e", 4));
}

}  // namespace

const ParticleFormat& PdbFormat() {
  static const ParticleFormat format = {.name = "pdb",
                                        .extensions = {".pdb"},
                                        .gzip = GzipUse::ByName,
                                        .begins = BeginsAsPdb,
                                        .read = ReadPdb,
                                        .write = WritePdb32};
  return format;
}

// Which of both layouts a file has its length tells, so that every one is read as any.
const ParticleFormat& Pdb32Format() {
  static const ParticleFormat format = {.name = "pdb32",
                                        .extensions = {".pdb32"},
                                        .gzip = GzipUse::ByName,
                                        .begins = BeginsAsPdb,
                                        .read = ReadPdb,
                                        .write = WritePdb32};
  return format;
}

const ParticleFormat& Pdb64Format() {
  static const ParticleFormat format = {.name = "pdb64",
                                        .extensions = {".pdb64"},
                                        .gzip = GzipUse::ByName,
                                        .begins = BeginsAsPdb,
                                        .read = ReadPdb,
                                        .write = WritePdb64};
  return format;
}

}  // namespace MELDO_GLOBAL::exchange
