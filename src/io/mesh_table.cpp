#include "io/mesh_table.h"

#include <algorithm>
#include <array>
#include <map>
#include <numeric>
#include <tuple>

namespace MELDO_GLOBAL::app {

void MeshTable::MakeNormals() {
  normals.assign(points.size(), {});
  ForEachTriangle([&](i32 a, i32 b, i32 c) {
    const Vec3d n = Cross(points[b] - points[a], points[c] - points[a]);
    for (const i32 point : {a, b, c}) normals[point] += n;
  });
  for (Vec3d& n : normals) n = Normalised(n);
}

namespace {

/// For each point the first one that stands in the same place.
std::vector<i32> FirstInPlace(const std::vector<Vec3d>& points) {
  std::vector<i32> order(points.size()), first(points.size());
  std::iota(order.begin(), order.end(), 0);
  const auto key = [&](i32 i) { return std::tuple(points[i].x, points[i].y, points[i].z, i); };
  std::sort(order.begin(), order.end(), [&](i32 a, i32 b) { return key(a) < key(b); });
  for (std::size_t i = 0; i < order.size(); ++i) {
    const bool isSame = i > 0 && points[order[i]] == points[order[i - 1]];
    first[order[i]] = isSame ? first[order[i - 1]] : order[i];
  }
  return first;
}

i64 CountOpenEdgesBy(const MeshTable& mesh, const std::vector<i32>& names) {
  // Each edge as its lower point, its higher one, and the direction in which it is walked.
  std::vector<std::array<i32, 3>> walks;
  walks.reserve(4 * mesh.polygons.size());
  const auto walk = [&](i32 from, i32 to) {
    const i32 a = names.empty() ? from : names[from], b = names.empty() ? to : names[to];
    if (a != b || names.empty()) walks.push_back({std::min(a, b), std::max(a, b), a < b});
  };
  for (const host::Polygon& p : mesh.polygons) {
    walk(p.a, p.b);
    walk(p.b, p.c);
    if (p.IsQuad()) walk(p.c, p.d);
    walk(p.d, p.a);
  }
  std::sort(walks.begin(), walks.end());
  i64 open = 0;
  for (std::size_t i = 0; i < walks.size();) {
    std::size_t end = i + 1;
    while (end < walks.size() && walks[end][0] == walks[i][0] && walks[end][1] == walks[i][1])
      ++end;
    open += end - i != 2 || walks[i][2] == walks[i + 1][2];
    i = end;
  }
  return open;
}

}  // namespace

i64 CountOpenEdges(const MeshTable& mesh) {
  const i64 open = CountOpenEdgesBy(mesh, {});
  return open > 0 ? std::min(open, CountOpenEdgesBy(mesh, FirstInPlace(mesh.points))) : 0;
}

MeshMeasure Measure(const MeshTable& mesh) {
  MeshMeasure sum;
  mesh.ForEachTriangle([&](i32 a, i32 b, i32 c) {
    const Vec3d &p = mesh.points[a], &q = mesh.points[b], &r = mesh.points[c];
    sum.area += 0.5 * Length(Cross(q - p, r - p));
    sum.volume += Dot(p, Cross(q, r)) / 6;
  });
  return sum;
}

MeshTable Joined(std::span<const MeshTable* const> meshes) {
  MeshTable all;
  const auto has = [&](auto member) {
    return std::any_of(meshes.begin(), meshes.end(),
                       [&](const MeshTable* mesh) { return !(mesh->*member).empty(); });
  };
  const bool velocities = has(&MeshTable::velocities), colours = has(&MeshTable::colours),
             uvs = has(&MeshTable::uvs);
  for (const MeshTable* each : meshes) {
    const MeshTable& mesh = *each;
    const i32 first = static_cast<i32>(all.points.size());
    const auto append = [](auto& to, const auto& from) {
      to.insert(to.end(), from.begin(), from.end());
    };
    append(all.points, mesh.points);
    append(all.normals, mesh.normals);
    append(all.velocities, mesh.velocities);
    append(all.colours, mesh.colours);
    append(all.uvs, mesh.uvs);
    for (const host::Polygon& p : mesh.polygons)
      all.polygons.push_back({p.a + first, p.b + first, p.c + first, p.d + first});
    if (velocities) all.velocities.resize(all.points.size());
    if (colours) all.colours.resize(all.points.size(), {1, 1, 1});
    if (uvs) all.uvs.resize(all.polygons.size());
    all.unit = mesh.unit;
  }
  return all;
}

MeshTable SplitByUvs(const MeshTable& mesh, std::vector<Vec3d>& uvs) {
  MeshTable split;
  split.unit = mesh.unit;
  std::map<std::tuple<i32, double, double>, i32> places;
  const auto place = [&](i32 point, const Vec3d& uv) {
    const auto [found, isNew] =
        places.try_emplace({point, uv.x, uv.y}, static_cast<i32>(split.points.size()));
    if (!isNew) return found->second;
    const auto take = [&](const std::vector<Vec3d>& from, std::vector<Vec3d>& to) {
      if (!from.empty()) to.push_back(from[static_cast<std::size_t>(point)]);
    };
    take(mesh.points, split.points);
    take(mesh.normals, split.normals);
    take(mesh.velocities, split.velocities);
    take(mesh.colours, split.colours);
    uvs.push_back(uv);
    return found->second;
  };
  for (std::size_t i = 0; i < mesh.polygons.size(); ++i) {
    const host::Polygon& p = mesh.polygons[i];
    const auto& own = mesh.uvs[i];
    const i32 a = place(p.a, own[0]), b = place(p.b, own[1]), c = place(p.c, own[2]);
    split.polygons.push_back({a, b, c, p.IsQuad() ? place(p.d, own[3]) : c});
  }
  return split;
}

MeshTable TableOf(const MELDO_SULVA::TriMeshSTL& mesh) {
  MeshTable table;
  table.points = mesh.GetVertices();
  table.velocities = mesh.mColumns.velocity;
  table.normals = mesh.mColumns.normal;
  table.polygons.reserve(mesh.GetTriangles().size());
  for (const VecInt3D& t : mesh.GetTriangles()) table.polygons.push_back({t.x, t.y, t.z, t.z});
  if (table.normals.size() != table.points.size()) table.MakeNormals();
  return table;
}

MeshTable TableOf(const host::PolygonObject& object, const Vec3d& worldToSim) {
  return TableOf(object.GetGeometry(), object.GlobalMatrix(), worldToSim);
}

MeshTable TableOf(const host::Geometry& geometry, const Matrix& place, const Vec3d& worldToSim) {
  MeshTable table;
  table.points.reserve(geometry.points.size());
  for (const Vec3d& p : geometry.points) table.points.push_back((place * p) * worldToSim);
  table.polygons = geometry.polygons;
  table.colours = geometry.colours;
  table.velocities.reserve(geometry.velocities.size());
  for (const Vec3d& v : geometry.velocities)
    table.velocities.push_back(place.Rotate(v) * worldToSim);
  if (geometry.normals.empty()) {
    table.MakeNormals();
    return table;
  }
  table.normals.assign(table.points.size(), {});
  const Matrix back = Inverse(place);
  for (std::size_t i = 0; i < geometry.polygons.size(); ++i) {
    const host::Polygon& p = geometry.polygons[i];
    const i32 points[] = {p.a, p.b, p.c, p.d};
    for (std::size_t corner = 0; corner < (p.IsQuad() ? 4u : 3u); ++corner) {
      const Vec3d& n = geometry.normals[i][corner];
      // Normals go with the inverse transpose of what points go with.
      table.normals[points[corner]] +=
          Vec3d{Dot(back.v1, n), Dot(back.v2, n), Dot(back.v3, n)} / worldToSim;
    }
  }
  for (Vec3d& n : table.normals) n = Normalised(n);
  return table;
}

}  // namespace MELDO_GLOBAL::app
