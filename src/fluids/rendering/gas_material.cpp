#include "fluids/rendering/gas_material.h"

#include <cmath>

#include "fluids/rendering/hash_random.h"
#include "grids/fixed_blocks.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

using namespace host;

namespace {

constexpr double kEndless = 1e6;  ///< host units
constexpr Vec3d kMiddle{0.5, 0.5, 0.5};
constexpr i32 kGlowBoxes = 48;           ///< that light is sent from, on the longest axis
constexpr double kBeforeSurface = 0.01;  ///< host units; a march to a surface ends there

bool IsFinite(const Vec3d& v) {
  return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

}  // namespace

BaseNode& GasRenderer_Material::CreateNode(Document& document, std::string name) {
  BaseNode& node = document.Create<BaseNode>(kPluginId, std::move(name), nullptr);
  node.SetTable(&Parameters());
  return node;
}

bool GasRenderer_Material::InitRender(const RenderData& data) {
  FreeRender();
  auto marcher = std::make_unique<RayMarcher>();
  if (!marcher->Precompute(*mNode, mScenes, data)) return false;
  mMarcher = std::move(marcher);
  const FinishSettings& finish = mMarcher->Look().finish;
  mGlowGradient = finish.glowGradient ? MakeRamp(*finish.glowGradient) : Ramp<Vec3d>();
  mUnseenBy = kRayVolumeLight;
  const std::pair<bool, u32> seen[] = {{finish.byGI, kRayGlobalIllumination},
                                       {finish.byTransparency, kRayTransparency},
                                       {finish.byRefraction, kRayRefraction},
                                       {finish.byReflection, kRayReflection},
                                       {finish.byAmbientOcclusion, kRayAmbientOcclusion}};
  for (const auto& [isSeen, flag] : seen)
    if (!isSeen) mUnseenBy |= flag;
  // Smoke alone gives no light of its own to others.
  if (!mMarcher->HasFireOrThird()) mUnseenBy |= kRayGlobalIllumination;
  return true;
}

void GasRenderer_Material::FreeRender() {
  if (mMarcher) mMarcher->Finish();
  mMarcher.reset();
}

std::vector<GlowingBox> GasRenderer_Material::Glow() const {
  if (Passes(kRayGlobalIllumination)) return {};
  const WorldBox& box = mMarcher->Bounds();
  const VecInt3D cells = mMarcher->Cells();
  const i32 edge = (std::max({cells.x, cells.y, cells.z}) + kGlowBoxes - 1) / kGlowBoxes;
  VecInt3D count;
  for (int a = 0; a < 3; ++a) count[a] = (cells[a] + edge - 1) / edge;
  const Vec3d cell = (box.max - box.min) / ToReal(cells), half = cell * 0.5;
  std::vector<std::vector<GlowingBox>> layers(count.z);
  ForEachBlock(count.z, ThreadCount(), [&](i32 z) {
    for (i32 y = 0; y < count.y; ++y)
      for (i32 x = 0; x < count.x; ++x) {
        const VecInt3D low = VecInt3D{x, y, z} * edge;
        const VecInt3D high = Min(low + VecInt3D{edge, edge, edge}, cells);
        GlowingBox part{box.min + cell * ToReal(low), box.min + cell * ToReal(high), {}, 0};
        // Flames are thin: each cell counts with eight places.
        ForEachCell({low * 2, high * 2}, [&](i32 i, i32 j, i32 k) {
          part.power += mMarcher->GlowAt(box.min + half * (ToReal({i, j, k}) + kMiddle));
        });
        if (part.power == Vec3d{}) continue;
        part.power *= half.x * half.y * half.z * mMarcher->Look().fire.giScale;
        part.weight = (part.power.x + part.power.y + part.power.z) * Escape(part);
        layers[z].push_back(part);
      }
  });
  std::vector<GlowingBox> all;
  for (const auto& layer : layers) all.insert(all.end(), layer.begin(), layer.end());
  return all;
}

/// How much of a box's light gets out of the smoke, on average along the axes; never so little
/// that what does get out makes single bright specks.
double GasRenderer_Material::Escape(const GlowingBox& part) const {
  constexpr double kLeast = 0.1;
  if (!mMarcher->Look().objectShadow.onObjects || !mMarcher->HasSmoke()) return 1;
  const Vec3d centre = (part.min + part.max) * 0.5;
  const WorldBox& box = mMarcher->Bounds();
  double sum = 0;
  for (int a = 0; a < 3; ++a)
    for (const double wall : {box.min[a], box.max[a]}) {
      Vec3d end = centre, passed{1, 1, 1};
      end[a] = wall;
      mMarcher->ShadowRay(passed, VolumeRay(centre, end), mMarcher->ObjectShadow(), 0.5);
      sum += (passed.x + passed.y + passed.z) / 3;
    }
  return kLeast + (1 - kLeast) * sum / 6;
}

bool GasRenderer_Material::Passes(u32 rayFlags) const {
  return !mMarcher || !mMarcher->Look().finish.byCamera || (rayFlags & mUnseenBy);
}

void GasRenderer_Material::Volumetric(VolumeRecord& record, const RenderData& data) const {
  if (Passes(record.ray.flags)) return;
  const RenderRay& ray = record.ray;
  const bool endless = !record.hit || record.hit->kind == HitKind::Background;
  const double length =
      endless ? kEndless : Dot(record.hit->point - ray.origin, ray.direction) - kBeforeSurface;
  double near, far;
  if (!mMarcher->Bounds().Clip(ray.origin, ray.direction, length, near, far)) return;

  const VolumeRay stretch(ray.origin + ray.direction * near, ray.origin + ray.direction * far);
  MarchResult result;
  MarchRecord march;
  mMarcher->MarchRay(result, march, stretch, ray.random, data, ray.thread);
  if (!IsFinite(result.colour))
    result.colour = march.scattering = march.emission = march.fireScattering = {};
  if (mMarcher->HasMultipleScattering() && mMarcher->HasSmoke() &&
      (result.colour != Vec3d{} || result.transmittance != Vec3d{})) {
    Vec3d more{};
    march.places += mMarcher->AddMultipleScattering(more, stretch, ray.random, ray.thread);
    result.colour += more;
    march.scattering += more;
  }
  record.colour = result.colour * data.brightness;
  record.scattering = march.scattering * data.brightness;
  record.emission = march.emission * data.brightness;
  record.glow = (march.emission + march.fireScattering) * data.brightness;
  record.transmission = result.transmittance;
  record.samples = march.places;
  if (march.firstDepth >= 0) record.depth = near + march.firstDepth;
  for (int i = 0; i < 2; ++i) record.alpha[i] = march.opacity[i];
  if (record.colour == Vec3d{} && record.transmission == Vec3d{1, 1, 1}) return;
  FinishColours(record);
  if (ray.flags & kRayGlobalIllumination) {
    const double scale = mMarcher->Look().fire.giScale;
    record.colour *= scale;
    record.scattering *= scale;
    record.emission *= scale;
    record.glow *= scale;
  }
}

void GasRenderer_Material::FinishColours(VolumeRecord& record) const {
  Vec3d& t = record.transmission;
  if (Largest(t) >= 1) return;
  const double opacity = Largest(Vec3d{1, 1, 1} - t);
  const FinishSettings& finish = mMarcher->Look().finish;
  if (finish.glow > 0) record.colour += mGlowGradient(opacity) * (finish.glow * opacity);
  record.colour += (Vec3d{1, 1, 1} - t) * finish.opacityLight;
  const double contrast = finish.contrast + 1;
  if (contrast != 1)
    for (int a = 0; a < 3; ++a) t[a] = std::clamp((t[a] - 0.5) * contrast + 0.5, 0.0, 1.0);
  if (finish.saturation != 1) {
    const double mean = (record.colour.x + record.colour.y + record.colour.z) / 3;
    const Vec3d grey{mean, mean, mean};
    record.colour = Max((record.colour - grey) * finish.saturation + grey, Vec3d{});
  }
}

void GasRenderer_Material::Transparency(TransparencyRecord& record, const RenderData&) const {
  if (!mMarcher || !mMarcher->HasSmoke()) return;
  const ObjectShadowSettings& look = mMarcher->Look().objectShadow;
  if (!look.onObjects) return;
  const RenderRay& ray = record.ray;
  double near, far;
  if (!mMarcher->Bounds().Clip(ray.origin, ray.direction, record.length, near, far)) return;
  Vec3d passed{1, 1, 1};
  const VolumeRay stretch(ray.origin + ray.direction * near, ray.origin + ray.direction * far);
  record.samples =
      mMarcher->ShadowRay(passed, stretch, mMarcher->ObjectShadow(), HashUnit(ray.seed, 1));
  Vec3d transparency;
  for (int a = 0; a < 3; ++a) {
    const double shadow = look.colour[a] + (1 - look.colour[a]) * passed[a];
    transparency[a] = look.strength * (shadow - 1) + 1;
  }
  record.transparency = record.transparency * transparency;
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
