// Which velocity faces an implicit solve over the faces works on.
#pragma once
#include <array>
#include <memory>

#include "fluids/flow/flow.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

enum FaceState : u8 {
  kFaceSolved = 0,     ///< an unknown
  kFaceFixed = 1,      ///< closed, in a solid or at the border: its velocity is a boundary value
  kFaceOutOfBand = 2,  ///< too far from the liquid to matter
};

/// States of the velocity faces of a flow: three grids of bytes, one per component, each with the
/// component's own size and kind.
///
/// A face is fixed unless it is open, the mean of the four solid nodes round it is positive and it
/// lies off the border: index 0, the last one, and along the component's own axis the last but one.
/// Of the others those are out of band whose centre lies three cells or more from the liquid; a gas
/// has no surface and no such faces.
class Grid_Cellstates {
 public:
  /// False, and without states, when the flow has no velocity or no solids, or there is no memory.
  bool Build(const Flow& flow);
  void Release();
  /// States of component `axis`, bytes of `FaceState`; null before `Build`.
  const Grid<u8>* GetStates(i32 axis) const { return mStates[axis].get(); }

 private:
  bool Allocate(const Flow& flow);
  void FillRow(const Flow& flow, i32 axis, i32 y, i32 z, i32 first, i32 last);
  void MarkFarFaces(const EGrid<double>& surface, i32 axis, i32 y, i32 z, i32 first, i32 last);

  std::array<std::unique_ptr<Grid<u8>>, 3> mStates;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
