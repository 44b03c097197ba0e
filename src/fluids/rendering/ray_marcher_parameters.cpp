// From the look of a material, and the lights, to what rays work with.
#include "fluids/rendering/ray_marcher.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

using namespace MELDO_SULVA;

namespace {

constexpr double kSmokeThreshold = 0.0001;
constexpr double kBlackbodyStep = 5;  ///< Kelvin
constexpr double kHottest = 10000;    ///< Kelvin; of a channel without bounds

/// The value range of a channel as a mapping uses it; one without bounds reaches to `high`.
void TakeRange(const ScalarField& channel, double high, FieldMapping& mapping) {
  const bool bounded = channel.mValueMax < kUnbounded && channel.mValueMax > 0;
  mapping.valueMin = channel.mValueMin > -kUnbounded ? channel.mValueMin : 0.0;
  mapping.valueMax = bounded ? channel.mValueMax : high;
}

}  // namespace

void RayMarcher::SetWalks() {
  const RenderField& first = mSmoke.exists ? mSmoke : mFire.exists ? mFire : mThird;
  const double cell = first.channel.mGrid->mLayout.worldCell.x;
  mSteps = StepsOf(mLook.view, cell);
  const Vec3d density = mLook.shadow.colour * mLook.shadow.density;
  mShadow = {StepsOf(mLook.shadow, cell), density};
  mObjectShadow = {StepsOf(mLook.objectShadow, cell), density};
  mPhase = PhaseFunction::Make(mLook.scattering.phase);
  mFireReach = std::max(mLook.fireLight.radius, kShortestStep);
  mFireLightOn = mFire.exists && mSmoke.exists && mLook.fireLight.strength > 0;
  SetMultipleScattering(cell);
}

void RayMarcher::SetMultipleScattering(double cell) {
  MultipleScattering& m = mMultiple;
  static_cast<MultipleSettings&>(m) = mLook.multiple;
  m.on = m.on && mSmoke.exists;
  if (m.sameAbsorption) m.absorption = mLook.scattering.absorption;
  if (m.ownViewSpread) m.spread = m.viewSpread;
  m.steps = mSteps;
  if (!m.sameStep) m.steps.fine = std::max(m.step * cell, kShortestStep);
  m.steps.coarse = std::max(m.steps.coarse, m.steps.fine);
  m.anisotropy = mLook.scattering.anisotropy;
}

void RayMarcher::SetMappings() {
  const auto map = [&](RenderField& field, const host::SplineData& curve, double high) {
    field.mapping.SetCurve(curve);
    TakeRange(field.channel, high, field.mapping);
    if (field.exists) field.view = FieldView(*field.channel.mGrid);
  };
  map(mSmoke, *mLook.smoke.curve, 1);
  map(mFire, *mLook.fire.curve, kHottest);
  map(mThird, *mLook.third.curve, 1);
  mSmokeGradient = MakeRamp(*mLook.smoke.gradient);
  mFireGradient = MakeRamp(*mLook.fire.gradient);
  mFireLightGradient = MakeRamp(*mLook.fireLight.gradient);
  mSmoke.mapping.bypass = mLook.smoke.bypass;
  mSmoke.mapping.threshold = kSmokeThreshold;
  mSmoke.mapping.noise = FieldNoise(mLook.noise);
  mFire.mapping.threshold = mLook.fire.threshold;
  mThird.mapping.threshold = mLook.third.threshold;
  mSmoke.view.cubic = mThird.view.cubic = mLook.view.filter == 1;
  if (!mFire.exists) return;
  mBlackbody.mTMin = mFire.mapping.valueMin;
  mBlackbody.mTMax = std::max(mFire.mapping.valueMax, mBlackbody.mTMin);
  mBlackbody.mTStep = kBlackbodyStep;
  mBlackbody.Build(mLook.blackBody);
}

void RayMarcher::GatherLights(const host::RenderData& data) {
  mLights.clear();
  const host::InExcludeData* named = mLook.fields.lights;
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
