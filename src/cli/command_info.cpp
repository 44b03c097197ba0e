#include "cli/command_info.h"

#include <fmt/format.h>

#include <fstream>
#include <sstream>

#include "cache/cache_contents.h"
#include "cache/cache_folder.h"
#include "cache/cache_operator.h"
#include "cli/info_cache.h"
#include "exchange/particle_files.h"
#include "host/atomic_file.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "host/mesh_files.h"
#include "io/export_origin.h"
#include "io/file_content.h"
#include "io/mesh_table.h"
#include "io/solver_info.h"
#include "io/vdb_info.h"
#include "run/checkpoint.h"
#include "run/simulation.h"
#include "scene/scene_file.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Fail(const std::string& text) { throw CommandError(kExitFile, text); }

std::string NameOf(const fs::path& path) { return host::Escaped(path.string()); }

/// A text from a file.
std::string Text(const std::string& text, std::size_t longest = 80) {
  return host::Escaped(Shown(text, longest));
}

/// The first bytes of a file; fewer where it is shorter.
std::string FirstBytes(const fs::path& path) {
  std::error_code failed;
  if (fs::is_directory(path, failed)) Fail("cannot read " + path.string() + ": it is a folder");
  std::ifstream file(path, std::ios::binary);
  if (!file) Fail("cannot read " + path.string() + ": no such file, or no right to read it");
  std::string bytes(12, '\0');
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  return bytes;
}

void Open(HyperFile& file, u32 ident, const fs::path& path) {
  if (!file.Open(ident, path, HyperFile::Mode::kRead)) Fail(file.Error());
}

void PrintCheckpoint(const fs::path& path) {
  HyperFile file;
  Open(file, kCheckpointIdent, path);
  CheckpointHeader header;
  if (!ReadCheckpointHeader(file, header)) Fail(file.Error());
  const std::string fields = host::Escaped(FieldsText(header.nodes));
  const bool isStart = path.stem() == kStartCheckpoint;
  const std::string place = isStart ? "before the first frame"
                                    : fmt::format("behind frame {}; frames written so far: {}",
                                                  header.run.frame, header.run.framesWritten);
  fmt::print("{}: a checkpoint, {}\nwritten by sulva {} {}\nscene {:016x}\n{}\n", NameOf(path),
             FormatSize(static_cast<i64>(file.Size())), Text(header.version), place, header.scene,
             header.format == kCheckpointFormat
                 ? fmt::format("Fields: {}", fields.empty() ? "none" : fields)
                 : fmt::format("of format {}, which this build can't go on from", header.format));
}

void PrintVolumes(const fs::path& path) {
  const std::vector<VdbGridInfo> grids = ReadVdbInfo(path);
  std::error_code failed;
  fmt::print("{}: a volume file, {}\n", NameOf(path),
             FormatSize(static_cast<i64>(fs::file_size(path, failed))));
  for (const VdbGridInfo& grid : grids) {
    std::string line = fmt::format("  {}: {}, {}, voxel size {:.6g}", Text(grid.name), grid.type,
                                   grid.kind, grid.voxelSize);
    if (grid.voxels >= 0) line += fmt::format(", {} active voxels", grid.voxels);
    if (grid.hasBox && grid.voxels != 0)
      line += fmt::format(", from ({}, {}, {}) to ({}, {}, {})", grid.min.x, grid.min.y, grid.min.z,
                          grid.max.x, grid.max.y, grid.max.z);
    if (!grid.origin.empty()) line += "\n    " + Text(grid.origin, 400);
    fmt::print("{}\n", line);
  }
}

/// What a mesh file holds, in the file's own units.
void PrintMesh(const fs::path& path) {
  const host::Geometry geometry = host::LoadMeshOrNone(path);
  MeshTable mesh;
  mesh.points = geometry.points;
  mesh.polygons = geometry.polygons;
  const MeshMeasure measure = Measure(mesh);
  std::string line =
      fmt::format("  {} points, {} polygons", mesh.points.size(), mesh.polygons.size());
  if (mesh.polygons.empty()) return fmt::print("{}\n", line);
  line += fmt::format(", area {:.6g}", measure.area);
  const i64 open = CountOpenEdges(mesh);
  if (open == 0)
    line += fmt::format(", closed, volume {:.6g}", measure.volume);
  else
    line += fmt::format(", {} edges open or doubled", open);
  if (!mesh.points.empty()) {
    Vec3d low = mesh.points.front(), high = low;
    for (const Vec3d& p : mesh.points) low = Min(low, p), high = Max(high, p);
    line += fmt::format(", from ({:.6g}, {:.6g}, {:.6g}) to ({:.6g}, {:.6g}, {:.6g})", low.x, low.y,
                        low.z, high.x, high.y, high.z);
  }
  fmt::print("{}\n", line);
}

/// The elements of a PLY file and what each of them has: points as exports write them, or a mesh.
void PrintPly(const fs::path& path) {
  constexpr std::size_t kLongestHeader = 1 << 16;
  std::ifstream file(path, std::ios::binary);
  std::string text, line;
  bool isFirst = true, hasEnd = false;
  for (std::size_t read = 0; !hasEnd && read < kLongestHeader && std::getline(file, line);
       read += line.size()) {
    std::istringstream words(line);
    std::string word, second, last;
    words >> word >> second;
    while (words >> last) {
    }
    hasEnd = word == "end_header";
    if (word == "element") text += fmt::format("\n  {} {}:", Text(last), Text(second));
    if (word == "property") text += fmt::format("{} {}", isFirst ? "" : ",", Text(last));
    isFirst = word != "property";
  }
  if (!hasEnd) Fail(path.string() + ": it is damaged: its header has no end");
  std::error_code failed;
  fmt::print("{}: a PLY file, {}{}\n", NameOf(path),
             FormatSize(static_cast<i64>(fs::file_size(path, failed))), text);
  if (text.find(" face:") != std::string::npos) PrintMesh(path);
}

