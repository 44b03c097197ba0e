#include "render/render_world.h"

#include <algorithm>
#include <numbers>

namespace MELDO_GLOBAL::app {

using namespace host;

namespace {

Surface ReadSurface(const BaseNode& node, const ShaderMap& shaders) {
  SurfaceSettings settings;
  FillMembers(SurfaceParameters(), &node, settings);
  const auto shader = [&](const Link* link) -> const Shader* {
    const auto found = link ? shaders.find(link->node) : shaders.end();
    return found != shaders.end() ? found->second : nullptr;
  };
  return {settings.colour,   settings.reflection,           settings.roughness,
          settings.emission, shader(settings.colourShader), shader(settings.emissionShader)};
}

/// How far from a surface a ray must start so as not to meet it again.
double Clearance(const Vec3d& point) {
  constexpr double kOfCoordinates = 1e-5, kLeast = 1e-3;
  return std::max(kLeast, kOfCoordinates * Length(point));
}

}  // namespace

RenderWorld::RenderWorld(const RenderSpec& spec, const ShaderMap& shaders,
                         std::shared_ptr<const SphereScene> spheres)
    : mCamera(*spec.camera, spec.width, spec.height), mSpheres(std::move(spheres)) {
  for (const BaseNode* light : spec.lights)
    if (light->IsEnabled()) mLights.emplace_back(*light, *this);
  mSurfaces.push_back(ReadSurface(*spec.standard, shaders));
  for (const auto& [object, surface] : spec.surfaces)
    mSurfaces.push_back(ReadSurface(*surface, shaders));

  FillMembers(RenderParameters(), spec.settings, mSettings);
  if (mSettings.background) mBackground = *mSettings.background;
  mGround.colour = mSettings.groundColour;
  for (const SphereScene::Look& look :
       mSpheres ? mSpheres->Looks() : std::vector<SphereScene::Look>{})
    mClouds.push_back({{}, look.reflection, look.roughness, {}});
  AddMeshes(spec);
}

void RenderWorld::AddMeshes(const RenderSpec& spec) {
  const InExcludeData hidden = mSettings.hidden ? *mSettings.hidden : InExcludeData{};
  const auto isHidden = [&](const BaseNode& node) {
    return std::any_of(hidden.entries.begin(), hidden.entries.end(),
                       [&](const auto& entry) { return entry.node == node.Id(); });
  };
  const auto surfaceOf = [&](const BaseNode& node) -> i32 {
    for (std::size_t i = 0; i < spec.surfaces.size(); ++i)
      if (spec.surfaces[i].first == node.Id()) return static_cast<i32>(i) + 1;
    return 0;
  };
  spec.settings->GetDocument().ForEachNode([&](const BaseNode& node) {
    const auto* mesh = dynamic_cast<const PolygonObject*>(&node);
    if (!mesh || !mesh->IsEnabled() || isHidden(*mesh)) return;
    mMeshes.Add(mesh->GetGeometry(), mesh->GlobalMatrix(), surfaceOf(*mesh));
  });
  mMeshes.Commit();
}

bool RenderWorld::TraceGround(const Vec3d& origin, const Vec3d& direction, double near, double far,
                              SurfaceHit& hit) const {
  if (!mSettings.hasGround || direction.y == 0) return false;
  const double distance = (mSettings.groundHeight - origin.y) / direction.y;
  if (!(distance > near && distance < far)) return false;
  hit.distance = distance;
  hit.point = origin + direction * distance;
  hit.point.y = mSettings.groundHeight;
  hit.facing = hit.normal = {0, direction.y < 0 ? 1.0 : -1.0, 0};
  hit.surface = &mGround;
  hit.colour = mGround.colour;
  hit.emission = mGround.emission;
  hit.fade = 0;
  if (mSettings.groundFade > 0) {
    const double t = std::clamp(2 * distance / mSettings.groundFade - 1, 0.0, 1.0);
    hit.fade = t * t * (3 - 2 * t);
  }
  return true;
}

bool RenderWorld::TraceSpheres(const Vec3d& origin, const Vec3d& direction, double near, double far,
                               SphereLayers layers, SurfaceHit& hit) const {
  SphereHit sphere;
  if (!mSpheres ||
      !mSpheres->Trace(origin, direction, near, far, layers == SphereLayers::OneByOne, sphere))
    return false;
  hit.distance = sphere.distance;
  hit.point = origin + direction * sphere.distance;
  hit.facing = hit.normal = sphere.normal;
  hit.surface = &mClouds[sphere.cloud];
  hit.colour = sphere.colour;
  hit.emission = sphere.emission;
  hit.fade = 0;
  hit.cover = sphere.cover;
  hit.isSphere = true;
  return true;
}

bool RenderWorld::Trace(const Vec3d& origin, const Vec3d& direction, double near, double far,
                        SurfaceHit& hit, SphereLayers layers) const {
  bool found = TraceGround(origin, direction, near, far, hit);
  found = TraceSpheres(origin, direction, near, found ? hit.distance : far, layers, hit) || found;
  MeshHit mesh;
  if (!mMeshes.Trace(origin, direction, near, found ? hit.distance : far, mesh)) return found;
  hit.distance = mesh.distance;
  hit.point = origin + direction * mesh.distance;
  hit.facing = mesh.facing;
  hit.normal = mesh.normal;
  hit.surface = &mSurfaces[mesh.material];
  hit.colour = hit.surface->colour;
  hit.emission = hit.surface->emission;
  if (hit.surface->colourShader || hit.surface->emissionShader) AskShaders(hit);
  hit.fade = 0;
  hit.cover = 1;
  hit.isSphere = false;
  return true;
}

void RenderWorld::AskShaders(SurfaceHit& hit) const {
  const HitRecord record{HitKind::Surface, hit.point, hit.normal, hit.distance};
  const ShaderPoint point{hit.point, &record};
  if (const Shader* shader = hit.surface->colourShader)
    hit.colour = Max(hit.colour * shader->Output(point), Vec3d{});
  if (const Shader* shader = hit.surface->emissionShader)
    hit.emission = Max(hit.emission * shader->Output(point), Vec3d{});
}

bool RenderWorld::IsBlocked(const Vec3d& from, const Vec3d& to) const {
  const Vec3d way = to - from;
  const double length = Length(way);
  const double near = Clearance(from), far = length - Clearance(to);
  if (far <= near) return false;
  const Vec3d direction = way / length;
  SurfaceHit ignored;
  return TraceGround(from, direction, near, far, ignored) ||
         mMeshes.IsBlocked(from, direction, near, far) ||
         (mSpheres && mSpheres->IsBlocked(from, direction, near, far));
}

Vec3d RenderWorld::Background(const Vec3d& direction) const {
  const double elevation = std::asin(std::clamp(direction.y, -1.0, 1.0));
  return mBackground.Evaluate(0.5 + elevation / std::numbers::pi);
}

}  // namespace MELDO_GLOBAL::app
