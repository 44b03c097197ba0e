// Particles as rays see them.
#pragma once
#include <memory>
#include <vector>

#include "host/renderer.h"
#include "render/camera.h"

namespace MELDO_GLOBAL::app {

/// A particle that a ray met.
struct SphereHit {
  double distance = 0;
  Vec3d normal;      ///< towards the ray's origin
  double cover = 1;  ///< part of the light from behind that it takes away
  u32 cloud = 0;
  Vec3d colour, emission;
};

/// Spheres in the world, moving straight while the shutter is open. Read by any number of threads.
///
/// A moving sphere isn't met at moments: it covers what is behind a ray for the part of the
/// shutter's time in which it stands before it, so that streaks are smooth with few rays. Rays that
/// start in a sphere don't meet it.
class SphereScene {
 public:
  /// How the spheres of a cloud answer to light.
  struct Look {
    double reflection, roughness;
  };

  /// `shutter` is the time that the shutter is open, in frames; 0 without blur. The camera says
  /// which spheres look smaller than their clouds allow.
  SphereScene(const std::vector<host::SphereCloud>& clouds, const Camera& camera, double shutter);
  ~SphereScene();
  SphereScene(const SphereScene&) = delete;
  SphereScene& operator=(const SphereScene&) = delete;

  const std::vector<Look>& Looks() const { return mLooks; }
  std::size_t Count() const;

  /// The nearest sphere beyond `near` and before `far`. Of spheres that cover less than all, either
  /// each one counts, or as many as its part says, by a chance that only the ray decides.
  bool Trace(const Vec3d& origin, const Vec3d& direction, double near, double far, bool everyOne,
             SphereHit& hit) const;
  /// Whether there is a sphere between two distances, by the same chance.
  bool IsBlocked(const Vec3d& origin, const Vec3d& direction, double near, double far) const;

 private:
  struct Impl;
  std::vector<Look> mLooks;
  std::unique_ptr<Impl> mImpl;
};

}  // namespace MELDO_GLOBAL::app
