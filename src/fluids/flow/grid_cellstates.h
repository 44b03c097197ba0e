// Which velocity faces an implicit solve over the faces works on.
#pragma once
#include <array>
#include <memory>

#include "framework/iobject.h"
#include "grids/grid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class FluidSolver;

enum FaceState : u8 {
  kFaceSolved = 0,     ///< an unknown
  kFaceFixed = 1,      ///< closed, in a solid or at the border: its velocity is a boundary value
  kFaceOutOfBand = 2,  ///< too far from the liquid to matter
};

/// States of the velocity faces of a solver: three grids of bytes, one per component, each with the
/// component's own size and kind.
///
/// A face is fixed unless it is open, the mean of the four solid nodes round it is positive and it
/// lies off the border: index 0, the last one, and along the component's own axis the last but one.
/// Of the others those are out of band whose centre lies three cells or more from the liquid; a gas
/// has no surface and no such faces. Lives from `Prepare` to `Finish`; `Evaluate` fills the faces
/// of a worker's cells.
class Grid_Cellstates : public iObject {
 public:
  Grid_Cellstates() = default;
  Grid_Cellstates(const Grid_Cellstates& other) : iObject(other), mSolver(other.mSolver) {}
  /// All faces fixed.
  void Reset() override;
  void Release(bool full) override;
  void Prepare(void* context = nullptr) override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;
  std::unique_ptr<iBase> Clone() const override { return std::make_unique<Grid_Cellstates>(*this); }

  /// States of component `axis`, bytes of `FaceState`; null before `Prepare`.
  const Grid<u8>* GetStates(i32 axis) const { return mStates[axis].get(); }

  FluidSolver* mSolver = nullptr;  ///< the owner, not owned

 private:
  void FillRow(i32 axis, i32 y, i32 z, i32 first, i32 last);
  void MarkFarFaces(i32 axis, i32 y, i32 z, i32 first, i32 last);

  std::array<std::unique_ptr<Grid<u8>>, 3> mStates;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
