// Everything that rays can meet, as it stands at one moment.
#pragma once
#include <deque>
#include <map>
#include <memory>
#include <vector>

#include "host/renderer.h"
#include "render/camera.h"
#include "render/lights.h"
#include "render/mesh_scene.h"
#include "render/sphere_scene.h"
#include "scene/render_spec.h"

namespace MELDO_GLOBAL::app {

/// How a surface answers to light.
struct Surface {
  Vec3d colour;
  double reflection = 0;
  double roughness = 0;
  Vec3d emission;
  const host::Shader* colourShader = nullptr;    ///< times the colour
  const host::Shader* emissionShader = nullptr;  ///< times the emission
};

/// Shaders that are ready for a picture, by their nodes.
using ShaderMap = std::map<host::NodeId, const host::Shader*>;

struct SurfaceHit {
  double distance = 0;
  Vec3d point;
  Vec3d facing;  ///< of the flat surface, towards the ray
  Vec3d normal;  ///< of the smooth surface
  const Surface* surface = nullptr;
  Vec3d colour, emission;  ///< of the surface here
  double fade = 0;         ///< part of the ground that has become sky
  double cover = 1;        ///< part of the light from behind that it takes away
  bool isSphere = false;   ///< a particle
};

/// How rays meet particles that cover only part of what is behind them.
enum class SphereLayers {
  AtOnce,    ///< all or nothing, by a chance that is the ray's
  OneByOne,  ///< the nearest one, with its part
};

/// Camera, lights, meshes, particles, ground and sky at the present moment of a document.
class RenderWorld : public Blockers {
 public:
  explicit RenderWorld(const RenderSpec& spec, const ShaderMap& shaders = {},
                       std::shared_ptr<const SphereScene> spheres = {});
  RenderWorld(const RenderWorld&) = delete;
  RenderWorld& operator=(const RenderWorld&) = delete;

  const Camera& GetCamera() const { return mCamera; }
  /// Lights stay where they are as long as the world lives.
  const std::deque<SceneLight>& Lights() const { return mLights; }

  /// The nearest surface between two distances.
  bool Trace(const Vec3d& origin, const Vec3d& direction, double near, double far, SurfaceHit& hit,
             SphereLayers layers = SphereLayers::AtOnce) const;
  bool IsBlocked(const Vec3d& from, const Vec3d& to) const override;
  /// The light of the sky.
  Vec3d Background(const Vec3d& direction) const;
  /// Factor on the sky's light where it lights surfaces.
  const Vec3d& Environment() const { return mSettings.environment; }

 private:
  void AddMeshes(const RenderSpec& spec);
  void AskShaders(SurfaceHit& hit) const;
  bool TraceSpheres(const Vec3d& origin, const Vec3d& direction, double near, double far,
                    SphereLayers layers, SurfaceHit& hit) const;
  bool TraceGround(const Vec3d& origin, const Vec3d& direction, double near, double far,
                   SurfaceHit& hit) const;

  Camera mCamera;
  std::deque<SceneLight> mLights;
  MeshScene mMeshes;
  std::shared_ptr<const SphereScene> mSpheres;  ///< shared by all moments; null for none
  std::vector<Surface> mSurfaces;  ///< the standard one, those of `RenderSpec::surfaces`
  std::vector<Surface> mClouds;    ///< of the clouds of spheres
  host::RenderSettings mSettings;
  host::Gradient mBackground;
  Surface mGround;
};

}  // namespace MELDO_GLOBAL::app
