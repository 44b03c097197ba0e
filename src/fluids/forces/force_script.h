// A force of the user's own on a flow.
#pragma once
#include <span>
#include <string>

#include "fluids/forces/force.h"
#include "framework/script_part.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class GridEmissionSettings;

/// du = w m, with the weight w that constraints and the time window leave at a cell and the vector
/// m that main(op) of a script gives there: the length of the step is the script's own affair, by
/// `op.step`. A run of cells in which it fails gets nothing, and so do all once the force sleeps.
class Force_Script : public Force {
 public:
  Force_Script(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kIntensityRow = 1000;
  bool ReadParameters() override;
  /// Where the script names nothing that cells alone have.
  bool ActsAnywhere() const override { return mRestsOnPlace; }
  bool ActsOnParticles() const override { return false; }
  bool ActsOnBodies() const override { return false; }

  using Force::Evaluate;
  void Evaluate(ForceSample& sample) override;
  void EvaluateRow(const ForceRow& row) override;

 private:
  static constexpr i32 kRun = 64;

  void Open() override;
  bool PrepareForce() override;
  void FinishForce() override { mScript.Close(); }
  /// Works on at most `kRun` cells.
  void EvaluateRun(std::span<ForceSample* const> samples);
  Vec3d VelocityAt(const std::array<i32, 3>& faceIndex) const;

  ScriptPart& mScript;
  std::string mSource;
  double mIntensity = 1;
  bool mRestsOnPlace = false;
  Duration* mOwnDuration = nullptr;
  GridEmissionSettings* mSettings = nullptr;  ///< their time window counts where it has none
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
