// PDC: attributes one behind the other, big-endian.
#include <fmt/format.h>

#include "exchange/attribute_names.h"
#include "exchange/format_parts.h"

namespace MELDO_GLOBAL::exchange {

namespace {

constexpr std::string_view kPdcMagic = "PDC ";
constexpr auto kPdcOrder = std::endian::big;
enum PdcType : i32 {
  kPdcInt = 0,
  kPdcInts = 1,
  kPdcReal = 2,
  kPdcReals = 3,
  kPdcVector = 4,
  kPdcVectors = 5
};

i32 PdcWord(ByteSource& source) { return source.Number<i32>(kPdcOrder); }

/// A value that all particles share.
void ReadPdcShared(ByteSource& source, ParticleTable& table, const std::string& name, i32 type) {
  if (type == kPdcInt) {
    table.remarks.emplace_back(name, PdcWord(source));
    return;
  }
  if (type == kPdcReal) {
    table.remarks.emplace_back(name, source.Number<f64>(kPdcOrder));
    return;
  }
  f64 v[3];
  for (f64& value : v) value = source.Number<f64>(kPdcOrder);
  table.remarks.emplace_back(name, fmt::format("{} {} {}", v[0], v[1], v[2]));
}

void ReadPdcAttribute(ByteSource& source, ParticleTable& table) {
  const i32 length = PdcWord(source);
  source.Expect(length, 1, "letters of a name");
  const std::string name = source.Text(static_cast<std::size_t>(length));
  const i32 type = PdcWord(source);
  switch (type) {
    case kPdcInts: ReadColumn(source, table, name, Stored::I32, 1, kPdcOrder); break;
    case kPdcReals: ReadColumn(source, table, name, Stored::F64, 1, kPdcOrder); break;
    case kPdcVectors: ReadColumn(source, table, name, Stored::F64, 3, kPdcOrder); break;
    case kPdcInt:
    case kPdcReal:
    case kPdcVector: ReadPdcShared(source, table, name, type); break;
    default: Damaged(fmt::format("it has an attribute of the unknown type {}", type));
  }
}

void ReadPdc(ByteSource& source, ParticleTable& table) {
  if (source.Text(kPdcMagic.size()) != kPdcMagic) Damaged("it is no PDC file");
  const i32 version = PdcWord(source), order = PdcWord(source);
  if (version != 1 || order != 1) Damaged("it is of an unknown version or order of bytes");
  source.Skip(2 * sizeof(i32));
  const i32 count = PdcWord(source), attributes = PdcWord(source);
  if (count < 0) Damaged("it has counts below 0");
  source.Expect(attributes, 12, "attributes");
  table.SetCount(count);
  // Some writers leave a name without values at the end: nothing behind the last is read.
  for (i32 i = 0; i < attributes; ++i) ReadPdcAttribute(source, table);
  ExpectPositions(table);
  MakeIdsWhole(table);
}

void WritePdc(WriteJob& job) {
  const ParticleTable& table = job.table;
  PositionColumn(table);
  constexpr NamePair kNames[] = {{"id", "particleId"}, {"radius", "radiusPP"}, {"color", "rgbPP"}};
  const std::vector<std::string> names = NamesInFile(table, kNames);
  std::vector<std::size_t> kept;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const ParticleColumn& column = table.Columns()[i];
    if (column.components == 1 || column.components == 3)
      kept.push_back(i);
    else
      job.report.lost.push_back(column.name);
  }
  ByteSink& sink = job.sink;
  sink.Append(kPdcMagic);
  for (const i64 value :
       {i64{1}, i64{1}, i64{0}, i64{0}, table.Count(), static_cast<i64>(kept.size())})
    sink.Number(static_cast<i32>(value), kPdcOrder);
  for (const std::size_t i : kept) {
    const ParticleColumn& column = table.Columns()[i];
    const bool isInt = column.components == 1 &&
                       (column.Type() == ValueType::U8 || column.Type() == ValueType::I32);
    sink.Number(static_cast<i32>(names[i].size()), kPdcOrder);
    sink.Append(names[i]);
    sink.Number(column.components == 3 ? i32{kPdcVectors}
                : isInt                ? i32{kPdcInts}
                                       : i32{kPdcReals},
                kPdcOrder);
    WriteColumn(job, i, isInt ? Stored::I32 : Stored::F64, kPdcOrder);
  }
}

}  // namespace

const ParticleFormat& PdcFormat() {
  static const ParticleFormat format = {
      .name = "pdc",
      .extensions = {".pdc"},
      .gzip = GzipUse::ByName,
      .begins = [](std::string_view head) { return head.starts_with(kPdcMagic); },
      .read = ReadPdc,
      .write = WritePdc};
  return format;
}

}  // namespace MELDO_GLOBAL::exchange
