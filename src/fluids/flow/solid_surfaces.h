// The surfaces of all solids of a flow, exactly.
#pragma once
#include <limits>
#include <optional>
#include <vector>

#include "fluids/flow/grid_boundary.h"
#include "fluids/volume/sharp_surface.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Obstacles and the walls of a container as one solid, whose surface is known between the nodes
/// too: of obstacles it is their triangles, or where there are none what their distances tell.
/// Sheets without an inside are no part of it. Valid as long as the obstacles stay as they are.
class SolidSurfaces {
 public:
  static constexpr i32 kNone = -1, kWall = -2;
  struct Nearest {
    double distance = std::numeric_limits<double>::max();  ///< simulation units, negative inside
    i32 solid = kNone;                                     ///< an index, or a wall
    Vec3d at{}, normal{};  ///< the nearest point and the unit normal there, out of the solid
  };

  explicit SolidSurfaces(const GridBoundary& boundary);
  /// Makes `Find` and `DistanceAt` exact for triangles smaller than a cell too.
  void LinkTriangles();

  /// The nearest surface to a point (simulation units).
  Nearest Find(const Vec3d& p) const;
  /// The same at a node of the boundary's level set.
  Nearest AtNode(const VecInt3D& node) const;
  /// The distance alone.
  double DistanceAt(const Vec3d& p) const;

  i32 Count() const { return static_cast<i32>(mSolids.size()); }
  const VolumeBase* Volume(i32 solid) const { return mSolids[solid].volume; }
  /// The nodes of the boundary's level set that an obstacle's grid covers, the last ones excluded.
  const CellBox& Reach(i32 solid) const { return mSolids[solid].reach; }

 private:
  struct Solid {
    const VolumeBase* volume;
    std::optional<SharpSurface> surface;
    VecInt3D offset;  ///< from the level set's nodes to its own
    CellBox reach;
  };
  bool Holds(const Solid& solid, const Vec3d& p) const;
  void AddWalls(const Vec3d& p, Nearest& nearest) const;
  i32 FindNearest(const Vec3d& p, Nearest& nearest) const;
  void AddNormal(const Vec3d& p, i32 triangle, Nearest& nearest) const;

  const GridLayout& mLayout;
  u8 mWalls;
  std::vector<Solid> mSolids;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
