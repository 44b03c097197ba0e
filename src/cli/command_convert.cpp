#include "cli/command_convert.h"

#include <fmt/format.h>

#include <filesystem>

#include "exchange/particle_files.h"
#include "host/atomic_file.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "host/mesh_files.h"
#include "host/polygon_object.h"
#include "io/file_content.h"
#include "io/mesh_writer.h"
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
  if (all.empty())
    throw CommandError(
        kExitFile,
        fmt::format("there is no file {}{}", o.from,
                    o.frames.first || o.frames.last ? " in the frames of --frames" : ""));
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

std::string ConvertParticles(const Conversion& conversion) {
  const exchange::ParticleTable table = exchange::ReadParticles(conversion.from);
  for (const std::string& warning : table.warnings) Warn(conversion.from, warning);
  const std::vector<std::string> lost = exchange::WriteParticles(conversion.to, table);
  if (!lost.empty())
    Warn(conversion.to, fmt::format("the format has no place for {}", fmt::join(lost, ", ")));
  return fmt::format("{} particles", table.Count());
}

std::string ConvertMesh(const Conversion& conversion) {
  const host::Geometry geometry = host::LoadMeshOrNone(conversion.from);
  const MeshTable mesh = TableOf(geometry, Matrix(), {1, 1, 1});
  if (!geometry.uvs.empty()) Warn(conversion.to, "texture coordinates are left out");
  host::WriteFileAtomically(conversion.to, EncodeMesh(mesh, conversion.to.extension().string()));
  return fmt::format("{} points, {} polygons", mesh.points.size(), mesh.polygons.size());
}

void Convert(const Conversion& conversion) {
  const FileContent content = ContentOf(conversion.from);
  if (content == FileContent::Unknown)
    throw host::FileError("cannot read " + conversion.from.string() +
                          ": it is of no known format of particles, meshes or volumes");
  CheckTarget(conversion, content);
  std::error_code failed;
  if (fs::equivalent(conversion.from, conversion.to, failed))
    FailUsage(fmt::format("OUT is the same file as IN: {}", conversion.to.string()));
  const std::string what = content == FileContent::Particles ? ConvertParticles(conversion)
                           : content == FileContent::Mesh
                               ? ConvertMesh(conversion)
                               : ConvertVolumes(conversion.from, conversion.to);
  fmt::print("{}: {}\n", host::Escaped(conversion.to.string()), what);
}

}  // namespace

int RunConvert(const ConvertOptions& options) {
  try {
    for (const Conversion& conversion : ConversionsOf(options)) Convert(conversion);
  } catch (const host::FileError& error) {
    throw CommandError(kExitFile, error.what());
  } catch (const host::MeshFileError& error) {
    throw CommandError(kExitFile, error.what());
  }
  return kExitDone;
}

}  // namespace MELDO_GLOBAL::app
