// PTC, point clouds of renderers: position, normal, radius and named numbers.
#include <fmt/format.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "exchange/attribute_names.h"
#include "exchange/format_parts.h"
#include "exchange/text_source.h"

namespace MELDO_GLOBAL::exchange {

namespace {

constexpr std::string_view kPtcMagic = "pptc";
constexpr std::string_view kOtherMagic = "\x33\x6d\x63\x66";
constexpr i32 kNoNormal = 65535;
constexpr i32 kPtcVariables = 4096, kPtcNumbers = 1 << 16;
constexpr std::size_t kPtcMatrices = 2 * 16 * sizeof(f32), kPtcImage = 3 * sizeof(f32);

struct PtcVariable {
  std::string name;
  int components = 0;
};

int PtcComponents(std::string_view type) {
  if (type == "float") return 1;
  if (type == "matrix") return 16;
  for (const std::string_view vector : {"point", "vector", "normal", "color"})
    if (type == vector) return 3;
  Damaged("it has a variable of an unknown type");
}

/// The direction that two numbers of 16 bits stand for.
void DecodeNormal(i32 phi, i32 height, f32* normal) {
  if (phi == kNoNormal && height == kNoNormal) {
    std::fill_n(normal, 3, 0.0f);
    return;
  }
  const double z = 2.0 * height / kNoNormal - 1;
  const double angle = 2 * std::numbers::pi * (static_cast<double>(phi) / kNoNormal - 0.5);
  const double across = std::sqrt(std::max(0.0, 1 - z * z));
  normal[0] = static_cast<f32>(across * std::sin(angle));
  normal[1] = static_cast<f32>(across * std::cos(angle));
  normal[2] = static_cast<f32>(z);
}

void EncodeNormal(const ParticleColumn& normals, i64 row, i32& phi, i32& height) {
  const double x = normals.At(row, 0), y = normals.At(row, 1), z = normals.At(row, 2);
  const double length = std::sqrt(x * x + y * y + z * z);
  phi = height = kNoNormal;
  if (!(length > 0) || !std::isfinite(length)) return;
  const double turn = std::atan2(x, y) / (2 * std::numbers::pi) + 0.5;
  // Where both are at their upper ends there is no normal.
  phi = std::min(static_cast<i32>(std::lround(turn * kNoNormal)), kNoNormal - 1);
  height = static_cast<i32>(std::lround((z / length + 1) / 2 * kNoNormal));
}

std::vector<PtcVariable> ReadPtcVariables(ByteSource& source, i32 count, i32 numbers) {
  std::vector<PtcVariable> variables;
  TextSource text(source);
  std::string line;
  i64 sum = 0;
  for (i32 i = 0; i < count; ++i) {
    text.Line(line);
    const std::size_t blank = line.find(' ');
    if (blank == std::string::npos) Damaged("its list of variables is damaged");
    PtcVariable& variable = variables.emplace_back();
    variable.components = PtcComponents(std::string_view(line).substr(0, blank));
    variable.name = line.substr(blank + 1);
    sum += variable.components;
  }
  if (sum != numbers) Damaged("its variables need another number of values than it says");
  return variables;
}

/// Takes the header up to the list of variables; answers the number of points.
i64 ReadPtcHeader(ByteSource& source, i32& version) {
  if (source.Peek(kPtcMagic.size()) == kOtherMagic)
    Damaged("it is the point cloud of another renderer, which has the same extension");
  if (source.Text(kPtcMagic.size()) != kPtcMagic) Damaged("it is no PTC file");
  version = source.Number<i32>();
  if (version < 0 || version > 2) Damaged(fmt::format("it is of the unknown version {}", version));
  const f64 count = source.Number<f64>();
  if (!(count >= 0 && count < 0x1p40) || count != std::floor(count))
    Damaged("it has no possible number of points");
  source.Skip(6 * sizeof(f32));
  if (version >= 1) source.Skip(4 * sizeof(f32));
  if (version >= 2) source.Skip(33 * sizeof(f32));
  source.Skip(kPtcMatrices + kPtcImage);
  return static_cast<i64>(count);
}

/// The two columns of codes stand at the end of the table.
void DecodeNormals(ParticleTable& table) {
  auto& columns = table.Columns();
  const auto phi = std::get<std::vector<i32>>(std::move(columns[columns.size() - 2].values));
  const auto height = std::get<std::vector<i32>>(std::move(columns.back().values));
  columns.resize(columns.size() - 2);
  const auto isNone = [](i32 code) { return code == kNoNormal; };
  if (std::all_of(phi.begin(), phi.end(), isNone) &&
      std::all_of(height.begin(), height.end(), isNone))
    return;
  auto& normals = std::get<std::vector<f32>>(table.Add("normal", ValueType::F32, 3).values);
  for (std::size_t i = 0; i < phi.size(); ++i) DecodeNormal(phi[i], height[i], &normals[3 * i]);
}

void ReadPtc(ByteSource& source, ParticleTable& table) {
  i32 version = 0;
  const i64 count = ReadPtcHeader(source, version);
  const i32 variableCount = source.Number<i32>(), numbers = source.Number<i32>();
  if (variableCount < 0 || variableCount > kPtcVariables || numbers < 0 || numbers > kPtcNumbers)
    Damaged("its list of variables is damaged");
  const std::vector<PtcVariable> variables = ReadPtcVariables(source, variableCount, numbers);
  if (version >= 1) source.Skip(2 * sizeof(f32));
  constexpr std::size_t kFixed = 4 * sizeof(f32) + 2 * sizeof(u16);
  source.Expect(count, kFixed + static_cast<std::size_t>(numbers) * sizeof(f32), "points");
  table.SetCount(count);
  table.Add("position", ValueType::F32, 3);
  table.Add("radius", ValueType::F32, 1);
  RecordLayout layout(std::endian::little);
  layout.Append(table, 0, Stored::F32);
  const std::size_t codes = layout.Size();
  layout.Reserve(std::string(2 * sizeof(u16), '\0'));
  layout.Append(table, 1, Stored::F32);
  for (const PtcVariable& variable : variables) {
    AddFromFile(table, variable.name, ValueType::F32, variable.components);
    layout.Append(table, table.Columns().size() - 1, Stored::F32);
  }
  for (std::size_t i = 0; i < 2; ++i) {
    table.Add("normal_code", ValueType::I32, 1);
    layout.Add({table.Columns().size() - 1, Stored::U16, codes + i * sizeof(u16), 0, 1});
  }
  layout.Read(source, table, count);
  if (!source.AtEnd()) Damaged("it goes on behind its last point");
  DecodeNormals(table);
  MakeIdsWhole(table);
}

const char* PtcTypeOf(const ParticleColumn& column) {
  if (column.components == 1) return "float";
  if (column.components == 16) return "matrix";
  return column.name == "color" ? "color" : "vector";
}

void WritePtcHeader(ByteSink& sink, const ParticleTable& table, const ParticleColumn& position) {
  constexpr f32 kNone = 0;
  sink.Append(kPtcMagic);
  sink.Number(i32{0});
  sink.Number(static_cast<f64>(table.Count()));
  f64 low[3] = {}, high[3] = {};
  for (i64 row = 0; row < table.Count(); ++row)
    for (int a = 0; a < 3; ++a) {
      const f64 p = position.At(row, a);
      low[a] = row == 0 ? p : std::min(low[a], p);
      high[a] = row == 0 ? p : std::max(high[a], p);
    }
  for (const f64* corner : {low, high})
    for (int a = 0; a < 3; ++a) sink.Number(static_cast<f32>(corner[a]));
  for (int matrix = 0; matrix < 2; ++matrix)
    for (int i = 0; i < 16; ++i) sink.Number(i % 5 == 0 ? 1.0f : kNone);
  for (const f32 size : {640.0f, 480.0f, 1.0f}) sink.Number(size);
}

/// Point by point: a code of the normal stands in the middle of each.
void WritePtcPoints(WriteJob& job, std::size_t position, int radius, const ParticleColumn* normals,
                    const std::vector<std::size_t>& kept) {
  const ParticleTable& table = job.table;
  for (i64 row = 0; row < table.Count(); ++row) {
    const auto put = [&](std::size_t column) {
      for (int c = 0; c < table.Columns()[column].components; ++c)
        job.sink.Number(static_cast<f32>(table.Columns()[column].At(row, c)));
    };
    put(position);
    i32 phi = kNoNormal, height = kNoNormal;
    if (normals) EncodeNormal(*normals, row, phi, height);
    job.sink.Number(static_cast<u16>(phi));
    job.sink.Number(static_cast<u16>(height));
    if (radius >= 0)
      put(static_cast<std::size_t>(radius));
    else
      job.sink.Number(0.0f);
    for (const std::size_t column : kept) put(column);
  }
}

void WritePtc(WriteJob& job) {
  const ParticleTable& table = job.table;
  const std::size_t position = PositionColumn(table);
  const int radius = PlaceOf(table, "radius", 1);
  const ParticleColumn* normals = table.Find("normal", 3);
  WritePtcHeader(job.sink, table, table.Columns()[position]);
  TellMisfits(job, table.Columns()[position], Stored::F32);
  if (radius >= 0) TellMisfits(job, table.Columns()[radius], Stored::F32);
  const std::vector<std::string> names = NamesInFile(table);
  std::vector<std::size_t> kept;
  std::string lines;
  i32 numbers = 0;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const ParticleColumn& column = table.Columns()[i];
    if (i == position || static_cast<int>(i) == radius || &column == normals) continue;
    if (column.components != 1 && column.components != 3 && column.components != 16) {
      job.report.lost.push_back(column.name);
      continue;
    }
    kept.push_back(i);
    TellMisfits(job, column, Stored::F32);
    lines += fmt::format("{} {}\n", PtcTypeOf(column), names[i]);
    numbers += column.components;
  }
  job.sink.Number(static_cast<i32>(kept.size()));
  job.sink.Number(numbers);
  job.sink.Append(lines);
  WritePtcPoints(job, position, radius, normals, kept);
}

}  // namespace

const ParticleFormat& PtcFormat() {
  static const ParticleFormat format = {.name = "ptc",
                                        .extensions = {".ptc"},
                                        .gzip = GzipUse::ByName,
                                        .begins =
                                            [](std::string_view head) {
                                              return head.starts_with(kPtcMagic) ||
                                                     head.starts_with(kOtherMagic);
                                            },
                                        .read = ReadPtc,
                                        .write = WritePtc};
  return format;
}

}  // namespace MELDO_GLOBAL::exchange
