// What the marcher takes from the material's node and from the lights.
#include "fluids/operators/channel_operator_remap.h"
#include "fluids/rendering/ray_marcher.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

using namespace MELDO_SULVA;

namespace {

constexpr double kSmokeThreshold = 0.0001;
constexpr double kShortestStep = 0.001;  ///< host units
constexpr double kBlackbodyStep = 5;     ///< Kelvin
constexpr double kHottest = 10000;       ///< Kelvin; of a channel without bounds

Vec3d Grey(double v) { return {v, v, v}; }

/// The value range of a channel as a mapping uses it; one without bounds reaches to `high`.
void TakeRange(const ScalarField& channel, double high, FieldMapping& mapping) {
  const bool bounded = channel.mValueMax < kUnbounded && channel.mValueMax > 0;
  mapping.valueMin = channel.mValueMin > -kUnbounded ? channel.mValueMin : 0.0;
  mapping.valueMax = bounded ? channel.mValueMax : high;
}

}  // namespace

bool RayMarcher::ReadParameters() {
  const EGrid<double>& first = *(mSmoke.exists  ? mSmoke
                                 : mFire.exists ? mFire
                                                : mThird)
                                    .channel.mGrid;
  const double cell = first.mLayout.worldCell.x;
  const auto steps = [&](i32 fine, i32 coarse, i32 jitter) {
    return WalkSteps{std::max(mInterface.GetReal(fine) * cell, kShortestStep),
                     std::max(mInterface.GetReal(coarse) * cell, kShortestStep),
                     mInterface.GetReal(jitter)};
  };
  mSteps = steps(2154, 2155, 2153);
  mShadow.steps = steps(2451, 2452, 2450);
  mObjectShadow.steps = steps(2504, 2505, 2503);
  mEarlyExit = mInterface.GetBool(2157);
  mTrapezoid = mInterface.GetBool(2159);
  mDensityScale = mInterface.GetReal(2251);
  mAbsorption = Grey(mInterface.GetReal(2351));
  mScattering = Grey(mInterface.GetReal(2352));
  mAmbient = mInterface.GetVector(2350);
  mGreyAbsorption = mInterface.GetBool(2456);
  mPhase = PhaseFunction::Make(mInterface.GetLong(2353));
  mScatterPhase = PhaseFunction::Make(mInterface.GetLong(2353));
  mAnisotropy = mInterface.GetReal(2354);
  mPhaseScale = mInterface.GetReal(2355);
  mAnisotropy2 = mInterface.GetReal(2356);
  mGIScale = mInterface.GetReal(2554);
  ReadShadows();
  ReadFireLight();
  ReadMultipleScattering(cell);
  return ReadMappings();
}

void RayMarcher::ReadShadows() {
  mShadow.density = mInterface.GetVector(2454) * mInterface.GetReal(2453);
  mObjectShadow.density = mShadow.density;
  mShadowIgnoresColour = mInterface.GetBool(2464);
  mShadowTrapezoid = mInterface.GetBool(2460);
  mHostShadows = mInterface.GetBool(2500);
  mHostShadowStrength = mHostShadows ? mInterface.GetReal(2507) : 0.0;
  mHostShadowColour = mInterface.GetVector(2508);
}

void RayMarcher::ReadFireLight() {
  mEmissionMode = mInterface.GetLong(2556);
  mFireColourMode = mInterface.GetLong(2600);
  mFireIntensity = mInterface.GetReal(2750);
  mFireExtinction = mInterface.GetReal(2756);
  mFireDensity = mInterface.GetReal(2201);
  mFireLight = mInterface.GetReal(2757);
  mFireLightScale = mInterface.GetReal(2755);
  mFireLightRadius = std::max(mInterface.GetReal(2752), kShortestStep);
  mFireLightMode = mInterface.GetLong(2753);
  mFireLightDirected = mInterface.GetBool(2760);
  mFireLightOn = mFire.exists && mSmoke.exists && mFireLight > 0;
}

