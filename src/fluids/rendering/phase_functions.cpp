#include "fluids/rendering/phase_functions.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace MELDO_GLOBAL::ZOLT_RENDERING {

namespace {

constexpr double kSphere = 1 / (4 * std::numbers::pi);
constexpr double kRayleighSphere = 3 / (16 * std::numbers::pi);
constexpr double kLargestG = 0.999;  ///< beyond it the forward lobe is a spike
constexpr double kLobeBlend = 0.7;

double Factor(bool normalise) { return normalise ? kSphere : 1.0; }
double Limited(double g) { return std::clamp(g, -kLargestG, kLargestG); }

/// (1 - g^2) / (1 + g^2 - 2 g c)^1.5
double Lobe(double c, double g) {
  const double d = 1 + g * g - 2 * g * c;
  return (1 - g * g) / (d * std::sqrt(d));
}

double CornetteShanks(double c, double g) { return 1.5 / (g * g + 2) * (c * c + 1) * Lobe(c, g); }

double Squared(double x) { return x * x; }

}  // namespace

double IsotropicPhaseFunction::Evaluate(double, bool, double, double) const { return kSphere; }

double HenyeyGreensteinPhaseFunction::Evaluate(double cosTheta, bool normalise, double g,
                                               double) const {
  return Factor(normalise) * Lobe(cosTheta, Limited(g));
}

double RayLeighPhaseFunction::Evaluate(double cosTheta, bool normalise, double g, double) const {
  return (normalise ? kRayleighSphere : 1.0) * g * (cosTheta * cosTheta + 1);
}

double MiePhaseFunction::Evaluate(double cosTheta, bool normalise, double g, double) const {
  const double k = Factor(normalise);
  if (mKind == Kind::Plain) return k * CornetteShanks(cosTheta, Limited(g));
  const double eighth = Squared(Squared(Squared((cosTheta + 1) / 2)));
  if (mKind == Kind::Hazy) return k * (4.5 * eighth + 0.5);
  return k * (16.5 * Squared(Squared(eighth)) + 0.5);
}

double SchlickPhaseFunction::Evaluate(double cosTheta, bool normalise, double g, double) const {
  const double limited = Limited(g);
  return Factor(normalise) * (1 - limited * limited) / Squared(1 - limited * cosTheta);
}

double DoubleHenyeyGreensteinPhaseFunction::Evaluate(double cosTheta, bool normalise, double g,
                                                     double g2) const {
  const double first = Lobe(cosTheta, Limited(g)), second = Lobe(cosTheta, Limited(g2));
  return Factor(normalise) * ((first - second) * mBlend + second);
}

double HenyeyGreensteinGPUGemsPhaseFunction::Evaluate(double cosTheta, bool normalise, double g,
                                                      double) const {
  return Factor(normalise) * CornetteShanks(cosTheta, Limited(g));
}

std::unique_ptr<PhaseFunction> PhaseFunction::Make(i32 index) {
  using Mie = MiePhaseFunction;
  switch (index) {
    case kIsotropic: return std::make_unique<IsotropicPhaseFunction>();
    case kHenyeyGreenstein: return std::make_unique<HenyeyGreensteinPhaseFunction>();
    case kRayleigh: return std::make_unique<RayLeighPhaseFunction>();
    case kMie: return std::make_unique<Mie>(Mie::Kind::Plain);
    case kMieHazy: return std::make_unique<Mie>(Mie::Kind::Hazy);
    case kMieMurky: return std::make_unique<Mie>(Mie::Kind::Murky);
    case kSchlick: return std::make_unique<SchlickPhaseFunction>();
    case kDoubleHenyeyGreenstein:
      return std::make_unique<DoubleHenyeyGreensteinPhaseFunction>(kLobeBlend);
    case kCornetteShanks: return std::make_unique<HenyeyGreensteinGPUGemsPhaseFunction>();
    default: return nullptr;
  }
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
