// What a node offers to exports: its grids and what they mean.
#pragma once
#include <array>
#include <optional>
#include <vector>

#include "framework/scene.h"
#include "grids/egrid.h"

namespace MELDO_GLOBAL::app {

/// A field of a node at the end of a frame. The grids belong to the node and are null while it has
/// none.
struct Field {
  enum class Kind {
    Scalar,    ///< one grid at cell centres
    Vector,    ///< three grids at cell centres
    Velocity,  ///< three grids on faces, simulation units per second
    LevelSet,  ///< signed distances, negative inside; several grids are one shape together
  };
  Kind kind = Kind::Scalar;
  std::array<const EGrid<double>*, 3> grids{};
  std::vector<const EGrid<double>*>
      others;              ///< of a level set of several grids those behind the first
  const char* unit = "1";  ///< of the values; "1" for a plain number
  double valueMax = 1;     ///< upper end of the value range
  bool isHeat = false;     ///< temperature or fire: drawn in warm colours
  f32 cellSize = 1;        ///< of the scene, where there is no grid

  bool HasGrid() const { return grids[0] && grids[0]->mData; }
};

/// The field of a core object: a channel, a solver (its velocity), a volume or a group of volumes;
/// empty for any other.
std::optional<Field> FieldOf(MELDO_SULVA::iBase& object);

/// The field, without a grid, of a node that has no core object, being switched off; empty for a
/// kind without fields.
std::optional<Field> EmptyFieldOf(const host::BaseNode& node, f32 cellSize);

/// The unit of a node's field; empty for a node without one.
const char* UnitOf(const host::BaseNode& node);

}  // namespace MELDO_GLOBAL::app
