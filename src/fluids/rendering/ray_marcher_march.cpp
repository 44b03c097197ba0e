// The walk of single rays.
#include <cmath>

#include "fluids/rendering/ray_marcher.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

using namespace MELDO_SULVA;

namespace {

constexpr double kOpaque = 0.001;  ///< transmittance below which a ray may end
constexpr Vec3d kWhite{1, 1, 1};

bool IsOpaque(const Vec3d& t) { return t.x < kOpaque && t.y < kOpaque && t.z < kOpaque; }

Vec3d Decay(const Vec3d& depth) {
  const double x = std::exp(-depth.x);
  if (depth.y == depth.x && depth.z == depth.x) return {x, x, x};
  return {x, std::exp(-depth.y), std::exp(-depth.z)};
}

/// The mean of exp(-t) for t from 0 to each of the depths, whose decays are given.
Vec3d MeanDecay(const Vec3d& depth, const Vec3d& decay) {
  const auto mean = [](double t, double left) { return t > 1e-4 ? (1 - left) / t : 1 - 0.5 * t; };
  const double x = mean(depth.x, decay.x);
  if (depth.y == depth.x && depth.z == depth.x) return {x, x, x};
  return {x, mean(depth.y, decay.y), mean(depth.z, decay.z)};
}

}  // namespace

// ---- samples ------------------------------------------------------------------------------------

void RayMarcher::Displaced(const Vec3d& world, Vec3d& smoke, Vec3d& fire) const {
  smoke = fire = world;
  if (!mDisplacer.mEnabled) return;
  const Vec3d sim = world * mWorldToSim;
  Displacer::Points points{sim, sim};
  mDisplacer.Displace(points);
  smoke = points[0] / mWorldToSim;
  fire = points[1] / mWorldToSim;
}

bool RayMarcher::MapSmoke(const Vec3d& place, double& value) const {
  if (!mSmoke.mapping.Map(value)) return false;
  if (mSmoke.mapping.bypass || !mSmoke.mapping.noise.on) return true;
  value *= mSmoke.mapping.noise.At(place, place * mWorldToSim);
  return value > 0;
}

bool RayMarcher::SampleSmoke(const Vec3d& world, MediumSample& sample) const {
  Vec3d fire;
  Displaced(world, sample.world, fire);
  sample.smoke = mSmoke.view(sample.world);
  sample.hasSmoke = MapSmoke(sample.world, sample.smoke);
  return sample.hasSmoke;
}

bool RayMarcher::SampleFire(const Vec3d& world, double& value) const {
  value = mFire.view(world);
  return mFire.mapping.MapFire(value);
}

bool RayMarcher::SampleMedium(const Vec3d& world, MediumSample& sample) const {
  if (mOccupancy.IsSet() && mOccupancy.IsEmptyAt(world)) return false;
  Vec3d fire;
  Displaced(world, sample.world, fire);
  if (mSmoke.exists) {
    sample.smoke = mSmoke.view(sample.world);
    sample.hasSmoke = MapSmoke(sample.world, sample.smoke);
  }
  if (mFire.exists) sample.hasFire = SampleFire(fire, sample.fire);
  if (mThird.exists) {
    sample.third = mThird.view(sample.world);
    sample.hasThird = mThird.mapping.Map(sample.third);
  }
  return sample.hasSmoke || sample.hasFire || sample.hasThird;
}

double RayMarcher::Filtered(const FilterList& list, const Vec3d& world, i32 worker,
                            double value) const {
  if (!list.IsEmpty()) list.Test(world * mWorldToSim, value, this, static_cast<u32>(worker));
  return value;
}

// ---- what a sample does to a ray ----------------------------------------------------------------

Vec3d RayMarcher::SmokeColour(const MediumSample& sample) const {
  if (mHasSmokeColour) return mPackedColour.At(sample.world);
  if (const Vec3d* constant = mSmokeGradient.Constant()) return *constant;
  return mSmokeGradient(sample.smoke / mSmoke.mapping.valueMax);
}

Vec3d RayMarcher::Absorbance(const Vec3d& colour) const {
  if (!mLook.scattering.greyAbsorption) return colour;
  const double largest = std::max({colour.x, colour.y, colour.z});
  return {largest, largest, largest};
}

