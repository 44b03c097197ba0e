// XYZ and PTS: points of scanners as rows of text, in PTS behind a line with their count.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>

#include "exchange/format_parts.h"
#include "exchange/text_rows.h"
#include "host/mesh_readers.h"

namespace MELDO_GLOBAL::exchange {

namespace {

constexpr double kFullByte = 255;

/// The columns of rows with so many numbers.
bool AddScanColumns(ParticleTable& table, std::size_t width, bool mayHaveQuality) {
  if (width != 3 && width != 4 && width != 6 && width != 7 && !(mayHaveQuality && width == 8))
    return false;
  table.Add("position", ValueType::F64, 3);
  if (width == 4 || width >= 7) table.Add("intensity", ValueType::F64, 1);
  if (width == 8) table.Add("quality", ValueType::F64, 1);
  if (width >= 6) table.Add("color", ValueType::F32, 3);
  return true;
}

void ReadScanRows(TextSource& text, ParticleTable& table, bool mayHaveQuality) {
  std::optional<RowTaker> taker;
  std::string line;
  std::vector<TextNumber> numbers;
  i64 shorter = 0;
  while (text.Line(line)) {
    const std::size_t start = line.find_first_not_of(" \t\r");
    if (start == std::string::npos || line[start] == '#') continue;
    NumbersOf(text, line, numbers);
    if (!taker) {
      if (!AddScanColumns(table, numbers.size(), mayHaveQuality))
        text.Fail(fmt::format("expected {} numbers, got {}",
                              mayHaveQuality ? "3, 4, 6, 7 or 8" : "3, 4, 6 or 7", numbers.size()));
      taker.emplace(table);
    }
    if (numbers.size() < taker->Width()) {
      ++shorter;
      continue;
    }
    if (table.Columns().back().name == "color")
      for (std::size_t c = taker->Width() - 3; c < taker->Width(); ++c)
        numbers[c].real /= kFullByte;
    taker->Take(numbers, text.Source());
  }
  if (taker) {
    taker->Finish();
  } else {
    table.Add("position", ValueType::F64, 3);
  }
  if (shorter > 0)
    table.warnings.push_back(
        fmt::format("{} rows are shorter than the first and left out", shorter));
}

void ReadXyz(ByteSource& source, ParticleTable& table) {
  TextSource text(source);
  ReadScanRows(text, table, false);
}

void ReadPts(ByteSource& source, ParticleTable& table) {
  TextSource text(source);
  std::string line;
  text.Line(line);
  // The count is often wrong; that there is one tells the format.
  std::string_view words = line;
  std::string_view count = host::NextWord(words);
  text.WholeOf(count);
  if (!host::NextWord(words).empty()) text.Fail("expected the number of points alone");
  ReadScanRows(text, table, true);
}

/// What no byte tells becomes the nearest that one does, and what is no number 0.
double ShareOf(double value) { return value > 0 ? std::min(value, 1.0) : 0.0; }

void TellColorsBeyond(WriteJob& job, const ParticleColumn& color) {
  i64 count = 0;
  for (i64 i = 0; i < job.table.Count(); ++i)
    for (int c = 0; c < 3; ++c) count += !(color.At(i, c) == ShareOf(color.At(i, c)));
  if (count > 0)
    job.report.changed.emplace(
        color.name,
        fmt::format("{} of 'color' {} from 0 to 1 and {} the nearest that is",
                    count == 1 ? "1 number" : fmt::format("{} numbers", count),
                    count == 1 ? "isn't" : "aren't", count == 1 ? "becomes" : "become"));
}

void WriteScanRows(WriteJob& job, bool mayHaveQuality) {
  const ParticleTable& table = job.table;
  const ParticleColumn& position = table.Columns()[PositionColumn(table)];
  const ParticleColumn* color = table.Find("color", 3);
  const ParticleColumn* intensity = table.Find("intensity", 1);
  const ParticleColumn* quality =
      mayHaveQuality && color && intensity ? table.Find("quality", 1) : nullptr;
  LoseAllBut(job, {"position", color ? "color" : "", intensity ? "intensity" : "",
                   quality ? "quality" : ""});
  if (color) TellColorsBeyond(job, *color);
  std::string row;
  for (i64 i = 0; i < table.Count(); ++i) {
    row.clear();
    for (int c = 0; c < 3; ++c) AppendValue(row, position, i, c), row += ' ';
    for (const ParticleColumn* extra : {intensity, quality})
      if (extra) AppendValue(row, *extra, i, 0), row += ' ';
    for (int c = 0; color && c < 3; ++c)
      row += fmt::format("{} ", std::lround(kFullByte * ShareOf(color->At(i, c))));
    row.back() = '\n';
    job.sink.Append(row);
  }
}

void WriteXyz(WriteJob& job) { WriteScanRows(job, false); }

void WritePts(WriteJob& job) {
  job.sink.Append(fmt::format("{}\n", job.table.Count()));
  WriteScanRows(job, true);
}

}  // namespace

const ParticleFormat& XyzFormat() {
  static const ParticleFormat format = {.name = "xyz",
                                        .extensions = {".xyz"},
                                        .gzip = GzipUse::ByName,
                                        .read = ReadXyz,
                                        .write = WriteXyz};
  return format;
}

const ParticleFormat& PtsFormat() {
  static const ParticleFormat format = {.name = "pts",
                                        .extensions = {".pts"},
                                        .gzip = GzipUse::ByName,
                                        .read = ReadPts,
                                        .write = WritePts};
  return format;
}

}  // namespace MELDO_GLOBAL::exchange
