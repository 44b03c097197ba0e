// Everything that rays can meet, as it stands at one moment.
#pragma once
#include <deque>
#include <map>
#include <memory>
#include <vector>

#include "host/renderer.h"
#include "render/camera.h"
#include "render/clear_bodies.h"
#include "render/environment.h"
#include "render/lights.h"
#include "render/mesh_scene.h"
#include "render/sphere_scene.h"
#include "render/surface.h"
#include "scene/render_spec.h"

namespace MELDO_GLOBAL::app {

/// Shaders that are ready for a picture, by their nodes.
using ShaderMap = std::map<host::NodeId, const host::Shader*>;

/// How rays meet particles that cover only part of what is behind them.
enum class SphereLayers {
  AtOnce,    ///< all or nothing, by a chance that is the ray's
  OneByOne,  ///< the nearest one, with its part
};

/// Camera, lights, meshes, particles, ground and sky at the present moment of a document.
class RenderWorld : public Blockers {
 public:
  /// Meshes that a simulation made stand as their velocities have them so many `seconds` later.
  explicit RenderWorld(const RenderSpec& spec, const ShaderMap& shaders = {},
                       std::shared_ptr<const SphereScene> spheres = {}, double seconds = 0);
  RenderWorld(const RenderWorld&) = delete;
  RenderWorld& operator=(const RenderWorld&) = delete;

  const Camera& GetCamera() const { return mCamera; }
  /// Lights stay where they are as long as the world lives.
  const std::deque<SceneLight>& Lights() const { return mLights; }

  /// The nearest surface between two distances.
  bool Trace(const Vec3d& origin, const Vec3d& direction, double near, double far, SurfaceHit& hit,
             SphereLayers layers = SphereLayers::AtOnce) const;
  /// By what isn't clear.
  bool IsBlocked(const Vec3d& from, const Vec3d& to) const override;
  /// Part of the light that clear bodies between two points let through, as if they didn't bend it.
  /// `inside` are those that `from` lies in.
  Vec3d PassesClear(const Vec3d& from, const Vec3d& to, ClearBodies inside) const;
  /// The clear bodies that a point lies in.
  ClearBodies BodiesAt(const Vec3d& point) const;
  /// The light of the sky.
  Vec3d Background(const Vec3d& direction) const { return mSky.Light(direction); }
  const Environment& Sky() const { return mSky; }
  /// Factor on the sky's light where it lights surfaces.
  const Vec3d& SkyFactor() const { return mSettings.environment; }

 private:
  void AddMeshes(const RenderSpec& spec, double seconds);
  void AskShaders(SurfaceHit& hit) const;
  /// Adds what other clear bodies begin or end where one was met.
  void FindOthers(const Vec3d& origin, const Vec3d& direction, SurfaceHit& hit) const;
  bool TraceMeshes(const MeshScene& meshes, const Vec3d& origin, const Vec3d& direction,
                   double near, double far, SurfaceHit& hit) const;
  bool TraceSpheres(const Vec3d& origin, const Vec3d& direction, double near, double far,
                    SphereLayers layers, SurfaceHit& hit) const;
  bool TraceGround(const Vec3d& origin, const Vec3d& direction, double near, double far,
                   SurfaceHit& hit) const;

  Camera mCamera;
  std::deque<SceneLight> mLights;
  MeshScene mMeshes;
  MeshScene mClear;                             ///< meshes with a clear surface
  std::shared_ptr<const SphereScene> mSpheres;  ///< shared by all moments; null for none
  std::vector<Surface> mSurfaces;  ///< the standard one, those of `RenderSpec::surfaces`
  std::vector<Surface> mClouds;    ///< of the clouds of spheres
  host::RenderSettings mSettings;
  Environment mSky;
  Surface mGround;
};

/// Leaves and enters all clear bodies that have a boundary where a ray met one.
void CrossAll(const SurfaceHit& hit, ClearBodies& inside);

/// Sentences about meshes with a clear surface that aren't closed, so that light which enters them
/// doesn't leave.
std::vector<std::string> FaultsOfClearBodies(const RenderSpec& spec);

}  // namespace MELDO_GLOBAL::app
