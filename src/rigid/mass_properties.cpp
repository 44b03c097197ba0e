#include "rigid/mass_properties.h"

#include <cmath>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// tr(C) 1 - C for the second moments C.
Matrix3d InertiaOf(const Matrix3d& c) {
  const double trace = c[0] + c[4] + c[8];
  Matrix3d inertia;
  for (int i = 0; i < 9; ++i) inertia[i] = (i % 4 == 0 ? trace : 0) - c[i];
  return inertia;
}

}  // namespace

MassProperties MeasureMass(std::span<const Vec3d> vertices, std::span<const VecInt3D> triangles) {
  MassProperties mass;
  if (vertices.empty()) return mass;
  // Moments about a vertex: far from the origin those about it would cancel.
  const Vec3d base = vertices.front();
  double volume = 0;
  Vec3d first{};
  Matrix3d second{};
  for (const VecInt3D& t : triangles) {
    const Vec3d corner[3] = {vertices[t.x] - base, vertices[t.y] - base, vertices[t.z] - base};
    const double six = Dot(corner[0], Cross(corner[1], corner[2]));
    const Vec3d sum = corner[0] + corner[1] + corner[2];
    volume += six / 6;
    first += sum * (six / 24);
    // The integral of x x^T over a tetrahedron with a corner at 0.
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) {
        double product = sum[i] * sum[j];
        for (const Vec3d& c : corner) product += c[i] * c[j];
        second[3 * i + j] += six / 120 * product;
      }
  }
  if (volume < 0) {
    volume = -volume;
    first = first * -1.0;
    for (double& s : second) s = -s;
  }
  if (!(volume > 0)) return mass;
  const Vec3d centre = first / volume;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) second[3 * i + j] -= volume * centre[i] * centre[j];
  mass.volume = volume;
  mass.centre = base + centre;
  mass.inertia = InertiaOf(second);
  return mass;
}

Matrix3d MovedInertia(const MassProperties& mass, const Vec3d& away) {
  Matrix3d moved = mass.inertia;
  const double square = Dot(away, away);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      moved[3 * i + j] += mass.volume * ((i == j ? square : 0) - away[i] * away[j]);
  return moved;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
