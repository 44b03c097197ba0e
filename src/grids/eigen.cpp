#include "grids/eigen.h"

#include <cmath>
#include <cstdio>

namespace MELDO_GLOBAL {

namespace {

constexpr double kNegligible = 1e-10;
constexpr int kMaxSteps = 30;

struct Tridiagonal {
  double diagonal[3];
  double off[3];  ///< off[i] couples i and i + 1; the last is 0
};

/// Reflects the part of the last row left of the diagonal onto its last element, which is all that
/// three rows need; `q` takes the reflection.
Tridiagonal Reduce(const Matrix3d& a, Matrix3d& q) {
  q = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  const double scale = std::abs(a[6]) + std::abs(a[7]);
  if (scale < kNegligible) return {{a[0], a[4], a[8]}, {a[3], a[7], 0}};
  const double x = a[6] / scale, y = a[7] / scale;
  const double length = std::copysign(std::sqrt(x * x + y * y), y);
  const double u[2] = {x, y + length};
  const double h = (u[0] * u[0] + u[1] * u[1]) / 2;
  for (int i = 0; i < 2; ++i)
    for (int j = 0; j < 2; ++j) q[i * 3 + j] -= u[i] * u[j] / h;
  const double block[2][2] = {{a[0], a[3]}, {a[3], a[4]}};
  double turned[2][2] = {};
  for (int i = 0; i < 2; ++i)
    for (int j = 0; j < 2; ++j)
      for (int k = 0; k < 2; ++k)
        for (int l = 0; l < 2; ++l) turned[i][j] += q[i * 3 + k] * block[k][l] * q[l * 3 + j];
  return {{turned[0][0], turned[1][1], a[8]}, {turned[1][0], -length * scale, 0}};
}

/// The first m >= l whose coupling to m + 1 is negligible beside the two diagonals.
int FirstUncoupled(const Tridiagonal& t, int l) {
  for (int m = l; m < 2; ++m) {
    const double sum = std::abs(t.diagonal[m]) + std::abs(t.diagonal[m + 1]);
    if (std::abs((std::abs(t.off[m]) + sum) - sum) < kNegligible) return m;
  }
  return 2;
}

/// One implicit QL step on rows l to m; the plane rotations go into the columns of `z`.
void QlStep(Tridiagonal& t, int l, int m, Matrix3d& z) {
  double* d = t.diagonal;
  double* e = t.off;
  double g = (d[l + 1] - d[l]) / (2 * e[l]);
  g = d[m] - d[l] + e[l] / (g + std::copysign(std::hypot(g, 1.0), g));
  double s = 1, c = 1, p = 0;
  for (int i = m - 1; i >= l; --i) {
    const double f = s * e[i], b = c * e[i];
    const double r = std::hypot(f, g);
    e[i + 1] = r;
    if (r == 0) {
      d[i + 1] -= p;
      e[m] = 0;
      return;
    }
    s = f / r;
    c = g / r;
    const double rest = d[i + 1] - p;
    const double turn = (d[i] - rest) * s + 2 * c * b;
    p = s * turn;
    d[i + 1] = rest + p;
    g = c * turn - b;
    for (int row = 0; row < 3; ++row) {
      double& left = z[row * 3 + i];
      double& right = z[row * 3 + i + 1];
      const double old = right;
      right = s * left + c * old;
      left = c * left - s * old;
    }
  }
  d[l] -= p;
  e[l] = g;
  e[m] = 0;
}

void eigenTqli(Tridiagonal& t, Matrix3d& z) {
  for (int l = 0; l < 3; ++l) {
    int steps = 0;
    for (int m = FirstUncoupled(t, l); m != l; m = FirstUncoupled(t, l)) {
      if (++steps == kMaxSteps) {
        std::fputs("SlSymetricEigenDecomp:: Too many iterations in eigenTqli.\n", stderr);
        return;
      }
      QlStep(t, l, m, z);
    }
  }
}

}  // namespace

void SlSymetricEigenDecomp(const Matrix3d& a, Vec3d& values, Matrix3d& vectors) {
  Tridiagonal t = Reduce(a, vectors);
  eigenTqli(t, vectors);
  values = {t.diagonal[0], t.diagonal[1], t.diagonal[2]};
}

}  // namespace MELDO_GLOBAL
