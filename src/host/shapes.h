// Primitive shapes: closed, outward turned geometry with shared points.
#pragma once
#include <optional>
#include <string_view>

#include "host/polygon_object.h"

namespace MELDO_GLOBAL::host {

inline constexpr i32 kMinSegments = 3;
inline constexpr i32 kMaxSegments = 2048;

/// Sizes of a shape as full extents in host units; each shape reads the members that it has.
struct ShapeArguments {
  Vec3d size{100, 100, 100};  ///< box; x and z of a plane
  double radius = 50;         ///< sphere, cylinder, cone; of a torus to the middle of its tube
  double height = 100;        ///< cylinder, cone: along y
  double tube = 20;           ///< torus: radius of the tube
  i32 segments = 32;          ///< round the y axis, kMinSegments to kMaxSegments
};

// All shapes are centred on their origin and have uvs. The makers throw std::invalid_argument when
// a size isn't above 0 or not finite, or `segments` is out of range.

/// Eight points, six quads.
Geometry MakeBox(const ShapeArguments& arguments);
/// Poles on y, half as many segments from pole to pole as round; quads, and triangles at the poles.
Geometry MakeSphere(const ShapeArguments& arguments);
/// One quad in the xz plane that faces up (+y); not closed.
Geometry MakePlane(const ShapeArguments& arguments);
/// Round y, with caps of triangles round a middle point.
Geometry MakeCylinder(const ShapeArguments& arguments);
/// Tip at the top (+y), with a bottom cap of triangles round a middle point.
Geometry MakeCone(const ShapeArguments& arguments);
/// Round y, half as many segments round the tube (at least 3) as round the axis; quads.
Geometry MakeTorus(const ShapeArguments& arguments);
/// An icosahedron whose triangles are split in four `level` times (0 to 8), points on the sphere;
/// without uvs.
Geometry MakeIcosphere(i32 level, double radius = 50);

/// The shape that a scene file calls `type` ("box", "sphere", "plane", "cylinder", "cone",
/// "torus"); nothing for another word.
std::optional<Geometry> MakeShape(std::string_view type, const ShapeArguments& arguments);

}  // namespace MELDO_GLOBAL::host
