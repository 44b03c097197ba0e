#include "host/shapes.h"

#include <cmath>
#include <numbers>
#include <stdexcept>
#include <unordered_map>

namespace MELDO_GLOBAL::host {

namespace {
using Uv4 = std::array<Vec3d, 4>;

void RequireSize(double size, const char* what) {
  if (!(size > 0) || !std::isfinite(size))
    throw std::invalid_argument(std::string(what) + " must be above 0");
}

void RequireSegments(i32 segments) {
  if (segments < kMinSegments || segments > kMaxSegments)
    throw std::invalid_argument("segments must be " + std::to_string(kMinSegments) + " to " +
                                std::to_string(kMaxSegments));
}

/// A circle in the xz plane, cut into equal parts. Symmetric to the bit where the count allows:
/// only the first eighth is computed, the rest are its mirror images.
class Circle {
 public:
  explicit Circle(i32 count) : mCount(count) {}
  Vec2D<double> operator[](i32 i) const { return At(8 * static_cast<i64>(i % mCount)); }

 private:
  // `eighths` counts in parts of 1/(8 count) of a turn.
  Vec2D<double> At(i64 eighths) const {
    const i64 full = 8 * static_cast<i64>(mCount);
    if (2 * eighths > full) return {At(full - eighths).x, -At(full - eighths).y};
    if (4 * eighths > full) return {-At(full / 2 - eighths).x, At(full / 2 - eighths).y};
    if (8 * eighths > full) return {At(full / 4 - eighths).y, At(full / 4 - eighths).x};
    if (8 * eighths == full) return {std::numbers::sqrt2 / 2, std::numbers::sqrt2 / 2};
    const double angle = 2 * std::numbers::pi * static_cast<double>(eighths) / full;
    return {std::cos(angle), std::sin(angle)};
  }
  i32 mCount;
};

/// Collects points and polygons with their uvs.
struct Builder {
  Geometry geometry;

  i32 Point(double x, double y, double z) {
    geometry.points.push_back({x, y, z});
    return static_cast<i32>(geometry.points.size()) - 1;
  }
  void Triangle(i32 a, i32 b, i32 c, const Vec3d& ua, const Vec3d& ub, const Vec3d& uc) {
    geometry.polygons.push_back({a, b, c, c});
    geometry.uvs.push_back({ua, ub, uc, uc});
  }
  void Quad(const Polygon& quad, const Uv4& uvs) {
    geometry.polygons.push_back(quad);
    geometry.uvs.push_back(uvs);
  }

