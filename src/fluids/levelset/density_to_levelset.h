// A level set round the dense part of a scalar field.
#pragma once
#include <memory>

#include "fluids/fields/channel.h"
#include "framework/iobject.h"
#include "grids/split.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Makes a level set (simulation units, negative inside) of the cells whose density reaches a
/// threshold. Its owner fills in the channels and runs the passes, each on all workers:
/// 0 seeds the inside with minus half a cell, 1 empties the inside but its outermost layer, 2
/// spreads distances (`FastSweeper`), 3 makes the inside negative. The outermost layer of cells is
/// never seeded, and keeps what it held where no distance reaches it.
class DensityToLevelset : public iObject {
 public:
  DensityToLevelset() { mPassCount = 4; }
  DensityToLevelset(const DensityToLevelset& other);

  bool NextPass() override;
  void Prepare(void* context = nullptr) override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;
  std::unique_ptr<iBase> Clone() const override {
    return std::make_unique<DensityToLevelset>(*this);
  }
  /// All passes on the workers; false when there is nothing to work on.
  bool Run(host::HostThread* thread);

  LevelField* mLevelSet = nullptr;  ///< its grid takes the result, its initial value means "far"
  const ScalarField* mSource = nullptr;
  double mThreshold = 0.0001;  ///< density from which on a cell is inside
  bool mSigned = true;         ///< false: distances of the inside stay positive

 private:
  void Seed(const CellBox& box);
  void EmptyInside(const CellBox& box);
  void Negate(const CellBox& box);

  static constexpr i32 kFlagKind = 13;
  std::unique_ptr<Grid<bool>> mInside;
  SlabTable mSlabs;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
