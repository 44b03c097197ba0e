// What moving solids push through the faces of cells.
#pragma once
#include <span>
#include <vector>

#include "grids/egrid.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class VolumeBase;
struct ProjectionFields;

/// A solid in motion, as the coupling sees it.
struct MovingBody {
  const VolumeBase* volume = nullptr;
  Vec3d centre{};
  Vec3d linear{};   ///< simulation units per second
  Vec3d angular{};  ///< radians per second
  /// Where above 0, the solid deforms: what its surface goes in a step, times this, is its velocity
  /// there, and the three above don't count.
  double perStep = 0;
};

/// The flow of moving solids through faces.
///
/// Every face has one value, whichever of its two cells asks: the solid part of the face, body by
/// body as each one's own distances cut it, times the velocity of that body there. So a rigid body
/// that moves inside a closed region pushes as much in front as it leaves behind, to rounding, and
/// a wall beside it pushes nothing. In the last gap before another solid, narrower than a quarter
/// of a cell, it pushes no more than the gap lets out at its own speed. Of a body that deforms a
/// cell takes the velocity of the surface nearest to its centre for all of its faces: inside of the
/// body it would swell where it stretches, and sides that the stretching merely slides along would
/// push.
class SolidPush {
 public:
  /// `fields` and `bodies` have to last.
  SolidPush(const ProjectionFields& fields, std::span<const MovingBody> bodies);

  /// The cells that a body may push, of those in `box`.
  CellBox Reach(const CellBox& box) const { return Clip(box, mReach.min, mReach.max); }
  /// What all bodies add to the balance of cell (x, y, z), 1/s: what they leave free.
  double Balance(i32 x, i32 y, i32 z) const;

 private:
  struct Body {
    MovingBody motion;
    CellBox reach;  ///< cells that its grid touches
  };
  /// A face of a cell: its solid part, what bodies fill of it, and their flow through it per area,
  /// simulation units per second.
  struct Face {
    VecInt3D at;
    double solid = 0, share = 0, flow = 0;
    double fastest = 0;  ///< speed of the bodies that fill it, simulation units per second
    double Flow() const;
  };
  Vec3d PositionOf(const VecInt3D& cell, i32 kind) const;
  void AddBody(const Body& body, const VecInt3D& cell, Face (&faces)[3][2]) const;
  bool IsThin(const VolumeBase& volume, i32 axis, const VecInt3D& face) const;
  double ShareOf(const Body& body, i32 axis, const VecInt3D& face) const;

  const ProjectionFields& mFields;
  const GridLayout& mLayout;
  std::vector<Body> mBodies;
  CellBox mReach;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
