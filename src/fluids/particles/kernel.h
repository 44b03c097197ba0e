// Weights of neighbours by their distance.
#pragma once
#include <utility>

#include "framework/ibase.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The shape of a weight w over r, the distance, within h, the radius; q = r^2 / h^2.
enum class KernelType : i32 {
  kGauss = 0,         ///< exp(-r^2 / 2 h^2) / (h^3 (2 pi)^1.5)
  kPoly6 = 1,         ///< 315 / (64 pi h^3) (1 - q)^3
  kPoly6Power = 2,    ///< 315 / (64 pi h^9) (h^2 - r^2)^3
  kParabola = 3,      ///< 45 / (13 pi h^3) (1 - q)
  kCube = 4,          ///< 15 / (pi h^3) (1 - q)^3
  kCubePower = 5,     ///< 15 (h^2 - r^2)^3 / (pi h^12)
  kLinear = 6,        ///< max(0, 1 - q)
  kSharp = 7,         ///< max(0, h^2 / max(r^2, 1e-5) - 1)
  kBlob = 8,          ///< -0.44444 q^3 + 1.88888 q^2 - 2.44444 q + 1
  kExponential = 9,   ///< exp(c - c q), with the sharpness c
  kSquareCube = 10,   ///< (1 - q^2)^3
  kClampedCube = 11,  ///< max(0, (1 - q)^3)
  kCurve = 12,        ///< q, through the curve of a node; -1 beyond
};

/// A weight by distance. Beyond the radius it is 0, of the curve's q it is -1; of an unknown type
/// it is 0 everywhere.
class KernelBase {
 public:
  explicit KernelBase(KernelType type = KernelType::kLinear) : mType(type) {}
  KernelType Type() const { return mType; }
  void SetType(KernelType type) { mType = type; }

  /// The weight between two points.
  double Evaluate(const Vec3d& a, const Vec3d& b, double radius) const;
  /// The weight of a squared distance within the radius; the powers of the radius come from the
  /// caller. `Evaluate` gives the same there.
  double EvaluateSquared(double distanceSquared, double radiusSquared, double radiusCubed) const;

  double mSharpness = 1.0;

 private:
  KernelType mType;
};

/// A kernel that a user picks.
class Kernel : public iBase {
 public:
  using iBase::iBase;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kNodeType = 1300066;
  bool ReadParameters() override;

  /// As of `KernelBase`; q of the curve's type above 0 is looked up in the curve, any other gives
  /// 0.
  double Evaluate(const Vec3d& a, const Vec3d& b, double radius) const;
  double EvaluateSquared(double distanceSquared, double radiusSquared, double radiusCubed) const;
  const KernelBase& Base() const { return mKernel; }

 private:
  double ThroughCurve(double weight) const;

  i32 mKernelType = static_cast<i32>(KernelType::kLinear);
  const host::SplineData* mCurve = nullptr;
  KernelBase mKernel;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
