// BIN: particles of a liquid as packed records of fixed fields, little-endian.
#include <fmt/format.h>

#include "exchange/attribute_names.h"
#include "exchange/format_parts.h"

namespace MELDO_GLOBAL::exchange {

namespace {

constexpr u32 kBinMagic = 0x00FABADA;
constexpr std::size_t kBinName = 250, kBinStatistics = 9 * sizeof(f32),
                      kBinEmitter = 9 * sizeof(f32);
constexpr i32 kBinOldest = 2, kBinNewest = 13, kBinShortIds = 11;

/// A field of every particle, and the versions that have it.
struct BinField {
  std::string_view name;
  Stored type;
  int components;
  i32 from = kBinOldest, to = kBinNewest;
};

constexpr BinField kBinFields[] = {
    {"position", Stored::F32, 3},
    {"velocity", Stored::F32, 3},
    {"force", Stored::F32, 3},
    {"vorticity", Stored::F32, 3, 9},
    {"normal", Stored::F32, 3, 3},
    {"neighbours", Stored::I32, 1, 4},
    {"uv", Stored::F32, 3, 5},
    {"info", Stored::I16, 1, 5},
    {"age", Stored::F32, 1},
    {"isolation_time", Stored::F32, 1},
    {"viscosity", Stored::F32, 1},
    {"density", Stored::F32, 1},
    {"pressure", Stored::F32, 1},
    {"mass", Stored::F32, 1},
    {"temperature", Stored::F32, 1},
    {"id", Stored::I32, 1, kBinOldest, kBinShortIds},
    {"id", Stored::U64, 1, kBinShortIds + 1},
};

void ReadBin(ByteSource& source, ParticleTable& table) {
  if (source.Number<u32>() != kBinMagic) Damaged("it is no BIN file of particles");
  source.Skip(kBinName);
  const i32 version = source.Number<i16>();
  if (version < kBinOldest || version > kBinNewest)
    Damaged(fmt::format("it is of version {}; versions {} to {} are read", version, kBinOldest,
                        kBinNewest));
  source.Skip(2 * sizeof(f32));
  table.remarks.emplace_back("time", static_cast<double>(source.Number<f32>()));
  table.remarks.emplace_back("frame", source.Number<i32>());
  table.remarks.emplace_back("fps", static_cast<double>(source.Number<i32>()));
  const i32 count = source.Number<i32>();
  table.remarks.emplace_back("radius", static_cast<double>(source.Number<f32>()));
  constexpr i32 kEmitterFrom = 7;
  source.Skip(kBinStatistics + (version >= kEmitterFrom ? kBinEmitter : 0));
  RecordLayout layout(std::endian::little);
  for (const BinField& field : kBinFields) {
    if (version < field.from || version > field.to) continue;
    table.Add(std::string(field.name), TypeFor(field.type), field.components);
    layout.Append(table, table.Columns().size() - 1, field.type);
  }
  source.Expect(count, layout.Size(), "particles");
  table.SetCount(count);
  // Newer files go on with data that only their own programs know.
  layout.Read(source, table, count);
}

bool FitsShort(const ParticleColumn& ids, i64 count) {
  constexpr double kBeyond = 0x1p31;
  for (i64 row = 0; row < count; ++row)
    if (!(ids.At(row) >= -kBeyond && ids.At(row) < kBeyond)) return false;
  return true;
}

void WriteBin(WriteJob& job) {
  const ParticleTable& table = job.table;
  PositionColumn(table);
  if (table.Count() > std::numeric_limits<i32>::max())
    Damaged("the format holds no more than 2147483647 particles");
  const ParticleColumn* ids = table.Find("id", 1);
  const bool isShort = !ids || ids->Type() != ValueType::I64 || FitsShort(*ids, table.Count());
  const i32 version = isShort ? kBinShortIds : kBinNewest;
  ByteSink& sink = job.sink;
  sink.Number(kBinMagic);
  sink.Field("particles", kBinName);
  sink.Number(static_cast<i16>(version));
  sink.Number(1.0f);
  sink.Number(i32{1});  // a liquid
  sink.Number(RemarkOr<f32>(table, "time", 0));
  sink.Number(RemarkOr<i32>(table, "frame", 0));
  sink.Number(RemarkOr<i32>(table, "fps", 0));
  sink.Number(static_cast<i32>(table.Count()));
  sink.Number(RemarkOr<f32>(table, "radius", 0));
  sink.Field("", kBinStatistics + kBinEmitter - 3 * sizeof(f32));
  for (int a = 0; a < 3; ++a) sink.Number(1.0f);  // the emitter's scale
  RecordLayout layout(std::endian::little);
  std::vector<bool> isKept(table.Columns().size());
  for (const BinField& field : kBinFields) {
    if (version < field.from || version > field.to) continue;
    const int place = PlaceOf(table, field.name, field.components);
    if (place < 0) {
      layout.Reserve(std::string(field.components * SizeOf(field.type), '\0'));
      continue;
    }
    isKept[place] = true;
    AppendColumn(job, layout, static_cast<std::size_t>(place), field.type);
  }
  for (std::size_t i = 0; i < isKept.size(); ++i)
    if (!isKept[i]) job.report.lost.push_back(table.Columns()[i].name);
  layout.Write(sink, table, table.Count());
}

}  // namespace

const ParticleFormat& BinFormat() {
  static const ParticleFormat format = {
      .name = "bin",
      .extensions = {".bin"},
      .gzip = GzipUse::ByName,
      .begins =
          [](std::string_view head) {
            return head.starts_with(std::string_view("\xda\xba\xfa\0", sizeof(u32)));
          },
      .read = ReadBin,
      .write = WriteBin};
  return format;
}

}  // namespace MELDO_GLOBAL::exchange
