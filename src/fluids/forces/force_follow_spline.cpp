#include "fluids/forces/force_follow_spline.h"

#include "fluids/forces/sampled_velocity.h"
#include "fluids/particles/particle_columns.h"
#include "framework/node_kind.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& Force_FollowSpline::Kind() {
  static const NodeKind kind = {
      .id = 1300161,
      .type = "force_followspline",
      .label = "DF::Follow Spline",
      .className = "Force_FollowSpline",
      .typeId = 41,
      .list = kListForces,
      .categories = kCategoryGrid | kCategoryParticle,
      .menu = {"Bodies/Forces", "Grids/Forces", "Particles/Forces"},
      .purpose = "draws fluids and particles onto a spline and leads them along it",
      .example =
          {{R"({ "name": "way", "type": "spline", "smooth": true, "points": [[-100, 50, 0], [0, 150, 40], [100, 250, 0]] })"},
           {R"({ "type": "force_followspline", "name": "lead", "parameters": { "spline": "way", "follow_distance": 100, "follow_speed": 200 } })",
            R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "forces": ["lead"] } })"}},
      .rows = Parameters,
      .make = MakeNode<Force_FollowSpline>,
  };
  return kind;
}

const ParameterTable& Force_FollowSpline::Parameters() {
  static const ParameterTable table = {
      LinkRow(kSplineRow, "spline", "the way, wherever it moves", {kSplineObject})
          .To(&Force_FollowSpline::mSpline)
          .Required(),
      LinkRow(1001, "duration", "pushes only inside this time window", {Duration::Kind().id})
          .To(&Force_FollowSpline::mDuration),
      RealRow(
          kPullForceRow, "pull_force", 0.25, "none",
          "how hard it draws to the spline: the share of 'pull_speed' that it may add in 1/25 s")
          .AtLeast(0)
          .To(&Force_FollowSpline::mPullShare),
      RealRow(kReachRow, "capture_distance", 300.0, "host",
              "how far from the spline something may be and still be drawn to it")
          .AtLeast(0)
          .OnlyWith(kModeRow, {kNearestLine, kNearestPoint})
          .To(&Force_FollowSpline::mReach),
      LongRow(kModeRow, "mode", kNearestLine, "",
              "where each place is drawn to: the nearest place of the spline's lines, the nearest "
              "of its points, one of them, or a place that far along it")
          .Choices({{kNearestLine, "nearest_line"},
                    {kNearestPoint, "nearest_point"},
                    {kPoint, "point"},
                    {kLength, "length"}})
          .To(&Force_FollowSpline::mMode),
      RealRow(kPullSpeedRow, "pull_speed", 100.0, "host/s", "how fast it is drawn there")
          .To(&Force_FollowSpline::mPullSpeed),
      RealRow(kPullWeightRow, "pull_weight", 1.0, "none", "a handle on that pull; 0 leaves it out")
          .To(&Force_FollowSpline::mPullWeight),
      LongRow(kSegmentRow, "segment", 1, "", "which line of the spline, counted from 1")
          .AtLeast(1)
          .OnlyWith(kModeRow, {kPoint})
          .To(&Force_FollowSpline::mSegment),
      LongRow(kPointRow, "point", 0, "", "which point of that line, counted from 0")
          .AtLeast(0)
          .OnlyWith(kModeRow, {kPoint})
          .To(&Force_FollowSpline::mPoint),
      RealRow(kLengthRow, "length", 300.0, "host", "how far along the spline; keys may move it")
          .OnlyWith(kModeRow, {kLength})
          .To(&Force_FollowSpline::mLength),
      RealRow(kFollowDistanceRow, "follow_distance", 20.0, "host",
              "how near to the spline something is led along it; 0 leads nothing")
          .AtLeast(0)
          .To(&Force_FollowSpline::mFollowDistance),
      LongRow(kBackwardsRow, "direction", 0, "", "which way along the spline")
          .Choices({{0, "forwards"}, {1, "backwards"}})
          .OrNumbers()
          .To(&Force_FollowSpline::mBackwards),
      RealRow(kFollowSpeedRow, "follow_speed", 10.0, "host/s",
              "how fast it is led; the pull to the line brakes that, and it is reached where "
              "'follow_force' times it is more than 'pull_force' times 'pull_speed'")
          .To(&Force_FollowSpline::mFollowSpeed),
      RealRow(kFollowWeightRow, "follow_weight", 1.0, "none",
              "a handle on that lead; 0 leaves it out")
          .To(&Force_FollowSpline::mFollowWeight),
      RealRow(kFollowForceRow, "follow_force", 0.25, "none",
              "how hard it is led: the share of 'follow_speed' that it may add in 1/25 s")
          .AtLeast(0)
          .To(&Force_FollowSpline::mFollowShare),
  };
  return table;
}

