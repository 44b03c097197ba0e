// The part of a square or a cube that lies inside the zero surface of values at its corners.
#pragma once
#include <algorithm>
#include <cmath>
#include <utility>

#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The inside part, 0 to 1, of the edge between two corner values; inside is what isn't above 0.
inline double EdgeFraction(double u, double v) {
  const auto away = [](double a) { return std::abs(a) < 1e-10 ? (a > 0 ? 1e-10 : -1e-10) : a; };
  u = away(u);
  v = away(v);
  if (u > 0 && v > 0) return 0;
  if (u <= 0 && v <= 0) return 1;
  return u <= 0 ? u / (u - v) : v / (v - u);
}

/// The inside part of a square with corner values `c` in cyclic order. A diagonal pair inside is
/// joined when the mean of the four isn't above 0, and stays two triangles when it is. Two walls
/// that meet in a corner of the square, their values 0 along both of its edges, leave all of it
/// open.
inline double SquareFraction(const double c[4]) {
  int inside[4], count = 0, first = -1;
  for (int i = 0; i < 4; ++i) {
    inside[i] = !(c[i] > 0);
    count += inside[i];
  }
  const auto edge = [&](int i, int j) { return EdgeFraction(c[i & 3], c[j & 3]); };
  const auto find = [&](int wanted) {
    for (first = 0; inside[first] != wanted;) ++first;
    return first;
  };
  switch (count) {
    case 0: return 0;
    case 1: {
      const int i = find(1);
      return 0.5 * edge(i, i + 3) * edge(i, i + 1);
    }
    case 2: {
      const int i = find(1);
      if (inside[(i + 1) & 3]) return 0.5 * (edge(i, i + 3) + edge(i + 1, i + 2));
      if (inside[(i + 3) & 3]) return 0.5 * (edge(i, i + 1) + edge(i + 3, i + 2));
      const double m = edge(i, i + 3), n = edge(i, i + 1);
      const double m2 = edge(i + 2, i + 3), n2 = edge(i + 2, i + 1);
      if ((c[0] + c[2]) + (c[1] + c[3]) > 0) return 0.5 * m * n + 0.5 * m2 * n2;
      return 1 - (0.5 * (1 - n) * (1 - n2) + 0.5 * (1 - m) * (1 - m2));
    }
    case 3: {
      const int i = find(0);
      const double rest =
          std::abs(c[(i + 1) & 3]) + std::abs(c[(i + 2) & 3]) + std::abs(c[(i + 3) & 3]);
      if (rest < 1e-10) return 0;
      return 1 - 0.5 * (1 - edge(i, i + 3)) * (1 - edge(i, i + 1));
    }
    default: return 1;
  }
}

/// The inside part of a tetrahedron with linear values between its corners.
inline double TetrahedronFraction(double s0, double s1, double s2, double s3) {
  if (s0 > s1) std::swap(s0, s1);
  if (s2 > s3) std::swap(s2, s3);
  if (s0 > s2) std::swap(s0, s2);
  if (s1 > s3) std::swap(s1, s3);
  if (s1 > s2) std::swap(s1, s2);
  if (!(s3 > 0)) return 1;
  if (!(s2 > 0)) return 1 - (s3 / (s3 - s2)) * (s3 / (s3 - s1)) * (s3 / (s3 - s0));
  if (!(s1 > 0)) {
    const double a = s0 / (s0 - s2), b = s0 / (s0 - s3), c = s1 / (s1 - s2), d = s1 / (s1 - s3);
    return a * b * (1 - c) + (1 - d) * b * c + c * d;
  }
  if (s0 > 0) return 0;
  return (s0 / (s0 - s1)) * (s0 / (s0 - s2)) * (s0 / (s0 - s3));
}

/// The inside part of a cube with corner values `c[x + 2 y + 4 z]`: the mean of its two splits into
/// five tetrahedra, of which the central one has twice the volume.
inline double CubeFraction(const double c[8]) {
  const auto tetrahedron = [c](int i, int j, int k, int l) {
    return TetrahedronFraction(c[i], c[j], c[k], c[l]);
  };
  // Corner numbers: 1 is x, 2 is y, 4 is z.
  const double even = tetrahedron(0, 5, 1, 3) + tetrahedron(0, 4, 5, 6) + tetrahedron(0, 2, 6, 3) +
                      tetrahedron(5, 6, 7, 3) + 2 * tetrahedron(0, 6, 5, 3);
  const double odd = tetrahedron(1, 5, 4, 7) + tetrahedron(1, 4, 0, 2) + tetrahedron(1, 3, 7, 2) +
                     tetrahedron(4, 7, 6, 2) + 2 * tetrahedron(1, 7, 4, 2);
  return (even + odd) / 12;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
