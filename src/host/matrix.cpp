#include "host/matrix.h"

#include <numbers>

namespace MELDO_GLOBAL {

Matrix Inverse(const Matrix& m) {
  const double det = Dot(m.v1, Cross(m.v2, m.v3));
  if (det == 0) return {};
  // Rows of the inverse are the cross products of the columns over the determinant.
  const Vec3d r1 = Cross(m.v2, m.v3) / det;
  const Vec3d r2 = Cross(m.v3, m.v1) / det;
  const Vec3d r3 = Cross(m.v1, m.v2) / det;
  Matrix inverse;
  inverse.v1 = {r1.x, r2.x, r3.x};
  inverse.v2 = {r1.y, r2.y, r3.y};
  inverse.v3 = {r1.z, r2.z, r3.z};
  inverse.offset = -inverse.Rotate(m.offset);
  return inverse;
}

Matrix RotationOf(const Matrix& m) {
  const Vec3d a = Normalised(m.v1);
  const Vec3d b = Normalised(m.v2 - a * Dot(a, m.v2));
  const Vec3d c = Normalised(m.v3 - a * Dot(a, m.v3) - b * Dot(b, m.v3));
  return {{}, a, b, c};
}

Matrix Placement(const Vec3d& position, const Vec3d& rotationDegrees, const Vec3d& scale) {
  const Vec3d a = rotationDegrees * (std::numbers::pi / 180.0);
  const double cx = std::cos(a.x), sx = std::sin(a.x);
  const double cy = std::cos(a.y), sy = std::sin(a.y);
  const double cz = std::cos(a.z), sz = std::sin(a.z);
  const Matrix rx{{}, {1, 0, 0}, {0, cx, sx}, {0, -sx, cx}};
  const Matrix ry{{}, {cy, 0, -sy}, {0, 1, 0}, {sy, 0, cy}};
  const Matrix rz{{}, {cz, sz, 0}, {-sz, cz, 0}, {0, 0, 1}};
  Matrix m = rz * ry * rx;
  m.v1 *= scale.x;
  m.v2 *= scale.y;
  m.v3 *= scale.z;
  m.offset = position;
  return m;
}

Vec3d RotationVector(const Matrix& from, const Matrix& to) {
  const Matrix a = RotationOf(from), b = RotationOf(to);
  // R = B A^T, element (i, j) = sum over axes of b_k[i] a_k[j].
  const auto r = [&](int i, int j) {
    return b.v1[i] * a.v1[j] + b.v2[i] * a.v2[j] + b.v3[i] * a.v3[j];
  };
  const Vec3d skew{r(2, 1) - r(1, 2), r(0, 2) - r(2, 0), r(1, 0) - r(0, 1)};  // 2 sin(angle) axis
  const double twoSin = Length(skew);
  const double twoCos = r(0, 0) + r(1, 1) + r(2, 2) - 1.0;
  const double angle = std::atan2(twoSin, twoCos);
  if (twoCos > -1.0) return twoSin > 0 ? skew * (angle / twoSin) : Vec3d{};
  // Towards half a turn the skew part fades: the axis is the largest column of the symmetric part,
  // cos + (1 - cos) axis axis^T, less cos; the skew part still tells its sign.
  Vec3d axis{};
  for (int j = 0; j < 3; ++j) {
    Vec3d column{0.5 * (r(0, j) + r(j, 0)), 0.5 * (r(1, j) + r(j, 1)), 0.5 * (r(2, j) + r(j, 2))};
    column[j] -= 0.5 * twoCos;
    if (Dot(column, column) > Dot(axis, axis)) axis = column;
  }
  return Normalised(axis) * (Dot(axis, skew) < 0 ? -angle : angle);
}

}  // namespace MELDO_GLOBAL
