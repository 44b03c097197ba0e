// Smooths a channel.
#pragma once
#include <memory>
#include <vector>

#include "fluids/operators/channel_work.h"
#include "fluids/operators/open_links.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

enum class DiffusionMode : i32 {
  Gaussian = 0,  ///< a separable blur, an axis a pass
  Smooth = 1,    ///< each cell and its six neighbours, in passes
  Grow = 2,      ///< the same where it raises the value
};

/// Smooths the components of a channel one after the other, in rounds, in stage 15. It moves what
/// there is from cell to cell, not through solids, walls or the sides of the grid (decision 40).
class GridDiffusion : public iObject {
 public:
  static constexpr i32 kTypeId = 100;
  GridDiffusion(host::BaseNode* node, Scene* scene) : iObject(node, scene) {}
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kStrengthRow = 1001;
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void CheckDirty() override;
  void Release(bool full) override;
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

  /// Weights of the taps -half..half of a Gaussian exp(-k^2 / s^2) for a strength of `s` cells,
  /// with a sum of 1. Taps further out than `reach` are left out.
  static std::vector<double> MakeKernel(double s, i32 reach);

 private:
  EGrid<double>* Component(i32 i) const;
  iBase* Channel() const;
  bool MakeWorkGrids(i32 count, const EGrid<double>& like);
  bool FindLinks(const EGrid<double>& grid);
  bool IsGaussian() const { return mMode == static_cast<i32>(DiffusionMode::Gaussian); }
  /// One round on a component: each axis in turn, or the neighbours at once.
  void Blur(EGrid<double>& grid);
  void Smooth(EGrid<double>& grid);
  void SmoothOnce(EGrid<double>& grid, double taken);

  ScalarField* mScalar = nullptr;
  VectorField* mVector = nullptr;
  i32 mMode = 1;
  i32 mRounds = 1;
  double mStrengthRow = 1;        ///< as the row has it, host units a second
  double mStrengthPerSecond = 0;  ///< cells a second

  std::unique_ptr<EGrid<double>> mWork[2];  ///< kept for the next step
  OpenLinks mLinks;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