  /// A ring of points round y. Returns the index of its first point.
  i32 Ring(const Circle& circle, i32 segments, double radius, double y) {
    const i32 first = static_cast<i32>(geometry.points.size());
    for (i32 i = 0; i < segments; ++i) Point(radius * circle[i].x, y, radius * circle[i].y);
    return first;
  }
  /// Quads between a lower and an upper ring, facing away from the axis.
  void Band(i32 lower, i32 upper, i32 segments, double vLower, double vUpper) {
    for (i32 i = 0; i < segments; ++i) {
      const i32 j = (i + 1) % segments;
      const double u0 = 1.0 - double(i) / segments, u1 = 1.0 - double(i + 1) / segments;
      Quad({lower + j, lower + i, upper + i, upper + j},
           {Vec3d{u1, vLower, 0}, {u0, vLower, 0}, {u0, vUpper, 0}, {u1, vUpper, 0}});
    }
  }
  /// Triangles between a ring and one point: above the ring, or below it.
  void Fan(i32 ring, i32 tip, i32 segments, bool above, double vRing, double vTip) {
    for (i32 i = 0; i < segments; ++i) {
      const i32 j = (i + 1) % segments;
      const double u0 = 1.0 - double(i) / segments, u1 = 1.0 - double(i + 1) / segments;
      const Vec3d ui{u0, vRing, 0}, uj{u1, vRing, 0}, ut{0.5 * (u0 + u1), vTip, 0};
      if (above) {
        Triangle(ring + j, ring + i, tip, uj, ui, ut);
      } else {
        Triangle(ring + i, ring + j, tip, ui, uj, ut);
      }
    }
  }
};
}  // namespace

Geometry MakeBox(const ShapeArguments& arguments) {
  for (int axis = 0; axis < 3; ++axis) RequireSize(arguments.size[axis], "size");
  const Vec3d h = arguments.size * 0.5;
  Builder b;
  // Bits of the index are the sides: 1 for +x, 2 for +y, 4 for +z.
  for (i32 i = 0; i < 8; ++i) b.Point(i & 1 ? h.x : -h.x, i & 2 ? h.y : -h.y, i & 4 ? h.z : -h.z);
  // Corners as seen from outside with the picture upright: left to right, then up.
  constexpr Polygon faces[] = {{4, 5, 7, 6}, {1, 0, 2, 3}, {5, 1, 3, 7},
                               {0, 4, 6, 2}, {6, 7, 3, 2}, {0, 1, 5, 4}};
  for (const Polygon& face : faces) b.Quad(face, {Vec3d{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}});
  return std::move(b.geometry);
}

Geometry MakeSphere(const ShapeArguments& arguments) {
  RequireSize(arguments.radius, "radius");
  RequireSegments(arguments.segments);
  const i32 round = arguments.segments, rings = std::max(2, round / 2);
  const Circle circle(round), meridian(2 * rings);
  Builder b;
  const i32 bottom = b.Point(0, -arguments.radius, 0);
  i32 last = -1;
  for (i32 k = 1; k < rings; ++k) {
    const i32 ring =
        b.Ring(circle, round, arguments.radius * meridian[k].y, -arguments.radius * meridian[k].x);
    if (k == 1) {
      b.Fan(ring, bottom, round, false, 1.0 / rings, 0);
    } else {
      b.Band(last, ring, round, double(k - 1) / rings, double(k) / rings);
    }
    last = ring;
  }
  const i32 top = b.Point(0, arguments.radius, 0);
  b.Fan(last, top, round, true, double(rings - 1) / rings, 1);
  return std::move(b.geometry);
}

Geometry MakePlane(const ShapeArguments& arguments) {
  RequireSize(arguments.size.x, "size");
  RequireSize(arguments.size.z, "size");
  const double x = 0.5 * arguments.size.x, z = 0.5 * arguments.size.z;
  Builder b;
  b.Point(-x, 0, z), b.Point(x, 0, z), b.Point(x, 0, -z), b.Point(-x, 0, -z);
  b.Quad({0, 1, 2, 3}, {Vec3d{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}});
  return std::move(b.geometry);
}

Geometry MakeCylinder(const ShapeArguments& arguments) {
  RequireSize(arguments.radius, "radius");
  RequireSize(arguments.height, "height");
  RequireSegments(arguments.segments);
  const i32 round = arguments.segments;
  const double y = 0.5 * arguments.height;
  const Circle circle(round);
  Builder b;
  const i32 lower = b.Ring(circle, round, arguments.radius, -y);
  const i32 upper = b.Ring(circle, round, arguments.radius, y);
  const i32 bottom = b.Point(0, -y, 0), top = b.Point(0, y, 0);
  b.Band(lower, upper, round, 0, 1);
  b.Fan(lower, bottom, round, false, 0, 1);
  b.Fan(upper, top, round, true, 0, 1);
  return std::move(b.geometry);
}

Geometry MakeCone(const ShapeArguments& arguments) {
  RequireSize(arguments.radius, "radius");
  RequireSize(arguments.height, "height");
  RequireSegments(arguments.segments);
  const i32 round = arguments.segments;
  const double y = 0.5 * arguments.height;
  Builder b;
  const i32 lower = b.Ring(Circle(round), round, arguments.radius, -y);
  const i32 bottom = b.Point(0, -y, 0), tip = b.Point(0, y, 0);
  b.Fan(lower, tip, round, true, 0, 1);
  b.Fan(lower, bottom, round, false, 0, 1);
  return std::move(b.geometry);
}

Geometry MakeTorus(const ShapeArguments& arguments) {
  RequireSize(arguments.radius, "radius");
  RequireSize(arguments.tube, "tube");
  RequireSegments(arguments.segments);
  if (arguments.tube >= arguments.radius) throw std::invalid_argument("tube must be below radius");
  const i32 round = arguments.segments, sides = std::max(3, round / 2);
  const Circle circle(round), section(sides);
  Builder b;
  for (i32 k = 0; k < sides; ++k)
    b.Ring(circle, round, arguments.radius + arguments.tube * section[k].x,
           arguments.tube * section[k].y);
  for (i32 k = 0; k < sides; ++k)
    b.Band(k * round, (k + 1) % sides * round, round, double(k) / sides, double(k + 1) / sides);
  return std::move(b.geometry);
}

namespace {
/// The twelve points and twenty triangles of an icosahedron of radius 1.
Geometry Icosahedron() {
  Geometry g;
  const double t = std::numbers::phi, scale = 1.0 / std::sqrt(1 + t * t);
  for (int axis = 0; axis < 3; ++axis)
    for (const double major : {-t, t})
      for (const double minor : {-1.0, 1.0}) {
        Vec3d p{};
        p[axis] = major * scale;
        p[(axis + 1) % 3] = minor * scale;
        g.points.push_back(p);
      }
  // Every three points at the edge length of 2 from each other are a face.
  const auto near = [&](int i, int j) { return Length(g.points[i] - g.points[j]) < 2.1 * scale; };
  for (int i = 0; i < 12; ++i)
    for (int j = i + 1; j < 12; ++j)
      for (int k = j + 1; k < 12; ++k) {
        if (!near(i, j) || !near(j, k) || !near(i, k)) continue;
        const bool outward = Dot(g.points[i], Cross(g.points[j], g.points[k])) > 0;
        g.polygons.push_back(outward ? Polygon{i, j, k, k} : Polygon{i, k, j, j});
      }
  return g;
}

void SplitInFour(Geometry& g) {
  std::unordered_map<u64, i32> middles;
  const auto middle = [&](i32 a, i32 b) {
    const u64 key = static_cast<u64>(std::min(a, b)) << 32 | static_cast<u32>(std::max(a, b));
    const auto [entry, isNew] = middles.try_emplace(key, static_cast<i32>(g.points.size()));
    if (isNew) g.points.push_back(Normalised(g.points[a] + g.points[b]));
    return entry->second;
  };
  std::vector<Polygon> finer;
  finer.reserve(4 * g.polygons.size());
  for (const Polygon& p : g.polygons) {
    const i32 ab = middle(p.a, p.b), bc = middle(p.b, p.c), ca = middle(p.c, p.a);
    finer.insert(finer.end(),
                 {{p.a, ab, ca, ca}, {p.b, bc, ab, ab}, {p.c, ca, bc, bc}, {ab, bc, ca, ca}});
  }
  g.polygons = std::move(finer);
}
}  // namespace

Geometry MakeIcosphere(i32 level, double radius) {
  RequireSize(radius, "radius");
  if (level < 0 || level > 8) throw std::invalid_argument("level must be 0 to 8");
  Geometry g = Icosahedron();
  for (i32 i = 0; i < level; ++i) SplitInFour(g);
  for (Vec3d& p : g.points) p *= radius;
  return g;
}

std::optional<Geometry> MakeShape(std::string_view type, const ShapeArguments& arguments) {
  if (type == "box") return MakeBox(arguments);
  if (type == "sphere") return MakeSphere(arguments);
  if (type == "plane") return MakePlane(arguments);
  if (type == "cylinder") return MakeCylinder(arguments);
  if (type == "cone") return MakeCone(arguments);
  if (type == "torus") return MakeTorus(arguments);
  return {};
}

}  // namespace MELDO_GLOBAL::host
