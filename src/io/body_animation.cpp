#include "io/body_animation.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>

#include "host/exit_codes.h"
#include "io/glb_writer.h"

namespace MELDO_GLOBAL::app {

namespace {

using Row = nlohmann::ordered_json;

void AddRow(const Row& row, std::vector<BodyPath>& paths) {
  if (!row.contains("frame") || !row.contains("bodies")) return;
  for (const auto& [name, body] : row.at("bodies").items()) {
    auto path = std::find_if(paths.begin(), paths.end(),
                             [&](const BodyPath& known) { return known.name == name; });
    if (path == paths.end()) path = paths.insert(paths.end(), {name, {}, {}, {}});
    const auto& p = body.at("position");
    path->frames.push_back(row.at("frame").get<i32>());
    path->centres.push_back({p.at(0).get<double>(), p.at(1).get<double>(), p.at(2).get<double>()});
    path->rotations.push_back(body.at("rotation").get<std::array<double, 4>>());
  }
}

Vec3d Turned(const std::array<double, 4>& q, const Vec3d& p) {
  const Vec3d axis{q[0], q[1], q[2]}, side = Cross(axis, p) * 2.0;
  return p + side * q[3] + Cross(axis, side);
}

/// The polygons as they stand in the object's own axes, without its scale.
MeshTable OwnTable(const host::PolygonObject& object, const Matrix& turn, const Vec3d& origin,
                   const Vec3d& worldToSim) {
  MeshTable table = TableOf(object, worldToSim);
  const auto back = [&](const Vec3d& p) {
    return Vec3d{Dot(turn.v1, p), Dot(turn.v2, p), Dot(turn.v3, p)};
  };
  for (Vec3d& p : table.points) p = back(p - origin);
  for (Vec3d& n : table.normals) n = back(n);
  table.velocities.clear();
  return table;
}

void AddBody(GlbWriter& file, const host::PolygonObject& object, const BodyPath& path,
             const Vec3d& worldToSim, double first, double fps) {
  const Matrix placed = object.GlobalMatrix(), turn = RotationOf(placed);
  const Vec3d origin = placed.offset * worldToSim;
  const MeshTable table = OwnTable(object, turn, origin, worldToSim);
  if (table.polygons.empty()) return;
  // From the centre of mass to the object's origin, in its axes.
  const Vec3d away = origin - path.centres.front();
  const Vec3d own{Dot(turn.v1, away), Dot(turn.v2, away), Dot(turn.v3, away)};
  std::vector<double> times, offsets, rotations;
  for (std::size_t i = 0; i < path.frames.size(); ++i) {
    times.push_back((path.frames[i] - first) / fps);
    const Vec3d offset = path.centres[i] + Turned(path.rotations[i], own);
    offsets.insert(offsets.end(), {offset.x, offset.y, offset.z});
    // Of both quaternions of a turn the one that is nearer to the last: viewers mix them.
    std::array<double, 4> q = path.rotations[i];
    double near = 0;
    for (std::size_t k = 0; i > 0 && k < 4; ++k) near += q[k] * rotations[4 * (i - 1) + k];
    for (const double part : q) rotations.push_back(near < 0 ? -part : part);
  }
  const auto& q = path.rotations.front();
  const std::size_t node = file.AddNode({{"name", path.name},
                                         {"mesh", file.AddMesh(table)},
                                         {"translation", {offsets[0], offsets[1], offsets[2]}},
                                         {"rotation", {q[0], q[1], q[2], q[3]}}});
  const std::size_t input = file.AddNumbers(times, 1);
  file.Animate(node, "translation", input, file.AddNumbers(offsets, 3));
  file.Animate(node, "rotation", input, file.AddNumbers(rotations, 4));
}

}  // namespace

std::vector<BodyPath> ReadBodyPaths(const std::filesystem::path& statistics) {
  std::ifstream file(statistics);
  if (!file)
    throw CommandError(kExitFile, fmt::format("cannot read {}: run the scene first, or name its "
                                              "output folder with --out",
                                              statistics.string()));
  std::vector<BodyPath> paths;
  std::string line;
  for (i32 number = 1; std::getline(file, line); ++number) try {
      AddRow(Row::parse(line), paths);
    } catch (const Row::exception&) {
      throw CommandError(kExitFile, fmt::format("{}: line {} isn't one of a run's statistics",
                                                statistics.string(), number));
    }
  return paths;
}

std::string EncodeBodies(const host::Document& document, const std::vector<BodyPath>& paths,
                         const Vec3d& worldToSim) {
  GlbWriter file;
  double first = paths.empty() ? 0 : paths.front().frames.front();
  for (const BodyPath& path : paths) first = std::min<double>(first, path.frames.front());
  for (const BodyPath& path : paths)
    if (const auto* object =
            dynamic_cast<const host::PolygonObject*>(document.FindByName(path.name)))
      AddBody(file, *object, path, worldToSim, first, document.fps);
  file.SetExtras({{"host_units", 1 / worldToSim.x}, {"first_frame", first}});
  return file.Encode();
}

}  // namespace MELDO_GLOBAL::app
