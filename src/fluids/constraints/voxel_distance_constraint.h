// The distance to an object.
#pragma once
#include <span>
#include <vector>

#include "fluids/mesh/mesh.h"
#include "fluids/particles/point_tree.h"
#include "framework/constraint.h"
#include "host/spline_line.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Measures the distance of a point from an object, as a share of a range: from its middle, from
/// the nearest of its points, or from the line of a spline.
class VoxelDistanceConstraint : public MeasuredConstraint<VoxelDistanceConstraint> {
 public:
  using MeasuredConstraint::MeasuredConstraint;
  static constexpr i32 kTypeId = 22;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  double Measure(const Vec3d& position, const ConstraintUse&) const;

 protected:
  bool Open() override;

 private:
  enum MeshMode : i32 { kMiddle = 0, kPoints = 1, kAlwaysFar = 2 };
  enum SplineMode : i32 { kSplineMiddle = 0, kSplinePoints = 1, kSplineLine = 2 };

  /// The mesh node that reads the object, or null.
  const Mesh* FindMesh() const;
  /// Takes the points of the object, none where its middle is meant; false where they are those
  /// that it has.
  bool TakeObject();
  /// The same of points that stand in the axes of the object, or of the simulation.
  bool TakePlaced(std::span<const Vec3d> points);
  bool TakePoints(std::span<const Vec3d> points);
  /// The same of a line, cut into pieces of no more than a cell, so that few of them are near
  /// enough to be the nearest.
  bool TakeLine(const host::SplineLine& line);
  double DistanceToLine(const Vec3d& p, double nearestSquared) const;

  host::BaseNode* mObject = nullptr;
  Mesh* mNamedMesh = nullptr;
  double mRange = 100;  ///< host units
  i32 mMeshMode = kPoints;
  i32 mSplineMode = kSplineLine;

  // For one run of a stage.
  Vec3d mMiddle{};             ///< simulation units
  std::vector<Vec3d> mPoints;  ///< of which the tree is made
  PointTree mTree;
  bool mIsFar = false;  ///< every point counts as far as the range
  bool mIsLine = false;
  std::vector<i32> mLineEnds;  ///< points behind which a line ends, ascending
  double mLongestPiece = 0;    ///< of a line, simulation units
  double mInverseRange = 1;    ///< 1 / simulation units
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
