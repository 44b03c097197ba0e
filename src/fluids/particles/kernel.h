// Weights of neighbours by their distance.
#pragma once
#include <algorithm>
#include <cmath>

#include "framework/ibase.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The shape of a weight w over r, the distance, within h, the radius; q = r^2 / h^2.
enum class KernelType : i32 {
  kGauss = 0,         ///< exp(-r^2 / 2 h^2) / (h^3 (2 pi)^1.5)
  kPoly6 = 1,         ///< 315 / (64 pi h^3) (1 - q)^3
  kPoly6Power = 2,    ///< 315 / (64 pi h^9) (h^2 - r^2)^3
  kParabola = 3,      ///< 45 / (13 pi h^3) (1 - q)
  kCube = 4,          ///< 15 / (pi h^3) (1 - q)^3
  kCubePower = 5,     ///< 15 / (pi h^12) (h^2 - r^2)^3
  kLinear = 6,        ///< max(0, 1 - q)
  kSharp = 7,         ///< max(0, h^2 / max(r^2, 1e-5) - 1)
  kBlob = 8,          ///< -0.44444 q^3 + 1.88888 q^2 - 2.44444 q + 1
  kExponential = 9,   ///< exp(c - c q), with the sharpness c
  kSquareCube = 10,   ///< (1 - q^2)^3
  kClampedCube = 11,  ///< max(0, (1 - q)^3)
  kCurve = 12,        ///< q, through the curve of a node
};

/// The weight of a squared distance r2 within the radius; h2 and h3 are powers of the radius, `c`
/// is the sharpness.
template <KernelType T>
double KernelWeight(double r2, double h2, double h3, double c) {
  constexpr double kPi = 3.14159265358979323846, k64Pi = 64 * kPi, k13Pi = 13 * kPi;
  constexpr double kGaussArea = 15.749609945722419;  // (2 pi)^1.5
  const auto cube = [](double x) { return x * x * x; };
  const double q = r2 / h2;
  switch (T) {
    case KernelType::kGauss: return std::exp(-0.5 * q) / (h3 * kGaussArea);
    case KernelType::kPoly6: return 315 / (k64Pi * h3) * cube(1 - q);
    case KernelType::kPoly6Power: return 315 / (k64Pi * cube(h3)) * cube(h2 - r2);
    case KernelType::kParabola: return 45 / (k13Pi * h3) * (1 - q);
    case KernelType::kCube: return 15 / (kPi * h3) * cube(1 - q);
    case KernelType::kCubePower: return 15 / (kPi * cube(h2) * cube(h2)) * cube(h2 - r2);
    case KernelType::kLinear: return std::max(0.0, 1 - q);
    case KernelType::kSharp: return std::max(0.0, h2 / std::max(r2, 1e-5) - 1);
    case KernelType::kBlob: return ((-0.44444 * q + 1.88888) * q - 2.44444) * q + 1;
    case KernelType::kExponential: return std::exp(c - c * q);
    case KernelType::kSquareCube: return cube(1 - q * q);
    case KernelType::kClampedCube: return std::max(0.0, cube(1 - q));
    case KernelType::kCurve: return q;
  }
  return 0;
}

/// A weight by distance. Beyond the radius it is 0, of the curve's q it is -1; of an unknown type
/// it is 0 everywhere.
class KernelBase {
  template <KernelType T>
  auto WeightOf() const {
    return [c = mSharpness](double r2, double h2, double h3) {
      return KernelWeight<T>(r2, h2, h3, c);
    };
  }

 public:
  explicit KernelBase(KernelType type = KernelType::kLinear) : mType(type) {}
  KernelType Type() const { return mType; }
  void SetType(KernelType type) { mType = type; }

  /// The weight between two points.
  double Evaluate(const Vec3d& a, const Vec3d& b, double radius) const;
  /// Calls f(weight) once, with weight(distanceSquared, radiusSquared, radiusCubed) as a function
  /// of the own type, and returns what it does: for loops, which then don't ask for the type.
  template <class F>
  decltype(auto) With(F&& f) const {
    using enum KernelType;
    switch (mType) {
      case kGauss: return f(WeightOf<kGauss>());
      case kPoly6: return f(WeightOf<kPoly6>());
      case kPoly6Power: return f(WeightOf<kPoly6Power>());
      case kParabola: return f(WeightOf<kParabola>());
      case kCube: return f(WeightOf<kCube>());
      case kCubePower: return f(WeightOf<kCubePower>());
      case kLinear: return f(WeightOf<kLinear>());
      case kSharp: return f(WeightOf<kSharp>());
      case kBlob: return f(WeightOf<kBlob>());
      case kExponential: return f(WeightOf<kExponential>());
      case kSquareCube: return f(WeightOf<kSquareCube>());
      case kClampedCube: return f(WeightOf<kClampedCube>());
      case kCurve: return f(WeightOf<kCurve>());
    }
    return f([](double, double, double) { return 0.0; });
  }

  /// The weight of a squared distance within the radius; the powers of the radius come from the
  /// caller. `Evaluate` gives the same there.
  double EvaluateSquared(double distanceSquared, double radiusSquared, double radiusCubed) const {
    return With([&](auto weight) { return weight(distanceSquared, radiusSquared, radiusCubed); });
  }

  double mSharpness = 1.0;

 private:
  KernelType mType;
};

/// The choices of a row that picks a type.
std::vector<host::Choice> KernelChoices();

/// A kernel that a user picks.
class Kernel : public iBase {
 public:
  using iBase::iBase;
  static constexpr i32 kNodeType = 1300066;
  static constexpr i32 kTypeRow = 7150;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  bool ReadParameters() override;

  /// As of `KernelBase`; q of the curve's type above 0 is looked up in the curve, any other gives
  /// 0.
  double Evaluate(const Vec3d& a, const Vec3d& b, double radius) const {
    return ThroughCurve(mKernel.Evaluate(a, b, radius));
  }
  double EvaluateSquared(double distanceSquared, double radiusSquared, double radiusCubed) const {
    return ThroughCurve(mKernel.EvaluateSquared(distanceSquared, radiusSquared, radiusCubed));
  }
  /// The kernel without its curve.
  const KernelBase& Base() const { return mKernel; }

 private:
  double ThroughCurve(double weight) const {
    if (mKernel.Type() != KernelType::kCurve) return weight;
    return weight > 0 && mCurve ? mCurve->Evaluate(weight) : 0.0;
  }

  i32 mKernelType = static_cast<i32>(KernelType::kLinear);
  const host::SplineData* mCurve = nullptr;
  KernelBase mKernel;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
