// Host geometry: polygons, splines and points.
#pragma once
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "host/frame_files.h"
#include "host/geometry.h"
#include "host/keyed_points.h"
#include "host/node.h"
#include "host/placements.h"

namespace MELDO_GLOBAL::host {

/// How an object goes on from where a simulation put it, per frame, in the axes of its parent: a
/// point of it moves by `way`, and it turns about that by `turn`, axis times angle.
struct PlacementMotion {
  Vec3d point{}, way{}, turn{};
};

/// A polygon object. Its counters rise when its points or polygons change.
class PolygonObject : public BaseNode {
 public:
  using BaseNode::BaseNode;

  const Geometry& GetGeometry() const { return mGeometry; }
  /// Replaces the geometry and raises the counters of what differs: `PointDirty` for points,
  /// `PolygonDirty` for polygons and all data of corners and points. Throws std::invalid_argument,
  /// and keeps the geometry, when a polygon names a point that isn't there or data don't have one
  /// entry per polygon or point.
  void SetGeometry(Geometry geometry);
  /// As `SetGeometry`, for what a simulation made: a checkpoint keeps it.
  void WriteOutput(Geometry geometry) {
    SetGeometry(std::move(geometry));
    mIsOutput = true;
  }
  bool IsOutput() const { return mIsOutput; }
  /// As `BaseNode::WriteBack`, for what moves: pictures with blur show it before and after.
  void WriteBack(const Matrix& m, const PlacementMotion& motion = {});
  /// Places what was written back where it is `frames` later, or with a negative number earlier; 0
  /// puts it back. Nothing happens to what wasn't.
  void MoveOn(double frames);
  /// A file per frame: `pattern` is a path that is absolute or relative to the working directory,
  /// with one run of # for the padded frame number. Before the first file and behind the last one
  /// the geometry stays; in a hole between files it does so only where `goesOn` says it.
  void SetFramePattern(std::string pattern, bool goesOn = false);
  const std::string& FramePattern() const { return mFramePattern; }

  u32 PointDirty() const { return mPointDirty; }
  u32 PolygonDirty() const { return mPolygonDirty; }

  /// From now on it stands where these say, with the scale and shear that it has.
  void SetPlacements(Placements placements);
  const Placements& GetPlacements() const { return mPlacements; }
  /// Its local placement at a moment of those.
  Matrix PlacedAt(double frame) const;
  /// Animates the node's values, then places it and loads the frame's file: the frame rounded down,
  /// and if it has none the last one before it, so that the result depends on the frame alone.
  /// Throws MeshFileError for a broken file and for a hole.
  void Animate(double frame) override;
  void VisitCounters(const std::function<void(u32&)>& visit) override;

 private:
  Geometry mGeometry;
  bool mIsOutput = false;
  Placements mPlacements;
  Vec3d mOwnAxes[3];               ///< as they stand in the turn of a placement
  std::optional<Matrix> mWritten;  ///< by this run
  PlacementMotion mMotion;
  std::string mFramePattern;
  bool mGoesOn = false;
  std::string mLoadedFile;  ///< the frame file that the geometry comes from
  u32 mPointDirty = 0;
  u32 mPolygonDirty = 0;
};

/// A set of loose points, in host units, which keys may move.
class PointsObject : public BaseNode {
 public:
  using BaseNode::BaseNode;
  /// Animates the node's values, then the points; the dirty count rises when they move.
  void Animate(double frame) override;

  std::vector<Vec3d> points;
  PointTrack track;  ///< without keys the points stay
};

/// A spline object: lines through its points, in host units.
class SplineObject : public PointsObject {
 public:
  using PointsObject::PointsObject;
  bool closed = false;
  bool smooth = false;        ///< curves lead from point to point, not straight lines
  std::vector<i32> segments;  ///< how many points each line has, in order; none: one has them all
};

}  // namespace MELDO_GLOBAL::host