const char* NameOfType(exchange::ValueType type) {
  constexpr const char* names[] = {"byte", "int", "long", "float", "double"};
  return names[static_cast<int>(type)];
}

/// The columns of a particle file with their least and greatest values.
void PrintParticles(const fs::path& path, const exchange::ParticleFormat& format) {
  const exchange::ParticleTable table = exchange::ReadParticles(path);
  std::error_code failed;
  std::string text =
      fmt::format("{}: {} particles as {}, {}\n", NameOf(path), table.Count(), format.name,
                  FormatSize(static_cast<i64>(fs::file_size(path, failed))));
  for (const exchange::ParticleColumn& column : table.Columns()) {
    text += fmt::format("  {}: {}", Text(column.name), NameOfType(column.Type()));
    if (column.components > 1) text += fmt::format(" x {}", column.components);
    for (int c = 0; c < column.components && table.Count() > 0; ++c) {
      double low = column.At(0, c), high = low;
      for (i64 row = 1; row < table.Count(); ++row) {
        low = std::min(low, column.At(row, c));
        high = std::max(high, column.At(row, c));
      }
      text += fmt::format("{} {:.6g} to {:.6g}", c == 0 ? ", from" : ",", low, high);
    }
    text += '\n';
  }
  for (const auto& [key, value] : table.remarks)
    text +=
        fmt::format("  {}: {}\n", Text(key),
                    std::visit([](const auto& v) { return Text(fmt::format("{}", v)); }, value));
  for (const std::string& warning : table.warnings) text += "  " + Text(warning, 400) + "\n";
  fmt::print("{}", text);
}

bool IsMeshFile(const std::string& extension) {
  return extension == ".obj" || extension == ".stl" || extension == ".glb" || extension == ".gltf";
}

/// The sizes of a scene as they are behind its first frame.
int PrintScene(const fs::path& path) {
  Diagnostics diagnostics;
  std::optional<LoadedScene> scene = LoadScene(path, diagnostics);
  diagnostics.Print();
  if (!scene) return kExitInvalidScene;
  scene->document->folder = CacheFolderOf(fs::path("out") / path.stem()).string();
  Simulation simulation(*scene->document, scene->servers, MachineMemory());
  // Who asks about a scene neither records it nor needs its recordings.
  simulation.SetCacheRun({.mayRecord = false, .firstPlayed = 1, .lastPlayed = 0});
  const FrameRange range = simulation.Range();
  FrameRecord record;
  switch (simulation.Evaluate(range.first, record)) {
    case FrameOutcome::Done: break;
    case FrameOutcome::Interrupted: return kExitInterrupted;
    case FrameOutcome::FileFailure: Fail(simulation.FileFailure());
    case FrameOutcome::OutOfMemory: throw CommandError(kExitMemory, simulation.MemoryRefusal());
  }
  fmt::print("{}: a scene, frames {} to {} at {} fps; in frame {}:\n", NameOf(path), range.first,
             range.last, scene->document->fps, range.first);
  std::string solvers;
  std::string particles;
  for (const auto& each : simulation.Scenes()) {
    solvers += DescribeSolvers(*each);
    particles += DescribeParticles(*each);
  }
  fmt::print("{}{}", solvers.empty() ? "it has no gas\n" : solvers, particles);
  return kExitDone;
}

/// A scene is text that begins with a brace or a comment.
bool LooksLikeAScene(std::string_view bytes) {
  if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
  const std::size_t at = bytes.find_first_not_of(" \t\r\n");
  return at != std::string_view::npos && (bytes[at] == '{' || bytes[at] == '/');
}

/// The format of a file of particles; null for any other. A PLY file is told by its header alone.
const exchange::ParticleFormat* ParticlesIn(const fs::path& path) {
  const exchange::ParticleFormat* format = exchange::FormatOfFile(path);
  if (!format || format->name == "ply") return nullptr;
  return format->name != "vdb" || ContentOf(path).content == FileContent::Particles ? format
                                                                                    : nullptr;
}

}  // namespace

int RunInfo(const fs::path& path) {
  const std::string bytes = FirstBytes(path);
  const std::string_view ident = bytes.size() >= 12 ? std::string_view(bytes).substr(8, 4) : "";
  const std::string extension = path.extension().string();
  try {
    if (const auto* format = ParticlesIn(path)) {
      PrintParticles(path, *format);
    } else if (bytes.starts_with(" BDV")) {
      PrintVolumes(path);
    } else if (bytes.starts_with("ply\n") || bytes.starts_with("ply\r")) {
      PrintPly(path);
    } else if (IsMeshFile(extension)) {
      fmt::print("{}: a mesh, {}\n", NameOf(path),
                 FormatSize(static_cast<i64>(fs::file_size(path))));
      PrintMesh(path);
    } else if (ident == "svcp" || extension == ".checkpoint") {
      PrintCheckpoint(path);
    } else if (ident == "zlsv" || HasCacheSuffix(path)) {
      PrintCacheInfo(path);
    } else if (extension == ".json" || (LooksLikeAScene(bytes) && extension != ".jsonl")) {
      return PrintScene(path);
    } else {
      Fail(path.string() + ": it is no scene, cache, checkpoint, volume, mesh or particle file");
    }
  } catch (const host::FileError& error) {
    Fail(error.what());
  } catch (const host::MeshFileError& error) {
    Fail(error.what());
  }
  return kExitDone;
}

}  // namespace MELDO_GLOBAL::app
