// MC: channels of an object in nested chunks, big-endian.
#include <fmt/format.h>

#include <cmath>

#include "exchange/attribute_names.h"
#include "exchange/format_parts.h"

namespace MELDO_GLOBAL::exchange {

namespace {

constexpr auto kMcOrder = std::endian::big;
constexpr std::size_t kTag = 4;
constexpr std::string_view kGroupTag = "FOR4";
constexpr std::string_view kMcObject = "particles";
constexpr double kTicksPerSecond = 6000;

constexpr NamePair kMcNames[] = {{"radius", "radiusPP"}, {"color", "rgbPP"}};

u32 McWord(ByteSource& source) { return source.Number<u32>(kMcOrder); }
u64 Padded(u64 size) { return (size + 3) / 4 * 4; }

/// How values of a channel stand, by their tag.
struct McValues {
  std::string_view tag;
  Stored type;
  int components;
};
constexpr McValues kMcValues[] = {{"DBLA", Stored::F64, 1},
                                  {"FVCA", Stored::F32, 3},
                                  {"DVCA", Stored::F64, 3},
                                  {"FBCA", Stored::F32, 1}};

/// Where a group ends, as bytes from the start of the file.
u64 EnterGroup(ByteSource& source, std::string_view kind) {
  if (source.Text(kTag) != kGroupTag) Damaged("it is no MC file of nested chunks");
  const u32 length = McWord(source);
  source.Expect(length, 1, "bytes of a group");
  const u64 end = source.Position() + length;
  if (length < kTag || source.Text(kTag) != kind)
    Damaged(fmt::format("it has no group {} where one is expected", kind));
  return end;
}

void SkipTo(ByteSource& source, u64 end) {
  if (source.Position() > end) Damaged("its chunks are longer than their group");
  source.Skip(end - source.Position());
}

std::string McName(ByteSource& source, u32 length) {
  source.Expect(length, 1, "letters of a name");
  std::string name = source.Text(length);
  source.Skip(Padded(length) - length);
  name.resize(std::min(name.find('\0'), name.size()));
  return name;
}

/// Reads the values of a channel; a count of its own leaves them out.
void ReadMcValues(ByteSource& source, ParticleTable& table, const McValues& values, u32 length,
                  const std::string& name, u32 size) {
  const std::size_t bytes = values.components * SizeOf(values.type);
  if (length != size * static_cast<u64>(bytes))
    Damaged("a channel has another length than it says");
  source.Expect(size, bytes, "values");
  if (table.Columns().empty()) table.SetCount(size);
  if (table.Count() != size) {
    table.warnings.push_back(
        fmt::format("the channel '{}' has values for {} of {} particles and is left out",
                    PlainName(name), size, table.Count()));
    return source.Skip(length);
  }
  // The names are settled when all are known.
  table.Add(name, TypeFor(values.type), values.components);
  RecordLayout layout(kMcOrder);
  layout.Append(table, table.Columns().size() - 1, values.type);
  layout.Read(source, table, size);
}

void ReadMcSample(ByteSource& source, ParticleTable& table, u64 end) {
  std::string name;
  u32 size = 0;
  while (source.Position() < end) {
    const std::string tag = source.Text(kTag);
    const u32 length = McWord(source);
    source.Expect(length, 1, "bytes of a chunk");
    const auto values = std::find_if(std::begin(kMcValues), std::end(kMcValues),
                                     [&](const McValues& v) { return v.tag == tag; });
    if (tag == "CHNM") {
      name = McName(source, length);
    } else if (tag == "SIZE" && length == sizeof(u32)) {
      size = McWord(source);
    } else if (values != std::end(kMcValues)) {
      ReadMcValues(source, table, *values, length, name, size);
      source.Skip(Padded(length) - length);
    } else {
      source.Skip(Padded(length));
    }
  }
  SkipTo(source, end);
}

/// The object's name and an underscore, which all channels have in front.
std::size_t PrefixOf(const std::vector<ParticleColumn>& columns) {
  if (columns.empty()) return 0;
  std::string common = columns.front().name;
  for (const ParticleColumn& column : columns) {
    std::size_t same = 0;
    while (same < std::min(common.size(), column.name.size()) && common[same] == column.name[same])
      ++same;
    common.resize(same);
  }
  const std::size_t end = common.rfind('_');
  return end == std::string::npos ? 0 : end + 1;
}

void SettleNames(ParticleTable& table) {
  const std::size_t prefix = PrefixOf(table.Columns());
  std::vector<ParticleColumn> columns = std::move(table.Columns());
  table.Columns().clear();
  const i64 count = table.Count();
  table.TakeCount(0);
  for (ParticleColumn& column : columns) {
    ParticleColumn& settled =
        AddFromFile(table, column.name.substr(prefix), column.Type(), column.components, kMcNames);
    settled.values = std::move(column.values);
  }
  table.TakeCount(count);
}

void ReadMc(ByteSource& source, ParticleTable& table) {
  SkipTo(source, EnterGroup(source, "CACH"));
  i64 samples = 0;
  while (!source.AtEnd()) {
    const u64 end = EnterGroup(source, "MYCH");
    ++samples;
    if (table.Count() > 0) {
      SkipTo(source, end);
      continue;
    }
    table.Columns().clear();
    ReadMcSample(source, table, end);
  }
  if (samples == 0) Damaged("it holds no moment");
  if (samples > 1)
    table.warnings.push_back(
        fmt::format("it holds {} moments, of which the first with particles is read", samples));
  SettleNames(table);
  if (table.Columns().empty()) table.Add("position", ValueType::F32, 3);
  ExpectPositions(table);
  MakeIdsWhole(table);
}

void PutChunk(std::string& to, std::string_view tag, std::string_view body) {
  ByteSink sink(to);
  sink.Append(tag);
  sink.Number(static_cast<u32>(body.size()), kMcOrder);
  sink.Field(body, Padded(body.size()));
  sink.Finish();
}

std::string McBytes(u32 value) {
  std::string bytes;
  ByteSink sink(bytes);
  sink.Number(value, kMcOrder);
  sink.Finish();
  return bytes;
}

const McValues& McValuesFor(const ParticleColumn& column) {
  const bool isLong = !column.IsReal() || column.Type() == ValueType::F64;
  return column.components == 3 ? kMcValues[isLong ? 2 : 1] : kMcValues[isLong ? 0 : 3];
}

u32 TicksOf(const ParticleTable& table) {
  for (const auto& [key, value] : table.remarks)
    if (key == "time" && std::holds_alternative<double>(value))
      return static_cast<u32>(
          std::clamp(std::round(std::get<double>(value) * kTicksPerSecond), 0.0, 4e9));
  return 0;
}

void WriteMc(WriteJob& job) {
  const ParticleTable& table = job.table;
  PositionColumn(table);
  const std::vector<std::string> names = NamesInFile(table, kMcNames);
  std::vector<std::size_t> kept;
  std::vector<std::string> heads;
  u64 length = kTag;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const ParticleColumn& column = table.Columns()[i];
    if (column.components != 1 && column.components != 3) {
      job.report.lost.push_back(column.name);
      continue;
    }
    const McValues& values = McValuesFor(column);
    const u64 bytes = static_cast<u64>(table.Count()) * values.components * SizeOf(values.type);
    std::string& head = heads.emplace_back();
    PutChunk(head, "CHNM", fmt::format("{}_{}", kMcObject, names[i]) + '\0');
    PutChunk(head, "SIZE", McBytes(static_cast<u32>(table.Count())));
    head += std::string(values.tag) + McBytes(static_cast<u32>(bytes));
    length += head.size() + Padded(bytes);
    kept.push_back(i);
  }
  if (length > std::numeric_limits<u32>::max())
    Damaged("the format holds no more than 4 GB in a file");
  std::string start = "CACH";
  PutChunk(start, "VRSN", std::string_view("0.1\0", 4));
  for (const char* tag : {"STIM", "ETIM"}) PutChunk(start, tag, McBytes(TicksOf(table)));
  std::string top;
  PutChunk(top, kGroupTag, start);
  job.sink.Append(top);
  job.sink.Append(kGroupTag);
  job.sink.Number(static_cast<u32>(length), kMcOrder);
  job.sink.Append("MYCH");
  for (std::size_t i = 0; i < kept.size(); ++i) {
    job.sink.Append(heads[i]);
    WriteColumn(job, kept[i], McValuesFor(table.Columns()[kept[i]]).type, kMcOrder);
  }
}

}  // namespace

const ParticleFormat& McFormat() {
  static const ParticleFormat format = {
      .name = "mc",
      .extensions = {".mc"},
      .begins = [](std::string_view head) { return head.starts_with(kGroupTag); },
      .read = ReadMc,
      .write = WriteMc};
  return format;
}

}  // namespace MELDO_GLOBAL::exchange
