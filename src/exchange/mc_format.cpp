// MC: channels of an object in nested chunks, big-endian.
#include <fmt/format.h>

#include <cmath>

#include "exchange/attribute_names.h"
#include "exchange/format_parts.h"
#include "host/memory_budget.h"

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

/// The channels of a moment, each a table of its own: their counts may differ.
using McChannels = std::vector<ParticleTable>;

void ReadMcValues(ByteSource& source, McChannels& channels, const McValues& values, u32 length,
                  const std::string& name, u32 size) {
  const std::size_t bytes = values.components * SizeOf(values.type);
  if (length != size * static_cast<u64>(bytes))
    Damaged("a channel has another length than it says");
  source.Expect(size, bytes, "values");
  double held = static_cast<double>(length);
  for (const ParticleTable& channel : channels) held += static_cast<double>(channel.Bytes());
  if (!host::MemoryAllows(held)) Damaged("its channels don't fit into memory");
  ParticleTable& channel = channels.emplace_back();
  channel.SetCount(size);
  channel.Add(name, TypeFor(values.type), values.components);
  RecordLayout layout(kMcOrder);
  layout.Append(channel, 0, values.type);
  layout.Read(source, channel, size);
}

McChannels ReadMcSample(ByteSource& source, u64 end) {
  McChannels channels;
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
      ReadMcValues(source, channels, *values, length, name, size);
      source.Skip(Padded(length) - length);
    } else {
      source.Skip(Padded(length));
    }
  }
  SkipTo(source, end);
  return channels;
}

ParticleColumn& ColumnOf(ParticleTable& channel) { return channel.Columns().front(); }

/// The object's name and an underscore, which all channels have in front.
std::size_t PrefixOf(McChannels& channels) {
  if (channels.empty()) return 0;
  std::string common = ColumnOf(channels.front()).name;
  for (ParticleTable& channel : channels) {
    const std::string& name = ColumnOf(channel).name;
    std::size_t same = 0;
    while (same < std::min(common.size(), name.size()) && common[same] == name[same]) ++same;
    common.resize(same);
  }
  const std::size_t end = common.rfind('_');
  return end == std::string::npos ? 0 : end + 1;
}

/// Gives channels the names that they have behind that of the object. A vector that is alone is the
/// place of its points, though the object's name may be all that is told of it.
void SettleNames(McChannels& channels) {
  const std::size_t prefix = PrefixOf(channels);
  for (ParticleTable& channel : channels) {
    ParticleColumn& column = ColumnOf(channel);
    column.name = NameFromFile(column.name.substr(prefix), column.components, kMcNames);
  }
  if (channels.size() == 1 && ColumnOf(channels.front()).components == 3)
    ColumnOf(channels.front()).name = "position";
}

/// Puts the channels into one table, as long as the positions are; others than these are left out.
void JoinChannels(McChannels& channels, ParticleTable& table) {
  SettleNames(channels);
  const auto positions = std::find_if(channels.begin(), channels.end(), [](ParticleTable& channel) {
    return channel.Find("position", 3) != nullptr;
  });
  if (positions == channels.end()) Damaged("its particles have no positions");
  const i64 count = positions->Count();
  for (ParticleTable& channel : channels) {
    ParticleColumn& column = ColumnOf(channel);
    for (std::string& warning : channel.warnings) table.warnings.push_back(std::move(warning));
    if (channel.Count() != count) {
      table.warnings.push_back(
          fmt::format("the channel '{}' has values for {} of {} particles and is left out",
                      PlainName(column.name), channel.Count(), count));
      continue;
    }
    table.Add(column.name, column.Type(), column.components).values = std::move(column.values);
  }
  table.TakeCount(count);
}

bool HoldsParticles(const McChannels& channels) {
  return std::any_of(channels.begin(), channels.end(),
                     [](const ParticleTable& channel) { return channel.Count() > 0; });
}

void ReadMc(ByteSource& source, ParticleTable& table) {
  SkipTo(source, EnterGroup(source, "CACH"));
  i64 samples = 0;
  McChannels channels;
  while (!source.AtEnd()) {
    const u64 end = EnterGroup(source, "MYCH");
    ++samples;
    if (HoldsParticles(channels))
      SkipTo(source, end);
    else
      channels = ReadMcSample(source, end);
  }
  if (samples == 0) Damaged("it holds no moment");
  if (samples > 1)
    table.warnings.push_back(
        fmt::format("it holds {} moments, of which the first with particles is read", samples));
  if (channels.empty()) return void(table.Add("position", ValueType::F32, 3));
  JoinChannels(channels, table);
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
  return static_cast<u32>(
      std::clamp(std::round(RemarkedNumber(table, "time", 0) * kTicksPerSecond), 0.0, 4e9));
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
