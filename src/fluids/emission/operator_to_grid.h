// Operators that carry other data to grids.
#pragma once
#include "framework/iobject.h"
#include "grids/for_each_cell.h"
#include "grids/layer_owner.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Base of what fills cells round its source: a box of the world's cells, dealt to the workers by
/// layers.
class Operator_ToGrid : public iObject {
 public:
  using iObject::iObject;
  Operator_ToGrid() = default;

 protected:
  CellBox mRegion;  ///< cells of the world's lattice
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
