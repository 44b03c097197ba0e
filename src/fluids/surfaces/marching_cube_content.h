// What marching cubes enclose in a cell.
#pragma once
#include <algorithm>
#include <cmath>

#include "fluids/surfaces/marching_cube.h"
#include "fluids/volume/cell_fractions.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A cell's part inside the polygons that marching cubes make of it, 0 to 1, and by how much that
/// grows, nearly, when its values fall by one.
struct CubeContent {
  double inside = 0, growth = 0;
};

/// Of the values at a cell's corners in steps of cells, as `MarchingCube` numbers them: the flux of
/// the way from corner 0 through all that bounds the inside. Its lower sides have none.
inline CubeContent ContentOf(const double* values) {
  const MarchingCube::Case& cut = MarchingCube::CaseOf(values);
  Vec3d points[MarchingCube::kMiddle + 1];
  const auto place = [&](u8 edge) {
    const i32 corner = MarchingCube::CornerOf(edge), axis = edge >> 2;
    const double a = values[corner], b = values[corner | 1 << axis];
    Vec3d p{double(corner & 1), double(corner >> 1 & 1), double(corner >> 2 & 1)};
    p[axis] += a / (a - b);
    return points[edge] = p;
  };
  Vec3d middle{};
  for (const u8 edge : cut.fan) middle += place(edge);
  if (!cut.fan.empty()) points[MarchingCube::kMiddle] = middle / double(cut.fan.size());
  double flux = 0, area = 0;
  for (const auto& triangle : cut.triangles) {
    Vec3d p[3];
    for (i32 i = 0; i < 3; ++i)
      p[i] = triangle[i] == MarchingCube::kMiddle ? points[triangle[i]] : place(triangle[i]);
    const Vec3d normal = Cross(p[1] - p[0], p[2] - p[0]);
    flux += 0.5 * Dot(p[0], normal);
    area += 0.5 * Length(normal);
  }
  const double* v = values;
  const double upper[3][4] = {
      {v[1], v[3], v[7], v[5]}, {v[2], v[3], v[7], v[6]}, {v[4], v[5], v[7], v[6]}};
  for (const auto& side : upper) flux += SquareFraction(side);
  const Vec3d slope{v[1] + v[3] + v[5] + v[7] - v[0] - v[2] - v[4] - v[6],
                    v[2] + v[3] + v[6] + v[7] - v[0] - v[1] - v[4] - v[5],
                    v[4] + v[5] + v[6] + v[7] - v[0] - v[1] - v[2] - v[3]};
  constexpr double kLeastSlope = 0.25;
  return {flux / 3, area / std::max(kLeastSlope, 0.25 * Length(slope))};
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
