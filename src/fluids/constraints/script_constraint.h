// A rule of the user's own for where things work.
#pragma once
#include <span>
#include <string>

#include "framework/constraint.h"
#include "framework/script_part.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What main(op) of a script gives at a place is the measure there. A place where it fails passes
/// as it is, and so do all once the constraint sleeps.
class ScriptConstraint : public Constraint {
 public:
  ScriptConstraint(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kIntensityRow = 1000, kStateRow = 9003;

  void Finish(const ConstraintUse& use) override;
  bool Test(const Vec3d& position, double& weight, const ConstraintUse& use) override;
  void TestRow(const ConstraintRow& row, const ConstraintUse& use) override;

 private:
  static constexpr std::size_t kRun = 64;

  bool Open() override { return mScript.Open(mSource); }
  /// The script may have failed another holder.
  bool Fetch() override { return !mScript.HasFailed(); }
  /// Weighs points of which none is out, at most `kRun`; false where the script failed.
  bool Weigh(std::span<const Vec3d> positions, std::span<double> weights, u32 worker);

  ScriptPart& mScript;
  std::string mSource;
  double mIntensity = 1;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