Vec3d RayMarcher::FireColour(double value) const {
  if (mLook.fire.colours == FireColours::Gradient)
    return mFireGradient(value / mFire.mapping.valueMax);
  Vec3d colour;
  mBlackbody.Colour(colour, value);
  return colour;
}

void RayMarcher::AddEmission(const MediumSample& sample, Optics& optics) const {
  const double rho = sample.hasSmoke ? sample.smoke : mLook.fire.density;
  const double extinction = rho * mLook.fire.extinction;
  optics.sigma += Vec3d{extinction, extinction, extinction};
  // The third field says where; what glows is still the fire, or the hottest there is without one.
  const Vec3d colour = mFire.exists ? FireColour(sample.fire)
                                    : mFireGradient(sample.third / mThird.mapping.valueMax);
  optics.emit = colour * (mLook.fire.intensity * rho);
}

Vec3d RayMarcher::GlowAt(const Vec3d& world) const {
  MediumSample sample;
  Optics optics;
  if (!SampleMedium(world, sample)) return {};
  if (Glows(sample)) AddEmission(sample, optics);
  if (mFireLightOn && sample.hasSmoke)
    optics.emit += SmokeColour(sample) * mLook.scattering.scattering * FireLight(world) *
                   (sample.smoke * mLook.smoke.density *
                    (mLook.fireLight.directed ? mLook.scattering.phaseScale : 1.0));
  return optics.emit;
}

Vec3d RayMarcher::LampLight(const Vec3d& place, const Vec3d& toViewer, double g, double k) const {
  Vec3d light{};
  if (mLights.empty()) return light;
  const ObjectShadowSettings& meshes = mLook.objectShadow;
  const ColourGrid::Place cell = mLights.front()->packed.PlaceOf(place);
  for (const auto& record : mLights) {
    Vec3d arrives = record->packed.At(cell);
    if (arrives == Vec3d{}) continue;
    if (meshes.inSmoke && meshes.extra != 0) {
      const Vec3d shadow = record->light->Illuminate(place, true).shadow;
      const Vec3d left = kWhite + (meshes.extraColour - kWhite) * shadow * meshes.extra;
      arrives = arrives * Max(left, Vec3d{});
    }
    if (!mPhase) continue;
    const double c = Dot(record->light->DirectionTo(place), toViewer);
    light += arrives * (k * mPhase->Evaluate(c, false, g, mLook.scattering.anisotropy2));
  }
  return light;
}

/// Before it is scattered.
Vec3d RayMarcher::FireLight(const Vec3d& place) const {
  const FireLightRecord& record = *mFireRecord;
  const double f = record.strengthView(place) * mLook.fireLight.scale;
  if (!(f > 0)) return {};
  Vec3d colour;
  if (mLook.fireLight.colours == FireColours::Gradient)
    colour = mFireLightGradient(std::min(f / record.strength.mValueMax, 1.0));
  else
    mBlackbody.Colour(colour, f);
  return colour * (record.reachView(place) * mLook.fireLight.strength);
}

double RayMarcher::FirePhase(const Vec3d& place, const Vec3d& toViewer, double g, double k) const {
  if (!mLook.fireLight.directed || !mPhase) return 1;
  const Vec3d way = Normalised(mFireRecord->packedDirections.At(place));
  return k * mPhase->Evaluate(Dot(way, toViewer), false, g, mLook.scattering.anisotropy2);
}

void RayMarcher::AddScattering(const MediumSample& sample, const Vec3d& place,
                               const Vec3d& toViewer, i32 worker, Optics& optics,
                               MarchRecord& record) const {
  const Vec3d colour = SmokeColour(sample);
  const ScatteringSettings& look = mLook.scattering;
  const FilterSettings& filters = mLook.filters;
  const double g =
      std::clamp(Filtered(filters.anisotropy, place, worker, look.anisotropy), -1.0, 1.0);
  const double k = look.phaseScale * Filtered(filters.phaseScale, place, worker, 1);
  const double absorb = Filtered(filters.absorption, place, worker, 1);
  const double scatter = Filtered(filters.scattering, place, worker, 1);
  const double rho = sample.smoke * mLook.smoke.density;
  const Vec3d albedo = colour * look.scattering * (rho * scatter);
  optics.sigma += Absorbance(colour) * look.absorption * (rho * absorb);
  optics.scatter = albedo * (LampLight(place, toViewer, g, k) + look.ambient);
  if (!mFireLightOn) return;
  const Vec3d light = FireLight(place) * FirePhase(place, toViewer, g, k);
  record.fireLight += light;
  optics.fire = albedo * light;
  optics.scatter += optics.fire;
}

