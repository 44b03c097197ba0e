#include "render/render_world.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "framework/server_rows.h"
#include "io/mesh_table.h"

namespace MELDO_GLOBAL::app {

using namespace host;

namespace {

/// Host units of a metre, as the scene's first server has them.
double HostPerMetre(const Document& document) {
  std::optional<double> units;
  document.ForEachNode([&](const BaseNode& node) {
    if (units || node.Type() != kServerNode) return;
    const auto number = [&](i32 id) {
      const Value* value = node.Get(id);
      const double* real = value ? std::get_if<double>(value) : nullptr;
      return real ? *real : 0;
    };
    const double metres = number(MELDO_SULVA::server_row::kSimulationUnits);
    if (metres > 0) units = number(MELDO_SULVA::server_row::kHostUnits) / metres;
  });
  return units && *units > 0 ? *units : 100;
}

/// A clear body mirrors as its index says; the light that isn't mirrored goes on within it.
Surface ReadClearBody(const BaseNode& node, double hostPerMetre) {
  DielectricSettings settings;
  FillMembers(DielectricParameters(), &node, settings);
  Surface surface;
  surface.isClear = true;
  surface.index = settings.index;
  surface.reflection = FresnelOf(1, settings.index);
  surface.roughness = settings.roughness;
  surface.absorption = settings.absorption / hostPerMetre;
  surface.priority = settings.priority;
  return surface;
}

Surface ReadSurface(const BaseNode& node, const ShaderMap& shaders, double hostPerMetre) {
  if (node.Type() == kDielectricMaterial) return ReadClearBody(node, hostPerMetre);
  SurfaceSettings settings;
  FillMembers(SurfaceParameters(), &node, settings);
  const auto shader = [&](const Link* link) -> const Shader* {
    const auto found = link ? shaders.find(link->node) : shaders.end();
    return found != shaders.end() ? found->second : nullptr;
  };
  Surface surface;
  surface.colour = settings.colour;
  surface.reflection = settings.reflection;
  surface.roughness = settings.roughness;
  surface.emission = settings.emission;
  surface.colourShader = shader(settings.colourShader);
  surface.emissionShader = shader(settings.emissionShader);
  return surface;
}

/// Calls visit(mesh, surface) for all meshes that are drawn; surface 0 is the standard one, those
/// of `RenderSpec::surfaces` follow.
template <class Visit>
void ForEachMesh(const RenderSpec& spec, const Visit& visit) {
  RenderSettings settings;
  FillMembers(RenderParameters(), spec.settings, settings);
  const InExcludeData hidden = settings.hidden ? *settings.hidden : InExcludeData{};
  spec.settings->GetDocument().ForEachNode([&](const BaseNode& node) {
    const auto* mesh = dynamic_cast<const PolygonObject*>(&node);
    const auto isThis = [&](const auto& entry) { return entry.node == node.Id(); };
    if (!mesh || !mesh->IsEnabled() ||
        std::any_of(hidden.entries.begin(), hidden.entries.end(), isThis))
      return;
    std::size_t surface = 0;
    while (surface < spec.surfaces.size() && spec.surfaces[surface].first != node.Id()) ++surface;
    visit(*mesh, surface < spec.surfaces.size() ? surface + 1 : 0);
  });
}

/// How far from a surface a ray must start so as not to meet it again.
double Clearance(const Vec3d& point) {
  constexpr double kOfCoordinates = 1e-5, kLeast = 1e-3;
  return std::max(kLeast, kOfCoordinates * Length(point));
}

}  // namespace

RenderWorld::RenderWorld(const RenderSpec& spec, const ShaderMap& shaders,
                         std::shared_ptr<const SphereScene> spheres, double seconds)
    : mCamera(*spec.camera, spec.width, spec.height), mSpheres(std::move(spheres)) {
  const Document& document = spec.settings->GetDocument();
  for (const BaseNode* light : spec.lights)
    if (light->IsEnabled()) mLights.emplace_back(*light, *this);
  const double hostPerMetre = HostPerMetre(document);
  mSurfaces.push_back(ReadSurface(*spec.standard, shaders, hostPerMetre));
  for (const auto& [object, surface] : spec.surfaces)
    mSurfaces.push_back(ReadSurface(*surface, shaders, hostPerMetre));

  FillMembers(RenderParameters(), spec.settings, mSettings);
  mSky = Environment(mSettings, document);
  mGround.colour = mSettings.groundColour;
  for (const SphereScene::Look& look :
       mSpheres ? mSpheres->Looks() : std::vector<SphereScene::Look>{}) {
    mClouds.emplace_back();
    mClouds.back().reflection = look.reflection;
    mClouds.back().roughness = look.roughness;
  }
  AddMeshes(spec, seconds);
}

void RenderWorld::AddMeshes(const RenderSpec& spec, double seconds) {
  ForEachMesh(spec, [&](const PolygonObject& mesh, std::size_t surface) {
    MeshScene& meshes = mSurfaces[surface].isClear ? mClear : mMeshes;
    meshes.Add(mesh.GetGeometry(), mesh.GlobalMatrix(), static_cast<i32>(surface), seconds);
  });
  mMeshes.Commit();
  mClear.Commit();
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

bool RenderWorld::TraceMeshes(const MeshScene& meshes, const Vec3d& origin, const Vec3d& direction,
                              double near, double far, SurfaceHit& hit) const {
  MeshHit mesh;
  if (!meshes.Trace(origin, direction, near, far, mesh)) return false;
  hit.distance = mesh.distance;
  hit.point = origin + direction * mesh.distance;
  hit.facing = mesh.facing;
  hit.normal = mesh.normal;
  hit.surface = &mSurfaces[mesh.material];
  hit.colour = hit.surface->colour;
  hit.emission = hit.surface->emission;
  hit.fade = 0;
  hit.cover = 1;
  hit.isSphere = false;
  hit.isFromInside = mesh.isFromInside;
  hit.otherCount = 0;
  return true;
}

bool RenderWorld::Trace(const Vec3d& origin, const Vec3d& direction, double near, double far,
                        SurfaceHit& hit, SphereLayers layers) const {
  bool found = TraceGround(origin, direction, near, far, hit);
  const auto end = [&] { return found ? hit.distance : far; };
  found = TraceSpheres(origin, direction, near, end(), layers, hit) || found;
  const bool isMesh = TraceMeshes(mMeshes, origin, direction, near, end(), hit);
  found = isMesh || found;
  if (TraceMeshes(mClear, origin, direction, near, end(), hit)) {
    FindOthers(origin, direction, hit);
    return true;
  }
  if (isMesh && (hit.surface->colourShader || hit.surface->emissionShader)) AskShaders(hit);
  return found;
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

void RenderWorld::FindOthers(const Vec3d& origin, const Vec3d& direction, SurfaceHit& hit) const {
  constexpr double kFlattest = 0.05;
  if (mClear.Count() < 2) return;
  // As far as the ray behind the boundary begins off it.
  const double off = Clearance(hit.point) / std::max(-Dot(direction, hit.facing), kFlattest);
  const std::vector<MeshHit> hits =
      mClear.CollectHits(origin, direction, std::max(hit.distance - off, 0.0), hit.distance + off);
  bool isOwnSeen = false;
  for (const MeshHit& other : hits) {
    const Surface* surface = &mSurfaces[other.material];
    if (!isOwnSeen && surface == hit.surface && other.isFromInside == hit.isFromInside)
      isOwnSeen = true;
    else if (hit.otherCount < static_cast<i32>(hit.others.size()))
      hit.others[static_cast<std::size_t>(hit.otherCount++)] = {surface, other.isFromInside};
  }
}

void CrossAll(const SurfaceHit& hit, ClearBodies& inside) {
  for (const bool isLeft : {true, false}) {
    if (hit.isFromInside == isLeft) inside.Cross(hit.surface, isLeft);
    for (i32 i = 0; i < hit.otherCount; ++i) {
      const SurfaceHit::Boundary& other = hit.others[static_cast<std::size_t>(i)];
      if (other.isFromInside == isLeft) inside.Cross(other.surface, isLeft);
    }
  }
}

Vec3d RenderWorld::PassesClear(const Vec3d& from, const Vec3d& to, ClearBodies inside) const {
  if (mClear.IsEmpty()) return {1, 1, 1};
  const Vec3d way = to - from;
  const double length = Length(way);
  const Vec3d direction = way / length;
  double near = Clearance(from);
  const double far = length - Clearance(to);
  Vec3d passes{1, 1, 1};
  SurfaceHit hit;
  while (near < far && TraceMeshes(mClear, from, direction, near, far, hit)) {
    FindOthers(from, direction, hit);
    passes = passes * inside.Passes(hit.distance - near);
    const double before = inside.Index();
    CrossAll(hit, inside);
    const double step = inside.Index() / before;
    // Seen from the thinner side, so that light that comes in a straight line is never shut out.
    const double cosine = -Dot(direction, hit.normal);
    passes = passes * (1 - FresnelOf(cosine, std::max(step, 1 / step)));
    near = hit.distance + Clearance(hit.point);
  }
  // Rays to the sky don't end.
  return inside.Filling() ? passes * inside.Passes(std::max(far - near, 0.0)) : passes;
}

ClearBodies RenderWorld::BodiesAt(const Vec3d& point) const {
  ClearBodies bodies, entered;
  constexpr double kEndless = std::numeric_limits<double>::infinity();
  for (const MeshHit& hit : mClear.CollectHits(point, {0, 1, 0}, 0, kEndless)) {
    const Surface* surface = &mSurfaces[hit.material];
    if (!hit.isFromInside)
      entered.Enter(surface);
    else if (!entered.Leave(surface))
      bodies.Enter(surface);
  }
  return bodies;
}

std::vector<std::string> FaultsOfClearBodies(const RenderSpec& spec) {
  std::vector<std::string> faults;
  ForEachMesh(spec, [&](const PolygonObject& mesh, std::size_t surface) {
    const BaseNode& look = surface ? *spec.surfaces[surface - 1].second : *spec.standard;
    if (look.Type() != kDielectricMaterial) return;
    const i64 open = CountOpenEdges(TableOf(mesh, {1, 1, 1}));
    if (open > 0)
      faults.push_back(
          fmt::format("\"{}\" isn't closed ({} open edges): light that enters the "
                      "clear body \"{}\" there doesn't leave it",
                      mesh.Name(), open, look.Name()));
  });
  return faults;
}

}  // namespace MELDO_GLOBAL::app
