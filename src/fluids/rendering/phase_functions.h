// How much light a medium scatters, by the angle between the light's way and the viewer's.
#pragma once
#include <memory>

#include "host/types.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

/// A scattering kernel. Reading is safe on all threads.
class PhaseFunction {
 public:
  virtual ~PhaseFunction() = default;
  /// The share that goes into the angle of `cosTheta` (1: straight on). With `normalise` the
  /// integral over the sphere is 1 (1/sr), without it most kinds are 4 pi times that. `g` is the
  /// mean cosine of most kinds, `g2` the second lobe's; |g| counts as at most 0.999.
  virtual double Evaluate(double cosTheta, bool normalise, double g, double g2) const = 0;

  /// The numbers that parameters hold.
  enum Index : i32 {
    kIsotropic = 0,
    kHenyeyGreenstein = 1,
    kRayleigh = 2,
    kMie = 3,
    kMieHazy = 4,
    kMieMurky = 5,
    kSchlick = 6,
    kDoubleHenyeyGreenstein = 7,
    kCornetteShanks = 8,
    kCount = 9,
  };
  /// Null for a number that is none.
  static std::unique_ptr<PhaseFunction> Make(i32 index);
};

/// 1 / (4 pi), with and without `normalise`.
class IsotropicPhaseFunction : public PhaseFunction {
 public:
  double Evaluate(double cosTheta, bool normalise, double g, double g2) const override;
};

/// Henyey, Greenstein, "Diffuse radiation in the galaxy" (1941).
class HenyeyGreensteinPhaseFunction : public PhaseFunction {
 public:
  double Evaluate(double cosTheta, bool normalise, double g, double g2) const override;
};

/// Rayleigh's (1 + cos^2), times `g` as a strength.
class RayLeighPhaseFunction : public PhaseFunction {
 public:
  double Evaluate(double cosTheta, bool normalise, double g, double g2) const override;
};

/// Droplets. `Plain` is the kernel of Cornette, Shanks, "Physically reasonable analytic expression
/// for the single-scattering phase function" (1992), eq. 8; the other two are the fits of Nishita,
/// Miyawaki, Nakamae, "A shading model for atmospheric scattering" (1987), which need no `g`.
class MiePhaseFunction : public PhaseFunction {
 public:
  enum class Kind { Plain, Hazy, Murky };
  explicit MiePhaseFunction(Kind kind) : mKind(kind) {}
  double Evaluate(double cosTheta, bool normalise, double g, double g2) const override;

 private:
  Kind mKind;
};

/// Blasi, Le Saec, Schlick, "A rendering algorithm for discrete volume density objects" (1993).
class SchlickPhaseFunction : public PhaseFunction {
 public:
  double Evaluate(double cosTheta, bool normalise, double g, double g2) const override;
};

/// Two lobes of Henyey and Greenstein: `mBlend` of the one with `g`, the rest with `g2`.
class DoubleHenyeyGreensteinPhaseFunction : public PhaseFunction {
 public:
  explicit DoubleHenyeyGreensteinPhaseFunction(double blend) : mBlend(blend) {}
  double Evaluate(double cosTheta, bool normalise, double g, double g2) const override;

 private:
  double mBlend;
};

/// The polarised form of Henyey and Greenstein's kernel, as `MiePhaseFunction` has it.
class HenyeyGreensteinGPUGemsPhaseFunction : public PhaseFunction {
 public:
  double Evaluate(double cosTheta, bool normalise, double g, double g2) const override;
};

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