/// Gathers light and transmittance. The optics of a stretch are the mean of its two ends, without
/// the trapezoid rule those of its far end. What smoke scatters goes with its extinction and is
/// weakened on the way out of the stretch, so that neither thick smoke nor long steps set the
/// brightness; what glows begins anywhere in the stretch and counts at the ends, as the ray still
/// lets it through.
class RayMarcher::Accumulator {
 public:
  explicit Accumulator(bool trapezoid) : mTrapezoid(trapezoid) {}

  void Add(const Optics& here, double ds) {
    const Optics last = mTrapezoid && !mFresh ? mLast : here;
    const Vec3d before = transmittance;
    const double half = 0.5 * ds;
    const Vec3d depth = (here.sigma + last.sigma) * half, decay = Decay(depth);
    const Vec3d reach = before * MeanDecay(depth, decay) * half;
    transmittance = before * decay;
    scattering += reach * (last.scatter + here.scatter);
    fire += reach * (last.fire + here.fire);
    emission += (before * last.emit + transmittance * here.emit) * half;
    mLast = here;
    mFresh = false;
  }
  /// A stretch that ends outside.
  void AddGap(double ds) {
    if (mTrapezoid && !mFresh) Add({}, ds);
    mFresh = false;
  }

  Vec3d transmittance{1, 1, 1}, scattering{}, emission{}, fire{};

 private:
  bool mTrapezoid;
  bool mFresh = true;  ///< nothing is known of the near end
  Optics mLast;
};

void RayMarcher::MarchRay(MarchResult& out, MarchRecord& record, VolumeRay ray, double u,
                          const host::RenderData& data, i32 worker) const {
  Accumulator sum(mLook.view.trapezoid);
  MediumSample sample;
  const Vec3d toViewer = -ray.direction;
  record.length = ray.tMax;
  const auto inside = [&](const Vec3d& p, double ds) {
    const double values[3] = {sample.smoke, sample.fire, sample.third};
    const bool has[3] = {sample.hasSmoke, sample.hasFire, sample.hasThird};
    for (int i = 0; i < 3; ++i)
      if (has[i]) record.count[i] += 1, record.sum[i] += values[i];
    if (record.firstDepth < 0) record.firstDepth = ray.t;
    Optics here;
    if (Glows(sample)) AddEmission(sample, here);
    if (sample.hasSmoke) AddScattering(sample, p, toViewer, worker, here, record);
    sum.Add(here, ds);
    return mLook.view.earlyExit && IsOpaque(sum.transmittance);
  };
  record.places = Walk(
      ray, mSteps, u, mOccupancy, [&](const Vec3d& p) { return SampleMedium(p, sample); }, inside,
      [&](double ds) { sum.AddGap(ds); });

  for (int i = 0; i < 3; ++i)
    if (record.count[i] > 0) record.sum[i] /= record.count[i];
  record.scattering = sum.scattering;
  record.emission = sum.emission;
  record.fireScattering = sum.fire;
  out.colour = sum.scattering + sum.emission;
  out.transmittance = sum.transmittance;
  FadeOpacity(out, data, record);
}

void RayMarcher::FadeOpacity(const MarchResult& result, const host::RenderData& data,
                             MarchRecord& record) const {
  const Vec3d& t = result.transmittance;
  const double m = std::max({t.x, t.y, t.z});
  const double x = std::clamp(10 * m, 0.0, 1.0);
  const double open = (3 - 2 * x) * x * x;
  const double length = record.length;
  const double near = data.nearClip > 0 ? std::min(length / data.nearClip, 1.0) : 1.0;
  const double range = data.farClip - data.nearClip;
  const double far =
      range > 0 && range < 1e300 ? std::clamp((data.farClip - length) / range, 0.0, 1.0) : 1.0;
  record.opacity[0] = 1 - open * near;
  record.opacity[1] = 1 - open * far;
}

