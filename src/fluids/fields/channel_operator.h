// Operators on the cells of one channel.
#pragma once
#include <array>

#include "fluids/fields/channel.h"

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
  void ClearLinks() override {
    mScalar = nullptr;
    mVectorChannel = nullptr;
    iObject::ClearLinks();
  }

  /// Takes the channel to work on; false when it is none.
  bool Attach(iBase* channel);
  /// Works on `count` cells; runs on all workers at once, each with cells of its own.
  virtual void EvaluateCells(const CellRecord* cells, i32 count,
                             const EvaluationThreadData& data) = 0;

 protected:
  ScalarField* mScalar = nullptr;
  VectorField* mVectorChannel = nullptr;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
