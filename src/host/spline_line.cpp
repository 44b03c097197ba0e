#include "host/spline_line.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "host/turn_by.h"

namespace MELDO_GLOBAL::host {

namespace {

constexpr i32 kRunPieces = 16;

double SquaredLength(const Vec3d& v) { return Dot(v, v); }

/// The curve from b to c at t of 0 to 1, by linear steps over knots that lie apart by the square
/// root of the distance of their points.
Vec3d CatmullRom(const Vec3d& a, const Vec3d& b, const Vec3d& c, const Vec3d& d, double t) {
  const double k1 = std::sqrt(Length(b - a)), k2 = k1 + std::sqrt(Length(c - b)),
               k3 = k2 + std::sqrt(Length(d - c));
  const double k = k1 + (k2 - k1) * t;
  const auto mix = [k](const Vec3d& from, const Vec3d& to, double k0, double kEnd) {
    return from * ((kEnd - k) / (kEnd - k0)) + to * ((k - k0) / (kEnd - k0));
  };
  const Vec3d ab = mix(a, b, 0, k1), bc = mix(b, c, k1, k2), cd = mix(c, d, k2, k3);
  return mix(mix(ab, bc, 0, k2), mix(bc, cd, k1, k3), k1, k2);
}

/// A unit vector across the unit vector `along`, as near to `up` as it can be.
Vec3d Across(const Vec3d& along, const Vec3d& up) {
  Vec3d across = up - along * Dot(up, along);
  if (SquaredLength(across) < 1e-12) {
    const Vec3d axis = std::abs(along.x) < 0.9 ? Vec3d{1, 0, 0} : Vec3d{0, 0, 1};
    across = axis - along * Dot(axis, along);
  }
  return Normalised(across);
}

/// The normal carried from one point of a line to the next by two reflections: about the plane
/// between the points, and about the one that brings the reflected tangent onto the new one.
Vec3d Carried(const Vec3d& normal, const Vec3d& tangent, const Vec3d& way, const Vec3d& next) {
  const double c1 = SquaredLength(way);
  if (c1 == 0) return normal;
  const Vec3d n = normal - way * (2 / c1 * Dot(way, normal));
  const Vec3d t = tangent - way * (2 / c1 * Dot(way, tangent));
  const Vec3d between = next - t;
  const double c2 = SquaredLength(between);
  return Across(next, c2 == 0 ? n : n - between * (2 / c2 * Dot(between, n)));
}

double DistanceToBoxSquared(const Vec3d& p, const Vec3d& low, const Vec3d& high) {
  return SquaredLength(p - Max(low, Min(p, high)));
}

}  // namespace

SplineLine::SplineLine(const SplineObject& spline, const Matrix& placement, const Vec3d& scale) {
  std::vector<i32> counts = spline.segments;
  if (counts.empty()) counts = {static_cast<i32>(spline.points.size())};
  const Vec3d up = Normalised(placement.Rotate({0, 1, 0}) * scale);
  auto point = spline.points.begin();
  for (const i32 count : counts) {
    std::vector<Vec3d> placed;
    for (i32 i = 0; i < count && point != spline.points.end(); ++i)
      placed.push_back((placement * *point++) * scale);
    AddSegment(std::move(placed), spline.closed, spline.smooth, up);
  }
}

void SplineLine::AddSegment(std::vector<Vec3d> points, bool isClosed, bool isSmooth,
                            const Vec3d& up) {
  const i32 n = static_cast<i32>(points.size());
  if (n < 2) return;
  Segment segment{static_cast<i32>(mPoints.size()), 0, n, isClosed, isSmooth, 0};
  const auto at = [&](i32 i) {
    if (isClosed) return points[(i + n) % n];
    // Beyond an open end the curve goes on as it came, mirrored.
    if (i < 0) return points[0] * 2.0 - points[1];
    return i < n ? points[i] : points[n - 1] * 2.0 - points[n - 2];
  };
  const auto isApart = [&](i32 i) { return at(i) != at(i + 1); };
  for (i32 i = 0; i < (isClosed ? n : n - 1); ++i) {
    mPoints.push_back({at(i), 0});
    // Points that follow one another in one place leave no knots between them.
    const bool isCurve = isSmooth && isApart(i - 1) && isApart(i) && isApart(i + 1);
    for (i32 k = 1; isSmooth && k < kPieces; ++k) {
      const double t = double(k) / kPieces;
      mPoints.push_back({isCurve ? CatmullRom(at(i - 1), at(i), at(i + 1), at(i + 2), t)
                                 : at(i) * (1 - t) + at(i + 1) * t,
                         0});
    }
  }
  mPoints.push_back({at(isClosed ? 0 : n - 1), 0});
  segment.last = static_cast<i32>(mPoints.size()) - 1;
  for (i32 i = segment.first; i < segment.last; ++i) {
    segment.length += Length(mPoints[i + 1].position - mPoints[i].position);
    mPoints[i + 1].u = segment.length;
  }
  if (!(segment.length > 0) || !std::isfinite(segment.length)) {
    mPoints.resize(segment.first);
    return;
  }
  for (i32 i = segment.first; i <= segment.last; ++i) mPoints[i].u /= segment.length;
  mPoints[segment.last].u = 1;
  mAxes.resize(mPoints.size());
  TurnAlong(segment, up);
  mSegments.push_back(segment);
  mLength += segment.length;
  CutRuns(SegmentCount() - 1);
}

void SplineLine::TurnAlong(const Segment& segment, const Vec3d& up) {
  const i32 first = segment.first, last = segment.last, count = last - first;
  std::vector<Vec3d> along(count);
  Vec3d known{};
  for (i32 i = 0; i < count; ++i) {
    along[i] = Normalised(mPoints[first + i + 1].position - mPoints[first + i].position);
    if (along[i] == Vec3d{}) along[i] = known;  // a piece without length goes on as the line came
    known = along[i];
  }
  for (i32 i = count - 1; i >= 0; --i) {
    if (along[i] == Vec3d{}) along[i] = known;
    known = along[i];
  }
  const auto tangentAt = [&](i32 i) {
    const bool isEnd = !segment.isClosed && (i == 0 || i == count);
    const Vec3d& before = along[(i + count - 1) % count];
    const Vec3d& behind = along[i % count];
    if (isEnd) return i == 0 ? behind : before;
    const Vec3d mean = Normalised(before + behind);
    return mean == Vec3d{} ? behind : mean;
  };
  // Pieces of a smooth line share what they have at a point; straight ones turn at corners.
  Vec3d tangent = segment.isSmooth ? tangentAt(0) : along[0];
  Vec3d normal = Across(tangent, up);
  for (i32 i = 0; i < count; ++i) {
    PieceAxes& axes = mAxes[first + i];
    if (!segment.isSmooth && i > 0) {
      normal = Carried(normal, tangent, along[i] + tangent, along[i]);
      tangent = along[i];
    }
    axes.tangent[0] = tangent;
    axes.normal[0] = normal;
    if (segment.isSmooth) {
      const Vec3d next = tangentAt(i + 1);
      normal = Carried(normal, tangent,
                       mPoints[first + i + 1].position - mPoints[first + i].position, next);
      tangent = next;
    }
    axes.tangent[1] = tangent;
    axes.normal[1] = normal;
  }
  if (!segment.isClosed) return;
  if (!segment.isSmooth) {
    normal = Carried(normal, tangent, along[0] + tangent, along[0]);
    tangent = along[0];
  }
  const Vec3d start = mAxes[first].normal[0];
  const double twist = std::atan2(Dot(Cross(normal, start), tangent), Dot(normal, start));
  for (i32 i = 0; i < count; ++i) {
    PieceAxes& axes = mAxes[first + i];
    for (i32 end = 0; end < 2; ++end)
      axes.normal[end] =
          TurnBy(axes.tangent[end] * (twist * mPoints[first + i + end].u))(axes.normal[end]);
  }
}

void SplineLine::CutRuns(i32 segment) {
  const Segment& s = mSegments[segment];
  for (i32 first = s.first; first < s.last; first += kRunPieces) {
    Run run{segment, first, std::min(first + kRunPieces, s.last), mPoints[first].position,
            mPoints[first].position};
    for (i32 i = first + 1; i <= run.last; ++i) {
      run.low = Min(run.low, mPoints[i].position);
      run.high = Max(run.high, mPoints[i].position);
    }
    mRuns.push_back(run);
  }
}

std::vector<Vec3d> SplineLine::PointsOf(i32 segment) const {
  std::vector<Vec3d> points;
  for (i32 i = mSegments[segment].first; i <= mSegments[segment].last; ++i)
    points.push_back(mPoints[i].position);
  return points;
}

SplinePlace SplineLine::PlaceOfPoint(i32 segment, i32 point) const {
  const Segment& s = mSegments[segment];
  const i32 i = s.first + point * (s.isSmooth ? kPieces : 1);
  return {segment, mPoints[std::clamp(i, s.first, s.last)].u};
}

SplinePlace SplineLine::PlaceAt(double length) const {
  for (i32 segment = 0; segment < SegmentCount(); ++segment) {
    const double own = mSegments[segment].length;
    if (length <= own || segment + 1 == SegmentCount())
      return {segment, std::clamp(length / own, 0.0, 1.0)};
    length -= own;
  }
  return {};
}

std::pair<i32, double> SplineLine::PieceAt(const SplinePlace& place) const {
  const Segment& s = mSegments[place.segment];
  const auto begin = mPoints.begin() + s.first, end = mPoints.begin() + s.last;
  const auto behind =
      std::upper_bound(begin, end, place.u, [](double u, const LinePoint& p) { return u < p.u; });
  const i32 piece = static_cast<i32>(std::max(behind - begin, std::ptrdiff_t{1})) - 1 + s.first;
  const double from = mPoints[piece].u, to = mPoints[piece + 1].u;
  return {piece, to > from ? std::clamp((place.u - from) / (to - from), 0.0, 1.0) : 0.0};
}

Vec3d SplineLine::PositionAt(const SplinePlace& place) const {
  const auto [piece, t] = PieceAt(place);
  return mPoints[piece].position * (1 - t) + mPoints[piece + 1].position * t;
}

Matrix SplineLine::FrameAt(const SplinePlace& place) const {
  const auto [piece, t] = PieceAt(place);
  const PieceAxes& axes = mAxes[piece];
  Matrix frame;
  frame.offset = PositionAt(place);
  frame.v3 = Normalised(axes.tangent[0] * (1 - t) + axes.tangent[1] * t);
  if (frame.v3 == Vec3d{}) frame.v3 = axes.tangent[0];
  frame.v1 = Across(frame.v3, axes.normal[0] * (1 - t) + axes.normal[1] * t);
  frame.v2 = Cross(frame.v3, frame.v1);
  return frame;
}

template <class Visit>
void SplineLine::ForEachRunWithin(const Vec3d& p, const double& reachSquared, Visit&& visit) const {
  for (const Run& run : mRuns)
    if (DistanceToBoxSquared(p, run.low, run.high) < reachSquared) visit(run);
}

std::optional<NearestOnSpline> SplineLine::FindNearest(const Vec3d& p, double reach) const {
  std::optional<NearestOnSpline> found;
  double best = reach * reach;
  ForEachRunWithin(p, best, [&](const Run& run) {
    for (i32 i = run.first; i < run.last; ++i) {
      const LinePoint &from = mPoints[i], &to = mPoints[i + 1];
      const Vec3d way = to.position - from.position;
      const double length = SquaredLength(way);
      const double t =
          length > 0 ? std::clamp(Dot(p - from.position, way) / length, 0.0, 1.0) : 0.0;
      const Vec3d at = from.position + way * t;
      const double distance = SquaredLength(p - at);
      if (!(distance < best)) continue;
      best = distance;
      found = NearestOnSpline{{run.segment, from.u + (to.u - from.u) * t}, at, 0};
    }
  });
  if (found) found->distance = std::sqrt(best);
  return found;
}

std::optional<NearestOnSpline> SplineLine::FindNearestPoint(const Vec3d& p, double reach) const {
  std::optional<NearestOnSpline> found;
  double best = reach * reach;
  ForEachRunWithin(p, best, [&](const Run& run) {
    for (i32 i = run.first; i <= run.last; ++i) {
      const double distance = SquaredLength(p - mPoints[i].position);
      if (!(distance < best)) continue;
      best = distance;
      found = NearestOnSpline{{run.segment, mPoints[i].u}, mPoints[i].position, 0};
    }
  });
  if (found) found->distance = std::sqrt(best);
  return found;
}

bool SplineLine::HasCourseOf(const SplineLine& other) const {
  const auto isSame = [](const LinePoint& a, const LinePoint& b) {
    return a.position == b.position && a.u == b.u;
  };
  const auto isAlike = [](const Segment& a, const Segment& b) {
    return a.last == b.last && a.isClosed == b.isClosed;
  };
  return std::equal(mPoints.begin(), mPoints.end(), other.mPoints.begin(), other.mPoints.end(),
                    isSame) &&
         std::equal(mSegments.begin(), mSegments.end(), other.mSegments.begin(),
                    other.mSegments.end(), isAlike);
}

bool SplineTracker::Update(const SplineObject& spline, const Vec3d& scale) {
  const Matrix placement = spline.GlobalMatrix();
  if (mNode == spline.Id() && mDirty == spline.DirtyCount() && mPlacement == placement &&
      mScale == scale)
    return !mLine.IsEmpty();
  mNode = spline.Id();
  mDirty = spline.DirtyCount();
  mPlacement = placement;
  mScale = scale;
  SplineLine line(spline, placement, scale);
  mCounter += !line.HasCourseOf(mLine);
  mLine = std::move(line);
  return !mLine.IsEmpty();
}

}  // namespace MELDO_GLOBAL::host
