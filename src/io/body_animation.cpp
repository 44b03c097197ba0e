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

/// A centre of mass, seen from an object's origin in its axes. Simulation units.
Vec3d CentreIn(const Matrix& placed, const Vec3d& centre, const Vec3d& worldToSim) {
  const Matrix turn = RotationOf(placed);
  const Vec3d away = centre - placed.offset * worldToSim;
  return {Dot(turn.v1, away), Dot(turn.v2, away), Dot(turn.v3, away)};
}

/// Returns whether there is anything of it to show.
bool AddBody(GlbWriter& file, const host::PolygonObject& object, const BodyPath& path,
             const Vec3d& worldToSim, double first, double fps) {
  const Matrix placed = object.GlobalMatrix(), turn = RotationOf(placed);
  const Vec3d origin = placed.offset * worldToSim;
  const MeshTable table = OwnTable(object, turn, origin, worldToSim);
  if (table.polygons.empty()) return false;
  const Vec3d own = CentreIn(placed, path.centres.front(), worldToSim);
  std::vector<double> times, offsets, rotations;
  for (std::size_t i = 0; i < path.frames.size(); ++i) {
    times.push_back((path.frames[i] - first) / fps);
    const Vec3d offset = path.centres[i] - Turned(path.rotations[i], own);
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
  return true;
}

}  // namespace

std::array<double, 4> QuaternionOf(const Matrix& m) {
  const double d[4] = {m.v1.x, m.v2.y, m.v3.z, m.v1.x + m.v2.y + m.v3.z};
  const auto largest = std::max_element(d, d + 4) - d;
  const double a = m.v2.z - m.v3.y, b = m.v3.x - m.v1.z, c = m.v1.y - m.v2.x;
  const double p = m.v1.y + m.v2.x, q = m.v2.z + m.v3.y, r = m.v3.x + m.v1.z;
  std::array<double, 4> out{};
  switch (largest) {
    case 0: out = {1 + d[0] - d[1] - d[2], p, r, a}; break;
    case 1: out = {p, 1 + d[1] - d[0] - d[2], q, b}; break;
    case 2: out = {r, q, 1 + d[2] - d[0] - d[1], c}; break;
    default: out = {a, b, c, 1 + d[3]};
  }
  double length = 0;
  for (const double part : out) length += part * part;
  length = std::sqrt(length);
  for (double& part : out) part /= length;
  return out;
}

BodyPaths ReadBodyPaths(const std::filesystem::path& statistics) {
  std::ifstream file(statistics);
  if (!file)
    throw CommandError(kExitFile, fmt::format("cannot read {}: run the scene first, or name its "
                                              "output folder with --out",
                                              statistics.string()));
  BodyPaths found;
  std::string line;
  for (i32 number = 1; std::getline(file, line); ++number) try {
      const Row row = Row::parse(line);
      if (number == 1) found.firstFrame = row.value("frame", found.firstFrame);
      AddRow(row, found.paths);
    } catch (const Row::exception&) {
      throw CommandError(kExitFile, fmt::format("{}: line {} isn't one of a run's statistics",
                                                statistics.string(), number));
    }
  return found;
}

void BeginWithKeys(host::Document& document, i32 first, const Vec3d& worldToSim,
                   std::vector<BodyPath>& paths) {
  for (BodyPath& path : paths) {
    const auto* object = dynamic_cast<const host::PolygonObject*>(document.FindByName(path.name));
    const i32 known = path.frames.front();
    if (!object || known <= first) continue;
    document.SetFrame(known);
    const Vec3d own = CentreIn(object->GlobalMatrix(), path.centres.front(), worldToSim);
    BodyPath before{path.name, {}, {}, {}};
    for (i32 frame = first; frame < known; ++frame) {
      document.SetFrame(frame);
      const Matrix placed = object->GlobalMatrix(), turn = RotationOf(placed);
      before.frames.push_back(frame);
      before.centres.push_back(placed.offset * worldToSim + turn.Rotate(own));
      before.rotations.push_back(QuaternionOf(turn));
    }
    path.frames.insert(path.frames.begin(), before.frames.begin(), before.frames.end());
    path.centres.insert(path.centres.begin(), before.centres.begin(), before.centres.end());
    path.rotations.insert(path.rotations.begin(), before.rotations.begin(), before.rotations.end());
  }
  document.SetFrame(first);
}

EncodedBodies EncodeBodies(const host::Document& document, const std::vector<BodyPath>& paths,
                           const Vec3d& worldToSim) {
  GlbWriter file;
  std::size_t shown = 0;
  double first = paths.empty() ? 0 : paths.front().frames.front();
  for (const BodyPath& path : paths) first = std::min<double>(first, path.frames.front());
  for (const BodyPath& path : paths)
    if (const auto* object =
            dynamic_cast<const host::PolygonObject*>(document.FindByName(path.name)))
      shown += AddBody(file, *object, path, worldToSim, first, document.fps);
  file.SetExtras({{"host_units", 1 / worldToSim.x}, {"first_frame", first}});
  return {file.Encode(), shown};
}

}  // namespace MELDO_GLOBAL::app
