// What a renderer and its materials tell each other: rays, hits, lights, and the callbacks of a
// material that fills space.
//
// Lengths and points are in host units, directions have length 1, colours are linear RGB. All
// callbacks run on many render threads at once and change nothing but their record.
#pragma once
#include <limits>
#include <memory>
#include <vector>

#include "host/document.h"
#include "host/worker_pool.h"

namespace MELDO_GLOBAL::host {

/// How a ray came about; a camera ray has none of them.
enum RayFlag : u32 {
  kRayReflection = 0x10,
  kRayTransparency = 0x20,
  kRayRefraction = 0x40,
  kRayVolumeLight = 0x100,  ///< gathers light for visible beams
  kRayGlobalIllumination = 0x400,
  kRayAmbientOcclusion = 0x2000,
};

/// What a picture is made for.
enum RenderFlag : u32 {
  kRenderFinal = 8,  ///< the picture itself, not a look in between
};

/// A ray of the renderer, and the random numbers that belong to it. They come from the pixel and
/// the sample alone, so that a picture doesn't depend on the thread that draws it.
struct RenderRay {
  Vec3d origin;
  Vec3d direction;
  u32 flags = 0;      ///< RayFlag
  i32 thread = 0;     ///< index of the render thread, 0 to RenderData::threadCount - 1
  u64 seed = 0;       ///< differs for every pixel, sample and bounce
  double random = 0;  ///< 0 <= random < 1, spread evenly over the samples of a pixel
};

enum class HitKind : i32 {
  Surface = 0,
  Background = 1,  ///< sky: infinitely far
};

/// Where a ray ended.
struct HitRecord {
  HitKind kind = HitKind::Surface;
  Vec3d point;
  Vec3d normal;         ///< towards the ray's origin
  double distance = 0;  ///< from the ray's origin
};

/// A light of the scene at the time of the picture.
class RenderLight {
 public:
  virtual ~RenderLight() = default;

  /// The light object, for lists of lights.
  virtual NodeId Node() const = 0;
  /// Its colour with its brightness, wherever it shines.
  virtual Vec3d Colour() const = 0;
  /// False for a light that leaves smoke in the dark.
  virtual bool IlluminatesVolumes() const = 0;

  /// What arrives at a point.
  struct Illumination {
    Vec3d colour;         ///< with brightness, cone and falloff, and shadows where asked for
    Vec3d direction;      ///< from the light to the point
    double distance = 0;  ///< to the light; kFarLight for a distant one
    Vec3d shadow;         ///< part that meshes take away, 0 to 1; zero where not asked for
  };
  static constexpr double kFarLight = 1e6;

  /// The light at a point; black outside a cone. With `withShadows` meshes block it; smoke never
  /// does here, that is the medium's own business. The same point gives the same answer.
  virtual Illumination Illuminate(const Vec3d& point, bool withShadows) const = 0;
  /// From the light to the point: what `Illuminate` answers, at the price of a square root.
  virtual Vec3d DirectionTo(const Vec3d& point) const = 0;
};

/// What holds for a whole picture.
struct RenderData {
  const Document* document = nullptr;
  u32 flags = kRenderFinal;  ///< RenderFlag
  i32 threadCount = 1;       ///< of render threads
  std::vector<std::shared_ptr<const RenderLight>> lights;
  double brightness = 1;  ///< factor on the light of media
  double nearClip = 0;    ///< of the camera, along its axis
  double farClip = std::numeric_limits<double>::infinity();
  const HostThread* thread = nullptr;  ///< told to stop when the render is cancelled; may be null

  bool IsCancelled() const { return thread && thread->TestBreak(); }
};

/// What a medium does to a ray: the incoming light L becomes `transmission * L + colour`.
struct VolumeRecord {
  const RenderRay& ray;
  const HitRecord* hit = nullptr;  ///< null or Background: the ray goes on for ever

  Vec3d colour{};
  Vec3d transmission{1, 1, 1};

  // For picture layers; `colour` is the sum of the first two as far as the finish leaves it so.
  Vec3d scattering{};  ///< light of lamps and ambience
  Vec3d emission{};    ///< light of its own
  Vec3d glow{};        ///< part of the colour that the medium's `Glow` stands for
  double depth = std::numeric_limits<double>::infinity();  ///< where the medium is met first
  double alpha[2] = {1, 1};  ///< opacity outputs, faded by the camera's clip distances
  i32 samples = 0;           ///< places that were looked at
};

/// A shadow ray that passes a medium on its way.
struct TransparencyRecord {
  const RenderRay& ray;
  double length = 0;            ///< the ray ends here
  Vec3d transparency{1, 1, 1};  ///< part of the light that passes
  i32 samples = 0;              ///< places that were looked at
};

/// A part of a medium that gives light of its own.
struct GlowingBox {
  Vec3d min, max;
  Vec3d power;        ///< its light to all sides: radiance per host unit, times the volume
  double weight = 0;  ///< how often it is worth a ray, in comparison with other boxes
};

/// A material that fills space. `InitRender` comes before the first ray of a picture and
/// `FreeRender` after the last one.
class VolumeMaterial {
 public:
  virtual ~VolumeMaterial() = default;
  /// Prepares a picture on the caller's thread. False: there is nothing to draw, and the renderer
  /// leaves the material out.
  virtual bool InitRender(const RenderData& data) = 0;
  virtual void FreeRender() = 0;
  /// All light of fire in the medium that falls on other things, straight or by smoke, so that rays
  /// can be aimed at it, in a fixed order. Without boxes rays in random directions gather it.
  virtual std::vector<GlowingBox> Glow() const { return {}; }
  /// Light and transmission along a ray.
  virtual void Volumetric(VolumeRecord& record, const RenderData& data) const = 0;
  /// What the medium lets through of the light of others.
  virtual void Transparency(TransparencyRecord& record, const RenderData& data) const = 0;
};

/// Particles as a picture shows them: one entry for each in all arrays. Host units.
struct SphereCloud {
  using Value = Vec3D<float>;
  std::vector<Value> positions;  ///< in the middle of the shutter's time
  std::vector<Value> moves;      ///< way in a frame; empty where nothing moves
  std::vector<float> radii;      ///< at 0 or less a particle isn't drawn
  std::vector<Value> colours;    ///< light that they give back, linear, 0 to 1
  std::vector<Value> emissions;  ///< light of their own; empty for none
  double reflection = 0, roughness = 0.2;
  /// What looks smaller than this many pixels is drawn that large, and as much fainter.
  double leastPixels = 1;
};

/// A material that draws particles.
class ParticleMaterial {
 public:
  virtual ~ParticleMaterial() = default;
  /// The particles of the present frame; an empty cloud where there is nothing to draw. Called on
  /// one thread before the first ray of a picture.
  virtual SphereCloud Spheres(const RenderData& data) const = 0;
};

/// A point that a shader is asked about.
struct ShaderPoint {
  Vec3d point;                     ///< the shader's own point
  const HitRecord* hit = nullptr;  ///< where a ray was traced
};

/// A colour that depends on the place, for materials of surfaces.
class Shader {
 public:
  virtual ~Shader() = default;
  virtual bool InitRender(const RenderData& data) = 0;
  virtual void FreeRender() = 0;
  virtual Vec3d Output(const ShaderPoint& point) const = 0;
};

}  // namespace MELDO_GLOBAL::host
