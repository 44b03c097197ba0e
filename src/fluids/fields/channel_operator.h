// Operators on the cells of one channel.
#pragma once
#include <array>

#include "fluids/fields/channel.h"
#include "framework/constraint.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A cell that operators work on.
struct CellRecord {
  i32 cellIndex = 0;                 ///< in a single grid
  std::array<i32, 3> cellIndices{};  ///< in the three face grids of a velocity
  double weight = 1;                 ///< after the constraints of whoever walks the cells
  Vec3d position{};                  ///< centre, simulation units
  Vec3d worldPosition{};             ///< centre, host units
};

/// Changes cells of the channel that it is attached to. Whoever walks the channel hands over runs
/// of cells; an operator reads and writes the cells of its records only, so that several operators
/// may take a run one after the other.
class ChannelOperator : public iObject {
 public:
  using iObject::iObject;
  ChannelOperator() = default;
  ConstraintList* Constraints() override { return &mConstraints; }
  void ClearLinks() override;

  /// Takes the channel to work on; false when it is none.
  bool Attach(iBase* channel);
  /// Between `Prepare` and `Finish` of a run on another channel.
  bool IsBusyBeside(const iBase* channel) const;
  /// Makes ready for the cells of a step; inactive without grids, or where the class says so.
  void Prepare() override;
  void Evaluate(const EvaluationThreadData&) override {}
  void Finish() override;
  /// Works on `count` cells, at most 64; runs on all workers at once, each with cells of its own.
  void EvaluateCells(const CellRecord* cells, i32 count, const EvaluationThreadData& data);

 protected:
  static constexpr i32 kRun = 64;

  /// What the class needs beside its channel. False, told by `Deactivate`, where it is not there.
  virtual bool Open() { return true; }
  virtual void Close() {}
  /// Changes the cells by their weights, after the own constraints; none of them is 0.
  virtual void ChangeCells(const CellRecord* cells, i32 count,
                           const EvaluationThreadData& data) = 0;

  /// Where component `a` of a cell lies in the grids of a channel.
  static i32 IndexOf(const CellRecord& cell, i32 a, bool isStaggered) {
    return isStaggered ? cell.cellIndices[a] : cell.cellIndex;
  }
  double& Value(const CellRecord& cell, i32 a) const {
    return (*mGrids[a])[IndexOf(cell, a, mIsStaggered)];
  }

  ScalarField* mScalar = nullptr;
  VectorField* mVectorChannel = nullptr;
  /// Of the channel, from `Prepare` to `Finish`: the first alone of a scalar one.
  std::array<EGrid<double>*, 3> mGrids{};
  bool mIsStaggered = false;
  ConstraintList mConstraints;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
