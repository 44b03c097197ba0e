// Velocity beyond the faces where it is known.
#pragma once
#include <array>
#include <memory>

#include "fluids/fields/channel.h"
#include "framework/iobject.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class FluidSolver;

/// Fills faces that have no valid velocity from their valid neighbours, a layer a round.
class GridExtrapolation : public iObject {
 public:
  GridExtrapolation() { mPassCount = 2; }
  GridExtrapolation(const GridExtrapolation& other);
  bool ReadParameters(void* context = nullptr) override;
  void ClearLinks() override;
  void Reset() override;
  void Release(bool full) override;
  bool NextPass() override;
  void Prepare(void* context = nullptr) override;
  void Evaluate(const EvaluationThreadData& data) override;
  /// The byte grids stay for the next step; `Release` frees them.
  void Finish() override { SetFlag(FLAG_ACTIVE, false); }
  void SelectAxis(i32 axis) { mAxis = axis; }
  void SetLiquid(bool liquid) { mLiquid = liquid; }

  FluidSolver* mSolver = nullptr;
  ScalarField* mScalarChannel = nullptr;
  VectorField* mVectorChannel = nullptr;
  i32 mComponent = 0;  ///< of the vector channel
  i32 mAxis = 0;       ///< velocity component; 3 is the scalar mode
  i32 mRounds = 1;

 private:
  EGrid<double>* Target(i32 slot) const;
  CellBox ShareOf(const EGrid<double>& grid, const EvaluationThreadData& data) const;
  void Mark(const EGrid<double>& grid, const CellBox& box);
  void Extend(EGrid<double>& grid, const CellBox& box);

  bool mLiquid = false;
  i32 mRound = 0;
  std::array<std::unique_ptr<Grid<u8>>, 4> mValid;
  std::array<std::unique_ptr<Grid<u8>>, 4> mPrevious;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