void RayMarcher::ReadMultipleScattering(double cell) {
  MultipleScattering& m = mMultiple;
  m.on = mInterface.GetBool(2400) && mSmoke.exists;
  m.uniform = mInterface.GetBool(2401);
  m.resolution = mInterface.GetReal(2402);
  m.distanceScale = mInterface.GetReal(2403);
  m.absorption = mInterface.GetBool(2412) ? mAbsorption.x : mInterface.GetReal(2405);
  m.scattering = mInterface.GetReal(2406);
  m.spread = mInterface.GetReal(mInterface.GetBool(2414) ? 2415 : 2407);
  m.minimumDepth = mInterface.GetReal(2408);
  m.step = mInterface.GetBool(2413) ? mSteps.fine : mInterface.GetReal(2409) * cell;
  m.step = std::max(m.step, kShortestStep);
  m.coarseStep = std::max(mSteps.coarse, m.step);
  m.jitter = mSteps.jitter;
  m.blur = mInterface.GetReal(2410);
  m.density = mInterface.GetReal(2411);
  m.strength = mInterface.GetReal(2416);
  m.anisotropy = mAnisotropy;
}

bool RayMarcher::ReadMappings() {
  const auto curve = [&](RenderField& field, i32 id, double high) {
    const host::SplineData* data = mInterface.GetSpline(id);
    if (data) field.mapping.SetCurve(*data);
    TakeRange(field.channel, high, field.mapping);
    if (field.exists) field.view = FieldView(*field.channel.mGrid);
    return data != nullptr;
  };
  const auto gradient = [&](Ramp<Vec3d>& ramp, i32 id) {
    const host::Gradient* data = mInterface.GetGradient(id);
    if (data) ramp = MakeRamp(*data);
    return data != nullptr;
  };
  if (!curve(mSmoke, 2252, 1) || !curve(mFire, 2651, kHottest) || !curve(mThird, 2701, 1))
    return false;
  if (!gradient(mSmokeGradient, 2227) || !gradient(mFireGradient, 2602) ||
      !gradient(mFireLightGradient, 2754) || !mInterface.GetSpline(2303))
    return false;
  mSmoke.mapping.bypass = mInterface.GetBool(2250);
  mSmoke.mapping.threshold = kSmokeThreshold;
  mSmoke.mapping.noise = ReadNoise(mInterface);
  mFire.mapping.threshold = mInterface.GetReal(2650);
  mThird.mapping.threshold = mInterface.GetReal(2700);
  mSmoke.view.cubic = mThird.view.cubic = mInterface.GetLong(2156) == 1;
  if (mFire.exists) {
    mBlackbody.mTMin = mFire.mapping.valueMin;
    mBlackbody.mTMax = std::max(mFire.mapping.valueMax, mBlackbody.mTMin);
    mBlackbody.mTStep = kBlackbodyStep;
    mBlackbody.Build(mInterface.GetReal(2605), mInterface.GetVector(2604), mInterface.GetLong(2603),
                     mInterface.GetBool(2608), mInterface.GetBool(2607));
  }
  return true;
}

void RayMarcher::ReadFilters() {
  constexpr i32 ids[kFilterLists] = {2255, 2461, 2357, 2358, 2359, 2360,
                                     2417, 2418, 2419, 2420, 2654, 2704};
  mFilterMask = 0;
  for (i32 list = 0; list < kFilterLists; ++list) {
    mRemaps[list].clear();
    std::vector<host::LinkTarget> targets;
    if (const host::InExcludeData* named = mInterface.GetInExclude(ids[list])) {
      const host::Document& document = mInterface.GetObject()->GetDocument();
      for (const auto& entry : named->entries) {
        host::BaseNode* node = document.Find(entry.node);
        if (!node) continue;
        targets.push_back({node, mScene->FindObject(node, kListAuxiliary), entry.flags});
        if (node->Type() == ChannelOperator_Remap::kPluginId && node->IsEnabled())
          mRemaps[list].push_back(node);
      }
    }
    mFilters[list].Connect(targets);
    mFilters[list].Prepare(this);
    if (!mFilters[list].IsEmpty()) mFilterMask |= 1u << list;
  }
}

void RayMarcher::ReleaseFilters() {
  for (ConstraintList& list : mFilters) {
    list.Finish();
    list.Clear();
  }
  for (auto& list : mRemaps) list.clear();
  mFilterMask = 0;
}

void RayMarcher::GatherLights(const host::RenderData& data) {
  mLights.clear();
  const host::InExcludeData* named = mInterface.GetInExclude(2158);
  for (const auto& light : data.lights) {
    if (!light->IlluminatesVolumes()) continue;
    const auto isNamed = [&](const auto& entry) { return entry.node == light->Node(); };
    if (named && !named->entries.empty() &&
        std::none_of(named->entries.begin(), named->entries.end(), isNamed))
      continue;
    auto record = std::make_unique<LightRecord>();
    record->light = light;
    mLights.push_back(std::move(record));
  }
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
