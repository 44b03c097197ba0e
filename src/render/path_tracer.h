// Light along the rays of a picture.
#pragma once
#include <limits>
#include <vector>

#include "host/renderer.h"
#include "render/glow_tree.h"
#include "render/render_world.h"
#include "render/sampler.h"

namespace MELDO_GLOBAL::app {

/// What a camera ray sees.
struct RaySample {
  Vec3d colour;                 ///< without the sky behind everything
  Vec3d sky;                    ///< what comes through of the sky behind everything
  double alpha = 0;             ///< opacity of all that stands before the sky
  Vec3d scattering;             ///< light of lamps on the medium
  Vec3d emission;               ///< light of the medium itself
  Vec3d transmission{1, 1, 1};  ///< of the medium
  double depth = std::numeric_limits<double>::infinity();  ///< of the nearest thing, along the ray
  i64 samples = 0;  ///< of the media, on this ray and all that follow from it
};

/// Follows rays through a world and the media in it. Everything is read-only.
class PathTracer {
 public:
  using Media = std::vector<const host::VolumeMaterial*>;

  PathTracer(const RenderWorld& world, const host::RenderData& data, Media media, bool bounceLight);

  /// `pixel` is a place in the picture.
  RaySample TraceCamera(const Vec2D<double>& pixel, Sampler& sampler, i32 thread) const;

 private:
  static constexpr double kInfinity = std::numeric_limits<double>::infinity();
  static constexpr double kEndless = 1e6;  ///< host units; as far as rays go into the sky

  /// A ray on its way: what its random numbers and its flags need.
  struct Path {
    Sampler& sampler;
    i64& samples;
    i32 thread;
    ClearBodies inside;  ///< what its origin lies in
    i32 mirrors = 0;     ///< that it met
    i32 boundaries = 0;  ///< of clear bodies, that it met
    i32 bounces = 0;     ///< in a clear body, behind the first one
    u32 flags = 0;
    /// Chance a steradian with which a bounce took this direction, while it goes on straight; 0
    /// where nothing else is aimed at the sky.
    double density = 0;

    bool IsBounced() const { return flags & host::kRayGlobalIllumination; }
  };
  /// What is seen from a point beyond a distance. Particles that cover less than all are looked
  /// through, so many of them one by one.
  RaySample Look(const Vec3d& start, const Vec3d& direction, double near, double far, i32 layers,
                 const Path& path) const;
  host::RenderRay MakeRay(const Vec3d& origin, const Vec3d& direction, const Path& path) const;
  /// Light that comes back along a ray.
  Vec3d Radiance(const Vec3d& origin, const Vec3d& direction, const Path& path) const;
  /// Puts the media before what a ray met.
  void AddMedia(const host::RenderRay& ray, const SurfaceHit* hit, const Path& path,
                RaySample& sample) const;
  Vec3d ColourFor(const host::VolumeRecord& volume, std::size_t medium) const;
  Vec3d SkyLight(const Vec3d& direction, const Path& path) const;
  Vec3d Transparency(const Vec3d& origin, const Vec3d& direction, double length,
                     const Path& path) const;

  /// Light of a surface, without the sky that the ground fades into.
  Vec3d Shade(const SurfaceHit& hit, const Vec3d& direction, const Path& path) const;
  Vec3d DirectLight(const SurfaceHit& hit, const Vec3d& view, const Path& path,
                    bool withHighlights) const;
  Vec3d BouncedLight(const SurfaceHit& hit, const Path& path) const;
  /// What a surface that a bounce met gets from others.
  Vec3d LightBeyond(const SurfaceHit& hit, const Path& path) const;
  /// Light of the media on a surface.
  Vec3d GlowLight(const SurfaceHit& hit, const Path& path) const;
  /// Light of the bright parts of the sky's picture.
  Vec3d AimedSkyLight(const SurfaceHit& hit, const Path& path) const;
  Vec3d Reflection(const SurfaceHit& hit, const Vec3d& view, const Path& path) const;
  /// Light that a clear body mirrors and lets through.
  Vec3d ClearLight(const SurfaceHit& hit, const Vec3d& direction, const Path& path) const;
  Vec3d Beyond(const SurfaceHit& hit, const Vec3d& direction, const Path& path) const;

  const RenderWorld& mWorld;
  const host::RenderData& mData;
  const Media mMedia;
  const bool mBounceLight;
  std::vector<bool> mIsAimedAt;  ///< media whose own light bounced rays needn't gather
  GlowTree mGlow;
};

}  // namespace MELDO_GLOBAL::app
