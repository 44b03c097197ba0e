#include "render/clear_bodies.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "render/surface.h"

namespace MELDO_GLOBAL::app {

void ClearBodies::Enter(const Surface* body) {
  if (mCount < static_cast<i32>(mBodies.size())) mBodies[static_cast<std::size_t>(mCount++)] = body;
}

bool ClearBodies::Leave(const Surface* body) {
  const auto end = mBodies.begin() + mCount;
  // The last one that was entered: bodies of one surface may lie in each other.
  const auto from = std::make_reverse_iterator(end);
  const auto found = std::find(from, mBodies.rend(), body);
  if (found == mBodies.rend()) return false;
  std::copy(found.base(), end, found.base() - 1);
  --mCount;
  return true;
}

const Surface* ClearBodies::Filling() const {
  const Surface* top = nullptr;
  for (i32 i = 0; i < mCount; ++i) {
    const Surface* body = mBodies[static_cast<std::size_t>(i)];
    if (!top || body->priority >= top->priority) top = body;
  }
  return top;
}

double ClearBodies::Index() const {
  const Surface* body = Filling();
  return body ? body->index : 1;
}

Vec3d ClearBodies::Passes(double length) const {
  const Surface* body = Filling();
  if (!body) return {1, 1, 1};
  const Vec3d depth = body->absorption * length;
  return {std::exp(-depth.x), std::exp(-depth.y), std::exp(-depth.z)};
}

double FresnelOf(double cosine, double index) {
  const double c = std::clamp(cosine, 0.0, 1.0);
  const double squared = 1 - (1 - c * c) / (index * index);
  if (squared <= 0) return 1;
  const double behind = std::sqrt(squared);
  const double across = (c - index * behind) / (c + index * behind);
  const double along = (index * c - behind) / (index * c + behind);
  return 0.5 * (across * across + along * along);
}

Vec3d Refracted(const Vec3d& direction, const Vec3d& n, double index) {
  const double c = -Dot(direction, n);
  const double squared = 1 - (1 - c * c) / (index * index);
  if (squared <= 0) return {};
  return Normalised(direction / index + n * (c / index - std::sqrt(squared)));
}

/// Duff et al., "Building an Orthonormal Basis, Revisited" (JCGT 6/1, 2017).
void MakeAxes(const Vec3d& n, Vec3d& a, Vec3d& b) {
  const double sign = std::copysign(1.0, n.z);
  const double f = -1 / (sign + n.z);
  const double g = n.x * n.y * f;
  a = {1 + sign * n.x * n.x * f, sign * g, -sign * n.x};
  b = {g, sign + n.y * n.y * f, -n.y};
}

Vec3d AroundAxis(const Vec3d& axis, double cosine, double turn) {
  Vec3d a, b;
  MakeAxes(axis, a, b);
  const double sine = std::sqrt(std::max(0.0, 1 - cosine * cosine));
  const double angle = 2 * std::numbers::pi * turn;
  return a * (sine * std::cos(angle)) + b * (sine * std::sin(angle)) + axis * cosine;
}

Vec3d FacetOf(const Vec3d& normal, double roughness, const Vec2D<double>& u) {
  const double a2 = std::pow(roughness, 4);
  return AroundAxis(normal, std::sqrt((1 - u.x) / (1 + (a2 - 1) * u.x)), u.y);
}

double Masking(double cosine, double roughness) {
  const double a2 = std::pow(roughness, 4);
  return 2 * cosine / (cosine + std::sqrt(a2 + (1 - a2) * cosine * cosine));
}

Vec3d VisibleFacet(const Vec3d& normal, const Vec3d& view, double roughness,
                   const Vec2D<double>& u) {
  const double alpha = roughness * roughness;
  Vec3d a, b;
  MakeAxes(normal, a, b);
  const Vec3d from =
      Normalised(Vec3d{alpha * Dot(view, a), alpha * Dot(view, b), Dot(view, normal)});
  const double z = (1 - u.y) * (1 + from.z) - from.z;
  const Vec3d half = AroundAxis({0, 0, 1}, z, u.x) + from;
  const Vec3d facet = a * (alpha * half.x) + b * (alpha * half.y) + normal * half.z;
  const double length = Length(facet);
  return length > 0 ? facet / length : normal;
}

void LeaveRough(const RoughBoundary& boundary, Sampler& sampler, Vec3d& way, bool& isBehind) {
  constexpr i32 kMostFacets = 16;
  for (i32 met = 0; met < kMostFacets; ++met) {
    const Vec3d up = isBehind ? -boundary.normal : boundary.normal;
    const double rise = Dot(way, up);
    if (rise > 0 && sampler.Next1D() < Masking(rise, boundary.roughness)) return;
    const Vec3d facet = VisibleFacet(up, -way, boundary.roughness, sampler.Next2D());
    const double index = isBehind ? 1 / boundary.index : boundary.index;
    const double cosine = -Dot(way, facet);
    if (sampler.Next1D() < FresnelOf(cosine, index)) {
      way = way + facet * (2 * cosine);
    } else {
      way = Refracted(way, facet, index);
      isBehind = !isBehind;
    }
  }
}

}  // namespace MELDO_GLOBAL::app