i32 RayMarcher::ShadowRay(Vec3d& colour, VolumeRay ray, const ShadowWalk& walk, double u) const {
  const double opaqueDepth = -std::log(kOpaque);
  MediumSample sample;
  Vec3d depth{}, last{};
  bool fresh = true;
  const auto add = [&](const Vec3d& sigma, double ds) {
    if (mLook.shadow.trapezoid) {
      depth += (sigma + (fresh ? sigma : last)) * (0.5 * ds);
      last = sigma;
      fresh = false;
    } else {
      depth += sigma * ds;
    }
  };
  const i32 places = Walk(
      ray, walk.steps, u, mOccupancy,
      [&](const Vec3d& p) {
        return !(mOccupancy.IsSet() && mOccupancy.IsEmptyAt(p)) && SampleSmoke(p, sample);
      },
      [&](const Vec3d&, double ds) {
        Vec3d sigma = walk.density * (sample.smoke * mLook.smoke.density);
        if (!mLook.shadow.ignoresColour) sigma = sigma * Absorbance(SmokeColour(sample));
        add(sigma, ds);
        return std::min({depth.x, depth.y, depth.z}) > opaqueDepth;
      },
      [&](double ds) {
        if (mLook.shadow.trapezoid && !fresh) add({}, ds);
        fresh = false;
      });
  colour = colour * Decay(depth);
  return places;
}

// ---- multiple scattering ------------------------------------------------------------------------

i32 RayMarcher::AddMultipleScattering(Vec3d& colour, VolumeRay ray, double u, i32 worker) const {
  constexpr double kLeastSmoke = 0.01;
  const MultipleScattering& m = mMultiple;
  if (!m.on || m.records.empty() || !mPhase) return 0;
  MediumSample sample;
  ScatterDepths depths;
  Vec3d last{};
  const Vec3d toViewer = -ray.direction;
  return Walk(
      ray, m.steps, u, mOccupancy,
      [&](const Vec3d& p) { return SampleSmoke(p, sample) && sample.smoke >= kLeastSmoke; },
      [&](const Vec3d& p, double ds) {
        const double before = depths.scattering;
        AddDepth(sample.smoke, p, ds, worker, depths);
        if (depths.scattering < m.minimumDepth) return false;
        const Vec3d light =
            Spread(sample, p, toViewer, m.distanceScale * ray.t, depths.scattering, worker);
        // The light of a stretch goes with the scattering on it, whatever the steps.
        colour +=
            (mLook.view.trapezoid ? (light + last) * 0.5 : light) * (depths.scattering - before);
        last = light;
        return mLook.view.earlyExit && std::exp(-depths.absorption) < kOpaque;
      },
      [&](double ds) {
        AddDepth(0, ray.Here(), ds, worker, depths);
        last = {};
      });
}

Vec3d RayMarcher::Spread(const MediumSample& sample, const Vec3d& place, const Vec3d& toViewer,
                         double way, double depth, i32 worker) const {
  const MultipleScattering& m = mMultiple;
  const double g = std::clamp(
      Filtered(mLook.filters.multipleAnisotropy, place, worker, m.anisotropy), -1.0, 1.0);
  const double strength = m.strength * Filtered(mLook.filters.multipleStrength, place, worker, 1);
  const double loss = m.scattering > 0 ? m.absorption / m.scattering : 0.0;
  const Vec3d tint = mSmokeGradient(sample.smoke / mSmoke.mapping.valueMax);
  Vec3d sum{};
  for (size_t i = 0; i < m.records.size(); ++i) {
    const ScatterRecord& record = m.records[i];
    const double t = record.depthView(place) + depth;
    const double distance = record.distanceView(place) + way;
    const double source = record.pyramid.At(place, m.WidthAt(distance, t));
    if (!(source > 0) || !(t > 0)) continue;
    const double c = std::clamp(Dot(mLights[i]->light->DirectionTo(place), toViewer), -1.0, 1.0);
    const double angle = std::acos(c);
    const double lobe = m.spread > 0 ? std::exp(-angle * angle / (4 * m.spread * t)) : 0.0;
    const double phase = mPhase->Evaluate(c, false, g, mLook.scattering.anisotropy2);
    sum += tint * record.hue * (source * phase * strength * lobe * std::exp(-loss * t));
  }
  return sum;
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
