// Splines as lines: places, frames, lengths.
#pragma once
#include <optional>
#include <vector>

#include "host/polygon_object.h"

namespace MELDO_GLOBAL::host {

/// A place on a spline: a segment, and the share of its length that lies before it.
struct SplinePlace {
  i32 segment = 0;
  double u = 0;
};

/// What of a spline is nearest to somewhere.
struct NearestOnSpline {
  SplinePlace place;
  Vec3d position{};
  double distance = 0;
};

/// The line of a spline where it stands: one polyline for each of its segments. Smooth ones are
/// drawn as centripetal Catmull-Rom curves (Barry and Goldman 1988; Yuksel et al. 2011) in
/// `kPieces` pieces from point to point. Segments without length are left out.
///
/// Frames minimise rotation: they turn no more about the line than it bends, by double reflection
/// (Wang et al. 2008), and what is left of a turn once round a closed segment is spread over it.
class SplineLine {
 public:
  static constexpr i32 kPieces = 12;

  SplineLine() = default;
  /// The points go through `placement`, then each axis times `scale`; frames begin as upright as
  /// the placement's y axis lets them.
  SplineLine(const SplineObject& spline, const Matrix& placement, const Vec3d& scale);

  bool IsEmpty() const { return mSegments.empty(); }
  i32 SegmentCount() const { return static_cast<i32>(mSegments.size()); }
  double LengthOf(i32 segment) const { return mSegments[segment].length; }
  /// Of all segments.
  double TotalLength() const { return mLength; }
  bool IsClosed(i32 segment) const { return mSegments[segment].isClosed; }
  /// How many points of the object make the segment.
  i32 PointCount(i32 segment) const { return mSegments[segment].pointCount; }
  /// The points of its line; of a closed one the last is the first again.
  std::vector<Vec3d> PointsOf(i32 segment) const;
  /// Where a point of the object lies on its segment.
  SplinePlace PlaceOfPoint(i32 segment, i32 point) const;
  /// The place behind `length` of all segments, one after the other; ends hold what is beyond them.
  SplinePlace PlaceAt(double length) const;

  Vec3d PositionAt(const SplinePlace& place) const;
  /// The frame there: v3 along the line, v1 and v2 across it, of unit length.
  Matrix FrameAt(const SplinePlace& place) const;

  /// The place of the line that is nearest to `p` and nearer than `reach`; of equals the first.
  std::optional<NearestOnSpline> FindNearest(const Vec3d& p, double reach) const;
  /// The same among the points of the line.
  std::optional<NearestOnSpline> FindNearestPoint(const Vec3d& p, double reach) const;

  /// Whether the line has the same course as another, point by point.
  bool HasCourseOf(const SplineLine& other) const;

 private:
  struct Segment {
    i32 first = 0, last = 0;  ///< points of the line; of a closed one the last is the first again
    i32 pointCount = 0;
    bool isClosed = false;
    bool isSmooth = false;
    double length = 0;
  };
  struct LinePoint {
    Vec3d position{};
    double u = 0;
  };
  /// The axes at both ends of the piece from a point to the next.
  struct PieceAxes {
    Vec3d tangent[2], normal[2];
  };
  /// A run of pieces with the box that they lie in.
  struct Run {
    i32 segment, first, last;
    Vec3d low, high;
  };
  void AddSegment(std::vector<Vec3d> points, bool isClosed, bool isSmooth, const Vec3d& up);
  void TurnAlong(const Segment& segment, const Vec3d& up);
  void CutRuns(i32 segment);
  /// The piece that holds a place, with the share of it before that.
  std::pair<i32, double> PieceAt(const SplinePlace& place) const;
  template <class Visit>
  void ForEachRunWithin(const Vec3d& p, const double& reachSquared, Visit&& visit) const;

  std::vector<Segment> mSegments;
  std::vector<LinePoint> mPoints;
  std::vector<PieceAxes> mAxes;  ///< by the first point of a piece
  std::vector<Run> mRuns;
  double mLength = 0;
};

/// The line of a spline object that may move: made anew when the object has changed or stands
/// elsewhere.
class SplineTracker {
 public:
  /// Looks at the object as it is now; false where it has no length.
  bool Update(const SplineObject& spline, const Vec3d& scale);
  const SplineLine& Line() const { return mLine; }
  /// Rises with every line that differs from the one before.
  u32 Counter() const { return mCounter; }
  void Clear() { *this = {}; }

 private:
  NodeId mNode = 0;
  u32 mDirty = 0;
  Matrix mPlacement;
  Vec3d mScale{};
  SplineLine mLine;
  u32 mCounter = 0;
};

}  // namespace MELDO_GLOBAL::host
