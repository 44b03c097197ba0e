// Small vectors: plain values with arithmetic by component.
#pragma once
#include <algorithm>
#include <cmath>

#include "host/types.h"

namespace MELDO_GLOBAL {

/// Three components. `*` between vectors multiplies by component; dot and cross are named.
template <class T>
struct Vec3D {
  T x{}, y{}, z{};

  constexpr T& operator[](int axis) { return axis == 0 ? x : axis == 1 ? y : z; }
  constexpr const T& operator[](int axis) const { return axis == 0 ? x : axis == 1 ? y : z; }

  constexpr Vec3D& operator+=(const Vec3D& o) { return x += o.x, y += o.y, z += o.z, *this; }
  constexpr Vec3D& operator-=(const Vec3D& o) { return x -= o.x, y -= o.y, z -= o.z, *this; }
  constexpr Vec3D& operator*=(T s) { return x *= s, y *= s, z *= s, *this; }

  friend constexpr Vec3D operator+(Vec3D a, const Vec3D& b) { return a += b; }
  friend constexpr Vec3D operator-(Vec3D a, const Vec3D& b) { return a -= b; }
  friend constexpr Vec3D operator-(const Vec3D& a) { return {-a.x, -a.y, -a.z}; }
  friend constexpr Vec3D operator*(const Vec3D& a, const Vec3D& b) {
    return {a.x * b.x, a.y * b.y, a.z * b.z};
  }
  friend constexpr Vec3D operator/(const Vec3D& a, const Vec3D& b) {
    return {a.x / b.x, a.y / b.y, a.z / b.z};
  }
  friend constexpr Vec3D operator*(Vec3D a, T s) { return a *= s; }
  friend constexpr Vec3D operator*(T s, Vec3D a) { return a *= s; }
  friend constexpr Vec3D operator/(const Vec3D& a, T s) { return {a.x / s, a.y / s, a.z / s}; }
  friend constexpr bool operator==(const Vec3D&, const Vec3D&) = default;
};

/// Two components, used for texture coordinates and curve knots.
template <class T>
struct Vec2D {
  T x{}, y{};
  friend constexpr bool operator==(const Vec2D&, const Vec2D&) = default;
};

using VecInt3D = Vec3D<i32>;
using Vec3d = Vec3D<double>;

template <class T>
constexpr T Dot(const Vec3D<T>& a, const Vec3D<T>& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}

template <class T>
constexpr Vec3D<T> Cross(const Vec3D<T>& a, const Vec3D<T>& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

template <class T>
T Length(const Vec3D<T>& v) {
  return std::sqrt(Dot(v, v));
}

/// The unit vector of `v`; the zero vector stays zero.
template <class T>
Vec3D<T> Normalised(const Vec3D<T>& v) {
  const T length = Length(v);
  return length == T(0) ? Vec3D<T>{} : v / length;
}

template <class T>
constexpr Vec3D<T> Min(const Vec3D<T>& a, const Vec3D<T>& b) {
  return {std::min(a.x, b.x), std::min(a.y, b.y), std::min(a.z, b.z)};
}

template <class T>
constexpr Vec3D<T> Max(const Vec3D<T>& a, const Vec3D<T>& b) {
  return {std::max(a.x, b.x), std::max(a.y, b.y), std::max(a.z, b.z)};
}

/// The largest component.
template <class T>
constexpr T Largest(const Vec3D<T>& v) {
  return std::max({v.x, v.y, v.z});
}

constexpr Vec3d ToReal(const VecInt3D& v) { return {double(v.x), double(v.y), double(v.z)}; }

/// A quotient that counts cells, moved 1e-6 away from zero and truncated, so that a whole number
/// of cells never falls one short by rounding.
inline i32 TruncateNudged(double c) { return static_cast<i32>(c < 0 ? c - 1e-6 : c + 1e-6); }
inline VecInt3D TruncateNudged(const Vec3d& c) {
  return {TruncateNudged(c.x), TruncateNudged(c.y), TruncateNudged(c.z)};
}

}  // namespace MELDO_GLOBAL
