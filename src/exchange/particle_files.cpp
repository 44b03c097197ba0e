#include "exchange/particle_files.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <new>

#include "host/file_error.h"

namespace MELDO_GLOBAL::exchange {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kHead = 64;
constexpr std::string_view kGzipSuffix = ".gz";

std::string LowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

const ParticleFormat* FormatOfExtension(const std::string& extension) {
  for (const ParticleFormat* format : ParticleFormats())
    if (std::find(format->extensions.begin(), format->extensions.end(), extension) !=
        format->extensions.end())
      return format;
  return nullptr;
}

[[noreturn]] void FailWith(const char* verb, const fs::path& path, const std::string& why) {
  throw host::FileError(fmt::format("cannot {} {}: {}", verb, path.string(), why));
}

ParticleTable ReadWith(ByteSource& source, const ParticleFormat& format) {
  if (!format.read)
    Damaged(fmt::format("particles can be written as {}, but not read", format.name));
  ParticleTable table;
  table.LimitMemory();
  try {
    format.read(source, table);
  } catch (const std::bad_alloc&) {
    Damaged("it doesn't fit into memory");
  } catch (const std::length_error&) {
    Damaged("it doesn't fit into memory");
  }
  return table;
}

Wrapping WrappingOf(const ParticleFormat& format, bool isGzip) {
  if (isGzip && format.gzip == GzipUse::Never)
    Damaged(fmt::format("the format {} isn't wrapped by gzip", format.name));
  const bool isWrapped = isGzip || format.gzip == GzipUse::Always;
  return isWrapped ? Wrapping::Gzip : Wrapping::None;
}

/// The rows at finite places; all of them where nothing tells the places.
std::vector<i64> PlacedRows(const ParticleTable& table) {
  std::vector<i64> rows;
  const ParticleColumn* position = table.Find("position", 3);
  for (i64 row = 0; row < table.Count(); ++row)
    if (!position || (std::isfinite(position->At(row, 0)) && std::isfinite(position->At(row, 1)) &&
                      std::isfinite(position->At(row, 2))))
      rows.push_back(row);
  return rows;
}

bool ArePlaced(const ParticleTable& table) {
  const ParticleColumn* position = table.Find("position", 3);
  if (!position) return true;
  return std::visit(
      [](const auto& list) {
        return std::all_of(list.begin(), list.end(),
                           [](auto v) { return std::isfinite(static_cast<double>(v)); });
      },
      position->values);
}

bool IsAmong(const std::string& name, const std::vector<std::string>& names) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

/// Tells of columns of texts what their numbers stand for.
void TellWords(const ParticleTable& table, WriteReport& report) {
  constexpr std::size_t kMostTold = 8;
  for (const ParticleColumn& column : table.Columns()) {
    if (column.words.empty() || IsAmong(column.name, report.lost)) continue;
    std::string list;
    for (std::size_t i = 0; i < std::min(column.words.size(), kMostTold); ++i)
      list += fmt::format("{}{} for \"{}\"", i == 0 ? "" : ", ", i, column.words[i]);
    if (column.words.size() > kMostTold)
      list += fmt::format(" and {} more", column.words.size() - kMostTold);
    report.wordless.emplace(column.name,
                            fmt::format("the format has no place for the texts of '{}', which "
                                        "become numbers: {}",
                                        column.name, list));
  }
}

WriteReport WriteTo(ByteSink& sink, const ParticleTable& table, const ParticleFormat& format) {
  if (!format.write)
    Damaged(fmt::format("particles can be read as {}, but not written", format.name));
  if (!ArePlaced(table)) {
    const std::vector<i64> rows = PlacedRows(table);
    const i64 left = table.Count() - static_cast<i64>(rows.size());
    WriteReport report = WriteTo(sink, table.Picked(rows), format);
    report.changed.emplace("",
                           fmt::format("{} at no finite place {} left out",
                                       left == 1 ? "1 particle" : fmt::format("{} particles", left),
                                       left == 1 ? "is" : "are"));
    return report;
  }
  WriteJob job{table, sink};
  job.report.count = table.Count();
  format.write(job);
  sink.Finish();
  if (!format.keepsWords) TellWords(table, job.report);
  return std::move(job.report);
}

/// The format that the first bytes tell; null where they don't.
const ParticleFormat* FormatOfHead(std::string_view head) {
  for (const ParticleFormat* format : ParticleFormats())
    if (format->begins && format->begins(head)) return format;
  return nullptr;
}

const ParticleFormat* FormatOf(ByteSource& source, const fs::path& path) {
  const ParticleFormat* told = FormatOfHead(source.Peek(kHead));
  return told ? told : FormatOfName(path).format;
}

}  // namespace

