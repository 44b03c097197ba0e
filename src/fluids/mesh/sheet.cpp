#include "fluids/mesh/sheet.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <tuple>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

// Of the squared length of the border over the area: 16 for a square, 8 pi r / l for a pipe.
constexpr double kLongBorder = 0.1;

/// A number for each vertex, the same for those at one place.
std::vector<i32> PlacesOf(const std::vector<Vec3d>& vertices) {
  std::vector<i32> order(vertices.size()), place(vertices.size());
  std::iota(order.begin(), order.end(), 0);
  const auto key = [&](i32 v) { return std::tie(vertices[v].x, vertices[v].y, vertices[v].z); };
  std::sort(order.begin(), order.end(), [&](i32 a, i32 b) { return key(a) < key(b); });
  for (std::size_t i = 0; i < order.size(); ++i) {
    const bool isSame = i > 0 && key(order[i]) == key(order[i - 1]);
    place[order[i]] = isSame ? place[order[i - 1]] : order[i];
  }
  return place;
}

}  // namespace

bool IsSheet(const TriMeshSTL& mesh) {
  const std::vector<Vec3d>& vertices = mesh.GetVertices();
  for (const Vec3d& v : vertices)
    if (!std::isfinite(v.x + v.y + v.z)) return false;
  const std::vector<i32> place = PlacesOf(vertices);
  std::vector<std::pair<i32, i32>> edges;
  double area = 0;
  for (const VecInt3D& t : mesh.GetTriangles()) {
    if (std::min({t.x, t.y, t.z}) < 0 || std::max({t.x, t.y, t.z}) >= mesh.GetVertexCount())
      continue;
    area += 0.5 * Length(Cross(vertices[t.y] - vertices[t.x], vertices[t.z] - vertices[t.x]));
    for (int i = 0; i < 3; ++i) {
      const i32 a = place[t[i]], b = place[t[(i + 1) % 3]];
      if (a != b) edges.emplace_back(std::min(a, b), std::max(a, b));
    }
  }
  std::sort(edges.begin(), edges.end());
  double border = 0;
  for (auto edge = edges.begin(); edge != edges.end();) {
    auto end = edge + 1;
    while (end != edges.end() && *end == *edge) ++end;
    if (end - edge == 1) border += Length(vertices[edge->first] - vertices[edge->second]);
    edge = end;
  }
  return border * border > kLongBorder * area;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
