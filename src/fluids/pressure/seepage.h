// Fluid that seeps between a body and what it touches.
#pragma once
#include <optional>
#include <span>
#include <vector>

#include "fluids/pressure/body_coupling.h"
#include "fluids/pressure/projection_fields.h"
#include "fluids/pressure/solid_push.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Where a body touches another solid there are no cells of fluid, and nothing would press on it:
/// what lies on the floor of a pool would be held down by the water above it. Nothing is glued
/// there, though. Fluid gets in between as a film, whose pressure follows from that along its rim,
/// evenly from side to side as in a film that is as wide everywhere (Reynolds 1886), and when the
/// body moves off, what has to follow comes in over the rim.
///
/// So the faces of a body in cells without any open face count with the open cells of the same
/// layer round it: each with the two that lie across from each other along one axis of the layer,
/// and the two along the other, the nearer the more. In a corner, with one along each axis, it
/// counts with the sum of both less the open cell that lies beyond the two. A pressure that rises
/// evenly along the layer is what it is in between. Where there is one alone it counts for all.
/// Bodies that touch get opposite shares of one film.
class Seepage {
 public:
  /// `fields` and the volumes of `bodies` have to last.
  Seepage(const ProjectionFields& fields, std::span<const MovingBody> bodies);

  /// Takes rows in closed cells, where `body` is covered, out of `rows`, which are sorted by cell,
  /// and adds them to those of the rim. Returns what cells with fluid have got, by cell. A place
  /// that no fluid can reach keeps its row.
  std::vector<BodyRow> Spread(const MovingBody& body, std::vector<BodyRow>& rows) const;

 private:
  /// An open cell in some direction.
  struct Rim {
    i32 cell;
    double away;  ///< cells
    bool isWet;
  };
  struct Share {
    i32 cell;
    double part;
    bool isWet;
  };
  std::optional<Rim> FindRim(VecInt3D at, i32 axis, i32 side) const;
  Rim RimAt(const VecInt3D& cell, double away) const;
  /// The shares of a place in a corner whose ways out are `ways`; none where no cell lies beyond.
  std::vector<Share> SharesInCorner(const VecInt3D& at, const VecInt3D& ways) const;
  /// Of a face across `axis`; the parts add up to 1, without any where there is no way in.
  std::vector<Share> SharesOf(const VecInt3D& at, i32 axis) const;
  bool IsCovered(const VecInt3D& cell) const;

  struct Cover {
    const VolumeBase* volume;
    CellBox reach;
  };
  const ProjectionFields& mFields;
  const GridLayout& mLayout;
  std::vector<Cover> mCovers;  ///< the bodies that the pressure moves
};

/// Cells between a body and another solid that are thinner than a cell, and that hold no particles:
/// next to liquid they count as liquid until `Empty`. A vacuum would suck the body in.
class FilledGaps {
 public:
  /// Changes the level set `surface`, which is that of `fields`.
  void Fill(const ProjectionFields& fields, std::span<const MovingBody> bodies,
            EGrid<double>& surface);
  /// Gives the level set its values back; forgets all.
  void Empty(EGrid<double>* surface);

 private:
  struct Cell {
    i32 index;
    double phi;
  };
  std::vector<Cell> mCells;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
