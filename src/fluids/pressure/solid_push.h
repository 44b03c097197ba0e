// What moving solids push through the faces of cells.
#pragma once
#include <span>
#include <utility>
#include <vector>

#include "fluids/pressure/body_coupling.h"
#include "grids/egrid.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class VolumeBase;
struct ProjectionFields;

/// Cells of a layout that the box of a volume's grid touches.
CellBox CellsInReach(const GridLayout& layout, const VolumeBase& volume);

/// A solid in motion, as the coupling sees it.
struct MovingBody {
  const VolumeBase* volume = nullptr;
  Vec3d centre{};
  Vec3d linear{};   ///< simulation units per second
  Vec3d angular{};  ///< radians per second
  /// Where it isn't 0, the solid deforms: its surface's way in a step, times this, is its velocity
  /// there, and the three above don't count.
  double perStep = 0;
  BodyState* state = nullptr;  ///< of a body that the pressure moves
  i32 coupled = -1;            ///< its number in the coupling
};

/// The flow of moving solids through faces.
///
/// Every face has one value, whichever of its two cells asks: the part of the face that a body
/// closes, times the velocity of that body there. What rests owns its part of a face first: a body
/// closes what is open beside the resting solids alone and isn't beside them and the body. So a
/// piston pushes what its tube leaves open, wherever both stand to the grid, a rigid body that
/// moves inside a closed region pushes as much in front as it leaves behind, to rounding, and a
/// wall beside it pushes nothing. Where a body comes out of a resting obstacle, or goes into it,
/// inside of a cell, it does so through as much of the obstacle's surface as it closes of the
/// faces on both sides. In the last gap before another solid, narrower than a quarter of a cell, a
/// body pushes no more than the gap lets out at its own speed. Of a body that deforms a cell takes
/// the velocity of the surface nearest to its centre for all of its faces: inside of the body it
/// would swell where it stretches, and sides that the stretching merely slides along would push.
/// One is for one thread.
class SolidPush {
 public:
  /// `fields` and the volumes of `bodies` and `resting`, obstacles that don't move, have to last.
  SolidPush(const ProjectionFields& fields, std::span<const MovingBody> bodies,
            std::span<const VolumeBase* const> resting = {});

  /// The rows of a cell, by number of body.
  using BodyRows = std::vector<std::pair<i32, BodyRow>>;

  /// The cells that a body may push, of those in `box`.
  CellBox Reach(const CellBox& box) const { return Clip(box, mReach.min, mReach.max); }
  /// What all bodies add to the balance of cell (x, y, z), 1/s: what they leave free. With
  /// `coupling` a row goes there for each body that the pressure moves; those then push as they
  /// have to, and the pressure stops them where what they push has no way out.
  double Balance(i32 x, i32 y, i32 z, BodyRows* coupling = nullptr) const;

 private:
  struct Solid {
    const VolumeBase* volume;
    CellBox reach;  ///< cells that its grid touches
  };
  struct Body : Solid {
    MovingBody motion;
  };
  /// A face of a cell: its solid part, what resting solids leave open of it, what bodies close of
  /// that, and their flow through it per area, simulation units per second.
  struct Face {
    VecInt3D at;
    double solid = 0, open = 1, share = 0, flow = 0;
    double fastest = 0;     ///< speed of the bodies that fill it, simulation units per second
    double corner[4] = {};  ///< distances of the resting solids, simulation units
    /// What the bodies' parts of it count, one by one.
    double Factor() const;
    double Flow() const { return flow * Factor(); }
  };
  using Faces = Face[3][2];  ///< by axis, low and high
  /// What a body closes of the faces of a cell, and of the resting surface between two of them.
  struct Parts {
    double face[3][2] = {};
    double through[3] = {};
  };
  Vec3d PositionOf(const VecInt3D& cell, i32 kind) const;
  void AddResting(i32 axis, Face& face) const;
  Parts PartsOf(const Body& body, const Faces& faces) const;
  double AddBody(const Body& body, const Parts& parts, const VecInt3D& cell, Faces& faces) const;
  BodyRow RowOf(const Body& body, const Parts& parts, const VecInt3D& cell,
                const Faces& faces) const;
  double ThinPart(const VolumeBase& volume, i32 axis, const VecInt3D& face) const;
  void Cut(const VolumeBase& volume, i32 axis, const VecInt3D& face, double (&corner)[4]) const;
  double ShareOf(const Body& body, i32 axis, const Face& face) const;
  double OwnPart(const Body& body, i32 axis, const Face& face) const;
  double PartThrough(const Body& body, i32 axis, const Face (&faces)[2],
                     const double (&parts)[2]) const;

  const ProjectionFields& mFields;
  const GridLayout& mLayout;
  std::vector<Body> mBodies;
  std::vector<Solid> mResting;  ///< of those that the bodies may meet
  CellBox mReach;
  mutable std::vector<Parts> mParts;  ///< of each body, in the cell at hand
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
