// What fields count as in cells that solids hold and leave open.
#pragma once
#include <array>
#include <vector>

#include "fluids/flow/flow.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The cells of a flow whose centre lies in a solid, and which have open faces nevertheless.
///
/// Fields hold nothing there. What acts on the open faces by what is on both of their sides, such
/// as weight or lift, has to count something in these cells: layers of a field rest on whatever
/// stands in them where all faces of a layer see the same.
class CutCells {
 public:
  using OpenFaces = std::array<const EGrid<float>*, 3>;

  /// Finds them; there are none before a step has told which cells are closed.
  void Find(const Flow& flow, const OpenFaces& open);
  bool IsEmpty() const { return mCells.empty(); }
  /// The numbers of the closed cells that have none.
  const std::vector<i32>& Shut() const { return mShut; }
  /// Gives them, in a field on the flow's cells, the mean of the cells that open faces lead to in
  /// their layer across `axis`, from cell to cell, and where none does, of those above and below.
  /// Those that no other cell is connected with get `otherwise`.
  void Continue(i32 axis, double otherwise, EGrid<double>& field) const;

 private:
  double MeanBeside(const EGrid<double>& field, const VecInt3D& cell,
                    const std::array<bool, 3>& axes) const;

  OpenFaces mOpen{};
  std::vector<VecInt3D> mCells;
  std::vector<i32> mShut;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
