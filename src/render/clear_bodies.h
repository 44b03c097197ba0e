// What clear bodies, such as water and glass, do to rays.
#pragma once
#include <array>

#include "render/sampler.h"

namespace MELDO_GLOBAL::app {

struct Surface;

/// The clear bodies that a point lies in. Where several overlap, the one of highest priority fills
/// the place; among equals the one that was entered last.
/// Schmidt, Budge, "Simple Nested Dielectrics in Ray Traced Images" (JGT 7/2, 2002).
class ClearBodies {
 public:
  /// What lies deeper than the tenth is left out.
  void Enter(const Surface* body);
  /// Whether it was there.
  bool Leave(const Surface* body);
  /// Where a ray meets the boundary of a body.
  void Cross(const Surface* body, bool isFromInside) {
    if (!isFromInside)
      Enter(body);
    else
      Leave(body);
  }
  /// The body that fills the place; null in the air.
  const Surface* Filling() const;
  double Index() const;
  /// Part of the light that a stretch of the body lets through; host units (Beer's law).
  Vec3d Passes(double length) const;

 private:
  std::array<const Surface*, 10> mBodies{};
  i32 mCount = 0;
};

/// Part of unpolarised light that a boundary mirrors, 0 to 1. `cosine` is that of the angle between
/// the normal and the light before it, `index` that behind the boundary by that before it.
double FresnelOf(double cosine, double index);

/// The way of light behind a boundary with the unit normal `n` against `direction`; no direction
/// (0) where all of it is mirrored.
Vec3d Refracted(const Vec3d& direction, const Vec3d& n, double index);

/// Two axes at right angles to a unit vector and to each other.
void MakeAxes(const Vec3d& n, Vec3d& a, Vec3d& b);
/// A direction at an angle of a given cosine to an axis; `turn` from 0 to 1 leads round it.
Vec3d AroundAxis(const Vec3d& axis, double cosine, double turn);
/// Normal of a facet of a rough surface, as often as it is there; `u` in the unit square.
/// Walter et al., "Microfacet Models for Refraction through Rough Surfaces" (2007), eq. 35, 36.
Vec3d FacetOf(const Vec3d& normal, double roughness, const Vec2D<double>& u);
/// Part of a facet's light that others don't hide, on one side (eq. 34). `cosine` is that between
/// the normal and the light's way.
double Masking(double cosine, double roughness);

/// Normal of a facet as often as a view sees it, which may come from below the others' plane.
/// Dupuy, Benyoub, "Sampling Visible GGX Normals with Spherical Caps" (2023), listing 3.
Vec3d VisibleFacet(const Vec3d& normal, const Vec3d& view, double roughness,
                   const Vec2D<double>& u);

/// The boundary of a rough clear body; `index` is that behind it by that before it.
struct RoughBoundary {
  Vec3d normal;
  double roughness = 0;
  double index = 1;
};
/// Follows light that a facet has turned until no other facet is in its way, as each mirrors it or
/// lets it through by chance: none is lost, however rough. As in Heitz et al., "Multiple-Scattering
/// Microfacet BSDFs with the Smith Model" (2016), but for the facets' heights, which each meeting
/// forgets.
void LeaveRough(const RoughBoundary& boundary, Sampler& sampler, Vec3d& way, bool& isBehind);

}  // namespace MELDO_GLOBAL::app
