// Facts about a polygon mesh, found independently of the code under test.
#pragma once
#include <map>
#include <utility>

#include "host/polygon_object.h"

namespace MELDO_GLOBAL::host {

struct GeometryFacts {
  size_t triangles = 0;
  double area = 0;
  double volume = 0;   ///< by the divergence theorem: positive when turned outward
  i64 euler = 0;       ///< used points - edges + triangles
  bool closed = true;  ///< every directed edge once, and its reverse once
  Vec3d low{1e300, 1e300, 1e300}, high{-1e300, -1e300, -1e300};
};

inline GeometryFacts FactsOf(const Geometry& g) {
  GeometryFacts facts;
  std::map<std::pair<i32, i32>, int> edges;
  std::map<i32, int> used;
  const auto add = [&](i32 a, i32 b, i32 c) {
    const Vec3d &p = g.points[a], &q = g.points[b], &r = g.points[c];
    ++facts.triangles;
    facts.area += 0.5 * Length(Cross(q - p, r - p));
    facts.volume += Dot(p, Cross(q, r)) / 6;
    for (const auto& edge : {std::pair{a, b}, {b, c}, {c, a}}) ++edges[edge];
    for (const i32 i : {a, b, c}) {
      used[i] = 1;
      facts.low = Min(facts.low, g.points[i]);
      facts.high = Max(facts.high, g.points[i]);
    }
  };
  for (const Polygon& p : g.polygons) {
    add(p.a, p.b, p.c);
    if (p.IsQuad()) add(p.a, p.c, p.d);
  }
  for (const auto& [edge, count] : edges) {
    const auto reverse = edges.find({edge.second, edge.first});
    if (count != 1 || reverse == edges.end() || reverse->second != 1) facts.closed = false;
  }
  facts.euler = static_cast<i64>(used.size()) - static_cast<i64>(edges.size() / 2) +
                static_cast<i64>(facts.triangles);
  return facts;
}

}  // namespace MELDO_GLOBAL::host