void Force_FollowSpline::ClearLinks() {
  FieldForce::ClearLinks();
  mSpline = nullptr;
}

bool Force_FollowSpline::PrepareForce() {
  if (!mSpline) return Deactivate("it has no spline; name one under 'spline'");
  if (!mTracker.Update(*mSpline, GetDomain().worldToSim))
    return Deactivate("its spline has no length");
  const SplineLine& line = mTracker.Line();
  mToSim = GetDomain().worldToSim.x;
  mPace = kPace * mTime->stepDuration;
  if (mMode == kPoint) {
    if (mSegment > line.SegmentCount()) return Deactivate("its spline has no such 'segment'");
    if (mPoint >= line.PointCount(mSegment - 1))
      return Deactivate("its spline has no such 'point'");
    mFixed = line.PlaceOfPoint(mSegment - 1, mPoint);
  }
  if (mMode == kLength) mFixed = line.PlaceAt(mLength * mToSim);
  return true;
}

std::optional<NearestOnSpline> Force_FollowSpline::PlaceFor(const Vec3d& p) const {
  const SplineLine& line = mTracker.Line();
  switch (mMode) {
    case kNearestLine: return line.FindNearest(p, mReach * mToSim);
    case kNearestPoint: return line.FindNearestPoint(p, mReach * mToSim);
    default: break;
  }
  const Vec3d at = line.PositionAt(mFixed);
  return NearestOnSpline{mFixed, at, Length(p - at)};
}

Vec3d Force_FollowSpline::VelocityAt(const FieldPoints& points, std::size_t i) const {
  if (points.particles) return points.particles->Velocities()[points.rows[i]];
  return SampledVelocity(mVelocity, points.positions[i]);
}

Vec3d Force_FollowSpline::Steer(const Vec3d& velocity, const Vec3d& direction, double speed,
                                double limit, double weight) {
  const Vec3d along = Normalised(direction);
  if (along == Vec3d{}) return {};
  const Vec3d change = along * speed - velocity;
  const double length = Length(change);
  return change * (length > limit ? weight * limit / length : weight);
}

void Force_FollowSpline::AddField(const FieldPoints& points) const {
  const double pullSpeed = mPullSpeed * mToSim, followSpeed = mFollowSpeed * mToSim;
  const double pullLimit = std::abs(mPullShare * pullSpeed) * mPace,
               followLimit = std::abs(mFollowShare * followSpeed) * mPace;
  for (std::size_t i = 0; i < points.positions.size(); ++i) {
    const Vec3d& p = points.positions[i];
    const auto place = PlaceFor(p);
    if (!place) continue;
    const Vec3d velocity = VelocityAt(points, i);
    const Matrix frame = mTracker.Line().FrameAt(place->place);
    const Vec3d way = frame.offset - p;
    // No faster than leads there in this step: what is drawn past the place swings about it for
    // ever.
    const double pull = std::min(pullSpeed, Length(way) / mTime->stepDuration);
    Vec3d change = Steer(velocity, way, pull, pullLimit, mPullWeight);
    if (place->distance < mFollowDistance * mToSim)
      change += Steer(velocity, mBackwards != 0 ? -frame.v3 : frame.v3, followSpeed, followLimit,
                      mFollowWeight);
    points.changes[i] += change * points.weights[i];
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
