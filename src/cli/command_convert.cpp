#include "cli/command_convert.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "exchange/particle_files.h"
#include "host/atomic_file.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "host/frame_files.h"
#include "host/mesh_files.h"
#include "host/polygon_object.h"
#include "io/file_content.h"
#include "io/mesh_writer.h"
#include "io/recording_files.h"
#include "io/volume_files.h"
#include "scene/diagnostics.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;

namespace {

/// A file that is read and the one that it becomes.
struct Conversion {
  fs::path from, to;
};

[[noreturn]] void FailUsage(const std::string& text) { throw CommandError(kExitUsage, text); }

bool IsPattern(const std::string& name) { return name.find('#') != std::string::npos; }

std::vector<Conversion> ConversionsOf(const ConvertOptions& o) {
  if (!IsPattern(o.from)) {
    if (IsPattern(o.to)) FailUsage("OUT has a run of # for the frame number, IN has none");
    if (o.frames.first || o.frames.last)
      FailUsage("--frames: expected a run of # for the frame number in IN and OUT");
    return {{o.from, o.to}};
  }
  if (!IsPattern(o.to)) FailUsage("IN has a run of # for the frame number, OUT has none");
  std::vector<Conversion> all;
  for (const auto& [frame, file] : host::FilesOfSequence(o.from))
    if (frame >= o.frames.first.value_or(frame) && frame <= o.frames.last.value_or(frame))
      all.push_back({file, host::FrameFileName(o.to, frame)});
  if (all.empty()) {
    const bool isRange = o.frames.first || o.frames.last;
    const std::string instead = host::PatternInstead(o.from);
    const bool hasOther = !instead.empty() && instead != o.from;
    throw CommandError(
        kExitFile,
        fmt::format("there is no file {}{}{}", o.from, isRange ? " in the frames of --frames" : "",
                    hasOther ? fmt::format("; did you mean {}?", instead) : ""));
  }
  return all;
}

/// The format that a name asks for, as it stands behind the dot.
std::string SuffixOf(const fs::path& path) {
  fs::path name = path.filename();
  if (name.extension() == ".gz") name = name.stem();
  const std::string suffix = name.extension().string();
  return suffix.empty() ? suffix : suffix.substr(1);
}

/// Refuses a name whose format doesn't take what is read.
void CheckTarget(const Conversion& conversion, FileContent content) {
  const std::vector<std::string> formats = WritableFormats(content);
  const std::string suffix = SuffixOf(conversion.to);
  if (std::find(formats.begin(), formats.end(), suffix) != formats.end()) return;
  const exchange::ParticleFormat* known = exchange::FormatOfName(conversion.to).format;
  if (content == FileContent::Particles && known && known->write) return;
  FailUsage(fmt::format("{} holds {}, which can't be written as '{}'; expected {}{}",
                        conversion.from.string(), NameOf(content), Shown(suffix), AnyOf(formats),
                        Suggestion(suffix, {formats.begin(), formats.end()})));
}

void Warn(const fs::path& path, const std::string& text) {
  std::fprintf(stderr, "warning: %s: %s\n", host::Escaped(path.string()).c_str(),
               host::Escaped(text).c_str());
}

/// How many particles each group of a recording has, such as ": water (liquid) 7".
std::string GroupsText(const exchange::ParticleTable& table) {
  const exchange::ParticleColumn* groups = table.Find("group", 1);
  if (!groups || groups->words.empty()) return {};
  std::vector<i64> counts(groups->words.size());
  for (i64 row = 0; row < table.Count(); ++row) ++counts[static_cast<std::size_t>(groups->At(row))];
  std::vector<std::string> parts;
  for (std::size_t i = 0; i < counts.size(); ++i)
    if (counts[i] > 0)
      parts.push_back(fmt::format("{} {}", host::Escaped(groups->words[i]), counts[i]));
  return parts.empty() ? "" : fmt::format(": {}", fmt::join(parts, ", "));
}

std::string ConvertParticles(const Conversion& conversion, bool isRecording,
                             exchange::SeriesReport& told) {
  const exchange::ParticleTable table = isRecording ? ReadRecordedParticles(conversion.from)
                                                    : exchange::ReadParticles(conversion.from);
  for (const std::string& warning : table.warnings) Warn(conversion.from, warning);
  const exchange::WriteReport report = exchange::WriteParticles(conversion.to, table);
  for (const std::string& clause : told.News(report)) Warn(conversion.to, clause);
  return fmt::format("{} particles{}", report.count, isRecording ? GroupsText(table) : "");
}

/// The points at which corners have normals of their own, of which files keep the mean.
i64 CountCreases(const host::Geometry& geometry) {
  constexpr double kSame = 1e-5;
  std::vector<Vec3d> first(geometry.points.size());
  std::vector<u8> state(geometry.points.size());
  for (std::size_t i = 0; i < geometry.normals.size(); ++i) {
    const host::Polygon& p = geometry.polygons[i];
    const i32 points[] = {p.a, p.b, p.c, p.d};
    for (std::size_t corner = 0; corner < (p.IsQuad() ? 4u : 3u); ++corner) {
      const Vec3d& normal = geometry.normals[i][corner];
      u8& own = state[points[corner]];
      if (own == 0) first[points[corner]] = normal, own = 1;
      if (Length(normal - first[points[corner]]) > kSame) own = 2;
    }
  }
  return std::count(state.begin(), state.end(), 2);
}

std::string ConvertMeshes(const Conversion& conversion, bool isRecording) {
  std::vector<RecordedMesh> read;
  if (isRecording)
    read = ReadRecordedMeshes(conversion.from);
  else
    read.push_back({"", host::LoadMeshOrNone(conversion.from)});
  const std::string suffix = conversion.to.extension().string();
  std::vector<MeshTable> tables;
  std::set<std::string> missing;
  i64 points = 0, polygons = 0, creases = 0;
  for (const RecordedMesh& each : read) {
    MeshTable& table = tables.emplace_back(TableOf(each.geometry, Matrix(), {1, 1, 1}));
    table.uvs = each.geometry.uvs;
    table.unit = isRecording ? "host units" : "";
    for (const std::string& what : MissingFrom(suffix, table)) missing.insert(what);
    creases += CountCreases(each.geometry);
    points += static_cast<i64>(table.points.size());
    polygons += static_cast<i64>(table.polygons.size());
  }
  if (!missing.empty())
    Warn(conversion.to, fmt::format("the format has no place for {}", fmt::join(missing, ", ")));
  if (creases > 0 && suffix != ".stl")
    Warn(conversion.to, fmt::format("at {} points polygons have normals of their own; the mean of "
                                    "them is kept",
                                    creases));
  std::vector<NamedMesh> named;
  std::vector<std::string> parts;
  for (std::size_t i = 0; i < read.size(); ++i) {
    named.push_back({read[i].name, &tables[i]});
    parts.push_back(fmt::format("{} {}", host::Escaped(read[i].name), tables[i].polygons.size()));
  }
  host::WriteFileAtomically(conversion.to, EncodeMeshes(named, suffix));
  return fmt::format("{} points, {} polygons{}", points, polygons,
                     isRecording ? fmt::format(": {}", fmt::join(parts, ", ")) : "");
}

void Convert(const Conversion& conversion, exchange::SeriesReport& told) {
  const auto [content, isRecording] = ContentOf(conversion.from);
  if (content == FileContent::Unknown)
    throw host::FileError("cannot read " + conversion.from.string() +
                          ": it is of no known format of particles, meshes or volumes");
  CheckTarget(conversion, content);
  std::error_code failed;
  if (fs::equivalent(conversion.from, conversion.to, failed))
    FailUsage(fmt::format("OUT is the same file as IN: {}", conversion.to.string()));
  const std::string what =
      content == FileContent::Particles ? ConvertParticles(conversion, isRecording, told)
      : content == FileContent::Mesh    ? ConvertMeshes(conversion, isRecording)
                                        : ConvertVolumes(conversion.from, conversion.to);
  fmt::print("{}: {}\n", host::Escaped(conversion.to.string()), what);
}

}  // namespace

int RunConvert(const ConvertOptions& options) {
  try {
    exchange::SeriesReport told;
    for (const Conversion& conversion : ConversionsOf(options)) Convert(conversion, told);
  } catch (const host::FileError& error) {
    throw CommandError(kExitFile, error.what());
  } catch (const host::MeshFileError& error) {
    throw CommandError(kExitFile, error.what());
  }
  return kExitDone;
}

}  // namespace MELDO_GLOBAL::app