const std::vector<const ParticleFormat*>& ParticleFormats() {
  static const std::vector<const ParticleFormat*> formats = {
      &PrtFormat(), &BgeoFormat(),  &GeoFormat(),      &BinFormat(), &PdaFormat(),
      &PdbFormat(), &Pdb32Format(), &Pdb64Format(),    &PdcFormat(), &PtcFormat(),
      &PtsFormat(), &RibFormat(),   &XyzFormat(),      &McFormat(),  &IcecacheFormat(),
      &PlyFormat(), &CsvFormat(),   &VdbPointsFormat()};
  return formats;
}

std::vector<std::string> WriteReport::Clauses() const {
  std::vector<std::string> clauses;
  for (const auto* told : {&changed, &wordless})
    for (const auto& [column, clause] : *told)
      if (!column.empty()) clauses.push_back(clause);
  if (const auto ofParticles = changed.find(""); ofParticles != changed.end())
    clauses.push_back(ofParticles->second);
  std::string names;
  for (const std::string& name : lost) names += (names.empty() ? "" : ", ") + name;
  if (!lost.empty()) clauses.push_back("the format has no place for " + names);
  return clauses;
}

std::vector<std::string> SeriesReport::News(const WriteReport& report) {
  WriteReport news;
  for (const std::string& name : report.lost)
    if (!IsAmong(name, mTold.lost)) news.lost.push_back(name);
  for (const auto& each : report.changed)
    if (mTold.changed.insert(each).second) news.changed.insert(each);
  for (const auto& each : report.wordless)
    if (mTold.wordless.insert(each).second) news.wordless.insert(each);
  mTold.lost.insert(mTold.lost.end(), news.lost.begin(), news.lost.end());
  return news.Clauses();
}

std::string HeadOfFile(const fs::path& path, std::size_t bytes) {
  try {
    return std::string(ByteSource(path).Peek(bytes));
  } catch (const host::FileError& error) {
    FailWith("read", path, error.what());
  }
}

const ParticleFormat* FindFormat(std::string_view name) {
  for (const ParticleFormat* format : ParticleFormats())
    if (format->name == name) return format;
  return nullptr;
}

NamedFormat FormatOfName(const fs::path& path) {
  NamedFormat named;
  fs::path name = path.filename();
  named.isGzip = LowerCase(name.extension().string()) == kGzipSuffix;
  if (named.isGzip) name = name.stem();
  named.format = FormatOfExtension(LowerCase(name.extension().string()));
  return named;
}

const ParticleFormat* FormatOfFile(const fs::path& path) {
  try {
    ByteSource source(path);
    return FormatOf(source, path);
  } catch (const host::FileError& error) {
    FailWith("read", path, error.what());
  }
}

ParticleTable ReadParticles(const fs::path& path) {
  try {
    ByteSource source(path);
    const ParticleFormat* format = FormatOf(source, path);
    if (!format) Damaged("it is of no known format of particles");
    return ReadWith(source, *format);
  } catch (const host::FileError& error) {
    FailWith("read", path, error.what());
  }
}

ParticleTable ParseParticles(std::string_view bytes, const ParticleFormat& format) {
  ByteSource source(bytes);
  return ReadWith(source, format);
}

WriteReport WriteParticles(const fs::path& path, const ParticleTable& table) {
  const NamedFormat named = FormatOfName(path);
  if (!named.format) FailWith("write", path, "its name tells no known format of particles");
  return WriteParticles(path, table, *named.format, named.isGzip);
}

WriteReport WriteParticles(const fs::path& path, const ParticleTable& table,
                           const ParticleFormat& format, bool isGzip) {
  Wrapping wrapping{};
  try {
    wrapping = WrappingOf(format, isGzip);
  } catch (const host::FileError& error) {
    FailWith("write", path, error.what());
  }
  host::PartFile file(path);
  ByteSink sink(file, wrapping);
  WriteReport report;
  try {
    report = WriteTo(sink, table, format);
  } catch (const host::FileError& error) {
    const std::string why = error.what();
    if (why.find(path.string()) != std::string::npos) throw;
    FailWith("write", path, why);
  }
  file.Commit();
  return report;
}

std::string EncodeParticles(const ParticleTable& table, const ParticleFormat& format, bool isGzip,
                            WriteReport* report) {
  std::string bytes;
  ByteSink sink(bytes, WrappingOf(format, isGzip));
  WriteReport own = WriteTo(sink, table, format);
  if (report) *report = std::move(own);
  return bytes;
}

}  // namespace MELDO_GLOBAL::exchange
