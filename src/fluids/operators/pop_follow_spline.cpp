#include "fluids/operators/pop_follow_spline.h"

#include <cmath>
#include <limits>
#include <numbers>

#include "fluids/emission/stream_seeds.h"
#include "framework/node_kind.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

/// What a particle draws its numbers for.
enum SplineDraw : u64 {
  kDrawShare,
  kDrawSpline,
  kDrawPlace,
  kDrawAngle,
  kDrawRadius,
  kDrawBlend,
  kDrawSwirl
};
constexpr double kGoldenPart = 0.6180339887498949;  ///< multiples of it lie evenly between 0 and 1
constexpr double kTurn = 2 * std::numbers::pi;
constexpr double kReached = 0.1;  ///< cells: nearer than that to its place a particle has arrived
constexpr double kLeastProgress = 0.001 * 25;  ///< 1/s: of u, whatever the speed
constexpr double kSegmentMargin = 0.1;         ///< lets the number of a segment survive roundings

}  // namespace

const NodeKind& Pop_FollowSpline::Kind() {
  static const NodeKind kind = {
      .id = 1300162,
      .type = "pop_followspline",
      .label = "POP::Follow Spline",
      .className = "Pop_FollowSpline",
      .typeId = 126,
      .list = kListOperators,
      .categories = kCategoryParticle,
      .stages = {kOperators},
      .priority = 20,
      .menu = {"Particles/Operators"},
      .purpose = "leads particles to splines and along them",
      .example =
          {{example::kBall,
            R"({ "name": "way", "type": "spline", "smooth": true, "points": [[100, 60, 0], [200, 150, 40], [100, 250, 0]] })"},
           {example::kBallMesh, R"({ "type": "particlegroup", "name": "sparks" })",
            R"({ "type": "particlemesh_emission_setting", "name": "spark rate" })",
            R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "sparks", "source": "ball mesh", "settings": "spark rate", "kind": "passive" } })",
            R"({ "type": "particle_advection", "name": "fly", "parameters": { "group": "sparks", "kind": "passive", "motion": "ballistic" } })",
            R"({ "type": "pop_followspline", "name": "follow", "parameters": { "group": "sparks", "kind": "passive", "splines": ["way"], "approach_force": 4000, "direction": "forwards", "radius": 10 } })"}},
      .rows = Parameters,
      .make = MakeNode<Pop_FollowSpline>,
  };
  return kind;
}

const ParameterTable& Pop_FollowSpline::Parameters() {
  static const ParameterTable table = [] {
    using This = Pop_FollowSpline;
    ParameterTable rows = {GroupRow("whose particles are led"),
                           KindRow(kKindRow, kLiquid, "which particles of the group are led"),
                           DurationRow(kDurationRow, "leads only inside this time window")};
    const std::vector<Choice> picks = {
        {kNearest, "nearest"}, {kRandom, "random"}, {kById, "by_id"}};
    const ParameterTable own = {
        LinksRow(kSplinesRow, "splines", "the ways, wherever they move", {kSplineObject})
            .To(&This::mSplines)
            .Required(),
        LongRow(kPickRow, "pick_spline", kNearest, "",
                "which of 'splines' a particle goes to: by_id shares them out evenly")
            .Choices(picks)
            .To(&This::mPick),
        LongRow(kPlaceRow, "pick_place", kRandom, "",
                "where on that spline it begins: by_id spreads them evenly along it")
            .Choices(picks)
            .To(&This::mPlace),
        RealRow(kShareRow, "share", 1.0, "none",
                "how many are led at all, picked at random; the rest is left alone")
            .Range(0, 1)
            .To(&This::mShare),
        RealRow(kApproachSpeedRow, "approach_speed", 800.0, "host/s",
                "how fast a particle comes to its place at most")
            .AtLeast(0)
            .To(&This::mApproachSpeed),
        LongRow(kApproachModeRow, "approach_mode", kFixedApproach, "",
                "fixed: at 'approach_speed'; own: as fast as it was when it was picked, or as "
                "'approach_speed' says where it was at rest")
            .Choices({{kOwnApproach, "own"}, {kFixedApproach, "fixed"}})
            .OrNumbers()
            .To(&This::mApproachMode),
        RealRow(kApproachForceRow, "approach_force", 150.0, "host/s^2",
                "how hard it is turned and braked on that way")
            .AtLeast(0)
            .To(&This::mApproachForce),
        RealRow(kApproachWeightRow, "approach_weight", 1.0, "none",
                "a handle on that change; 0 lets particles fly on as they do")
            .Range(0, 1)
            .To(&This::mApproachWeight),
        RealRow(kArrivalRow, "arrival_distance", 20.0, "host",
                "from there on it slows down; it does so farther off where 'approach_force' asks "
                "for it")
            .AtLeast(0)
            .To(&This::mArrival),
        LongRow(kSpeedModeRow, "speed_mode", kByFrames, "",
                "how fast it goes along the spline: own as it was when it was picked, fixed as "
                "'speed' says, frames so that the whole line takes 'frames'")
            .Choices({{kOwnSpeed, "own"}, {kFixedSpeed, "fixed"}, {kByFrames, "frames"}})
            .To(&This::mSpeedMode),
        RealRow(kSpeedRow, "speed", 300.0, "host/s", "how fast it goes along the spline")
            .AtLeast(0)
            .OnlyWith(kSpeedModeRow, {kFixedSpeed})
            .To(&This::mSpeed),
        LongRow(kFramesRow, "frames", 60, "frames", "how long it takes from end to end")
            .AtLeast(1)
            .OnlyWith(kSpeedModeRow, {kByFrames})
            .To(&This::mFrames),
        RealRow(kSpeedFactorRow, "speed_factor", 0.8, "none",
                "a handle on the way along the spline, in every mode")
            .AtLeast(0)
            .To(&This::mSpeedFactor),
        LongRow(kDirectionRow, "direction", kBackwards, "",
                "to the last point of the line, or to its first one")
            .Choices({{kForwards, "forwards"}, {kBackwards, "backwards"}})
            .To(&This::mDirection),
        LongRow(kEndRow, "at_end", kRelease, "",
                "release: it flies on as fast as it went; wrap: it begins at the other end anew; "
                "finish: it comes to rest there, and no node of this kind leads it any more")
            .Choices({{kRelease, "release"}, {kWrap, "wrap"}, {kFinishThere, "finish"}})
            .To(&This::mEnd),
        BoolRow(kAgainRow, "again", false, "those that were released are led again")
            .OnlyWith(kEndRow, {kRelease})
            .To(&This::mAgain),
        RealRow(kRadiusRow, "radius", 1.0, "host", "how far from the line they go at most")
            .AtLeast(0)
            .To(&This::mRadius),
        RealRow(kInnerRadiusRow, "inner_radius", 0.0, "host", "how far from it they go at least")
            .AtLeast(0)
            .To(&This::mInnerRadius),
        LongRow(kSpreadRow, "spread", kDisc, "",
                "how they lie between both: disc as many everywhere, radius denser near the line, "
                "rim all at 'radius'")
            .Choices({{kDisc, "disc"}, {kEvenRadius, "radius"}, {kRim, "rim"}})
            .To(&This::mSpread),
        RealRow(kTaperRow, "taper", 0.0, "none",
                "which part of that distance is gone at the last point of the line; below 0 they "
                "spread")
            .To(&This::mTaper),
        RealRow(kAngleRow, "angle", 0.0, "rad",
                "where round the line they begin, seen along it from its upper side")
            .To(&This::mAngle),
        RealRow(kAngleRangeRow, "angle_range", kTurn, "rad",
                "over which part of the turn they lie from there")
            .To(&This::mAngleRange),
        RealRow(kSwirlRow, "swirl", 0.0, "rad/s", "how fast they turn round the line at most")
            .AtLeast(0)
            .To(&This::mSwirl),
        RealRow(kSwirlVariationRow, "swirl_variation", 1.0, "none",
                "how much of that is left to chance in each step: 0 turns all alike")
            .Range(0, 1)
            .To(&This::mSwirlVariation),
        RealRow(kBlendRow, "blend", 1.0, "none",
                "how much of the way to its place a particle goes: below 1 it drags behind and "
                "cuts corners")
            .Range(0, 1)
            .To(&This::mBlend),
        RealRow(kBlendVariationRow, "blend_variation", 0.0, "none",
                "how much less that is for some of them, drawn for each")
            .Range(0, 1)
            .To(&This::mBlendVariation),
        RealRow(kBlendPaceRow, "blend_pace", 25.0, "1/s",
                "how often in a second 'blend' counts, whatever the length of a step")
            .AtLeast(0)
            .To(&This::mBlendPace)};
    rows.insert(rows.end(), own.begin(), own.end());
    return rows;
  }();
  return table;
}

void Pop_FollowSpline::ClearLinks() {
  ParticleOperator::ClearLinks();
  mLines.clear();
  mWays.clear();
}

bool Pop_FollowSpline::PrepareOperator() {
  if (!FindParticles()) return false;
  if (mSplines.empty()) return Deactivate("it has no spline; name one under 'splines'");
  const Vec3d scale = GetDomain().worldToSim;
  mToSim = scale.x;
  mTrackers.resize(mSplines.size());
  mLines.clear();
  mWays.clear();
  mFirstWay.clear();
  for (std::size_t i = 0; i < mSplines.size(); ++i) {
    if (!mTrackers[i].Update(*mSplines[i], scale)) continue;
    const SplineLine& line = mTrackers[i].Line();
    mLines.push_back(&line);
    mFirstWay.push_back(static_cast<i32>(mWays.size()));
    for (i32 segment = 0; segment < line.SegmentCount(); ++segment)
      mWays.push_back({&line, segment});
  }
  if (mLines.empty()) return Deactivate("none of its splines has a length");
  ParticleStore& store = mGroup->Store(mKind);
  // All three first: a column that is made may move the others.
  for (const i32 id :
       {property_id::kSplineStateA, property_id::kSplineStateB, property_id::kSplineStateC})
    store.Require<Vec3d>(id);
  mA = store.Find<Vec3d>(property_id::kSplineStateA);
  mB = store.Find<Vec3d>(property_id::kSplineStateB);
  mC = store.Find<Vec3d>(property_id::kSplineStateC);
  mSeed = NodeSeed(*this);
  mStepSeed = StepSeed(*this);
  return true;
}

void Pop_FollowSpline::Evaluate(const EvaluationThreadData& data) {
  ForEachChosen(
      data, [&](ParticleStore& store, i32 row, double weight, u32) { Lead(store, row, weight); });
}

void Pop_FollowSpline::Lead(ParticleStore& store, i32 row, double weight) {
  u16& flags = store.Flags()[row];
  if (flags & PF_SPLINE_DONE) return;
  // Its spline may have been taken from the list.
  if ((flags & (PF_SPLINE_APPROACH | PF_SPLINE_FOLLOW)) && !WayOf(row)) {
    flags &= static_cast<u16>(~(PF_SPLINE_APPROACH | PF_SPLINE_FOLLOW));
    mB->Remove(row);
  }
  if (flags & PF_SPLINE_FOLLOW) return Follow(store, row, weight);
  if (!(flags & PF_SPLINE_APPROACH)) {
    // One that is free and has been on a spline was released.
    if ((mB->Has(row) && !mAgain) || ParticleDraw(mSeed, store.Ids()[row], kDrawShare) >= mShare)
      return;
    Catch(store, row);
  }
  Approach(store, row, weight);
}

const Pop_FollowSpline::Way* Pop_FollowSpline::WayOf(i32 row) const {
  const double number = mB->Get(row, {0, -1, 0}).y;
  return number >= 0 && number < static_cast<double>(mWays.size())
             ? &mWays[static_cast<std::size_t>(number)]
             : nullptr;
}

Pop_FollowSpline::Picked Pop_FollowSpline::PickPlace(const Vec3d& position, i32 id) const {
  constexpr double kAnywhere = std::numeric_limits<double>::infinity();
  const auto byId = static_cast<u32>(id);
  std::size_t line = 0;
  if (mPick == kRandom) {
    line = static_cast<std::size_t>(ParticleDraw(mSeed, id, kDrawSpline) *
                                    static_cast<double>(mLines.size()));
  } else if (mPick == kById) {
    line = byId % mLines.size();
  } else {
    double best = kAnywhere;
    for (std::size_t i = 0; i < mLines.size(); ++i)
      if (const auto found = mLines[i]->FindNearest(position, best)) {
        best = found->distance;
        line = i;
      }
  }
  const SplineLine& spline = *mLines[line];
  if (mPlace == kNearest)
    if (const auto found = spline.FindNearest(position, kAnywhere)) return {line, found->place};
  const double part =
      mPlace == kById ? std::fmod(byId * kGoldenPart, 1.0) : ParticleDraw(mSeed, id, kDrawPlace);
  return {line, spline.PlaceAt(part * spline.TotalLength())};
}

double Pop_FollowSpline::RadiusFor(i32 id) const {
  const double draw = ParticleDraw(mSeed, id, kDrawRadius);
  if (mSpread == kRim) return mRadius;
  if (mSpread == kEvenRadius) return mInnerRadius + draw * (mRadius - mInnerRadius);
  const double inner = mInnerRadius * mInnerRadius;
  return std::sqrt(inner + draw * (mRadius * mRadius - inner));
}

Vec3d Pop_FollowSpline::PositionOf(const Way& way, double u, const Vec3d& c) const {
  const Matrix frame = FrameOf(way, u);
  const double radius = c.y * (1 - mTaper * u);
  return frame.offset + (frame.v1 * std::cos(c.x) + frame.v2 * std::sin(c.x)) * radius;
}

void Pop_FollowSpline::Catch(ParticleStore& store, i32 row) {
  const i32 id = store.Ids()[row];
  const Picked picked = PickPlace(store.Positions()[row], id);
  const Vec3d c = {std::fmod(mAngle + mAngleRange * ParticleDraw(mSeed, id, kDrawAngle), kTurn),
                   RadiusFor(id) * mToSim, ParticleDraw(mSeed, id, kDrawBlend)};
  const i32 way = mFirstWay[picked.line] + picked.place.segment;
  mB->Set(row, {picked.place.u, way + kSegmentMargin, Length(store.Velocities()[row])});
  mC->Set(row, c);
  store.Flags()[row] |= PF_SPLINE_APPROACH;
}

double Pop_FollowSpline::SpeedOn(const Way& way, double own) const {
  switch (mSpeedMode) {
    case kFixedSpeed: return mSpeed * mToSim;
    case kByFrames: return way.Length() * mTime->fps / mFrames;
    default: return own;
  }
}

void Pop_FollowSpline::Approach(ParticleStore& store, i32 row, double weight) {
  const Way& way = *WayOf(row);
  Vec3d b = mB->Get(row, {});
  const Vec3d place = PositionOf(way, b.x, mC->Get(row, {}));
  mA->Set(row, place);
  const Vec3d rest = place - store.Positions()[row];
  const double distance = Length(rest);
  u16& flags = store.Flags()[row];
  if (distance < kReached * GetDomain().cellSize) {
    flags = static_cast<u16>((flags & ~PF_SPLINE_APPROACH) | PF_SPLINE_FOLLOW);
    b.z = SpeedOn(way, b.z);
    mB->Set(row, b);
    return;
  }
  const double dt = mTime->stepDuration;
  const double force = mApproachForce * mToSim, arrival = mArrival * mToSim;
  const double fastest = mApproachMode == kOwnApproach && b.z > 0 ? b.z : mApproachSpeed * mToSim;
  // No faster than it can be braked to rest on the way that is left, nor past the place in a step.
  double speed =
      std::min({fastest, std::sqrt(2 * force * mApproachWeight * distance), distance / dt});
  if (distance < arrival) speed = std::min(speed, fastest * distance / arrival);
  Vec3d& velocity = store.Velocities()[row];
  const Vec3d change = rest * (speed / distance) - velocity;
  const double length = Length(change), limit = force * dt;
  velocity += change * (mApproachWeight * weight * (length > limit ? limit / length : 1.0));
}

void Pop_FollowSpline::Follow(ParticleStore& store, i32 row, double weight) {
  const Way& way = *WayOf(row);
  Vec3d b = mB->Get(row, {}), c = mC->Get(row, {});
  const double dt = mTime->stepDuration;
  const double sign = mDirection == kBackwards ? -1 : 1;
  const double progress =
      std::max(b.z / way.Length(), kLeastProgress) * mSpeedFactor * weight;  // 1/s
  const double wanted = b.x + sign * progress * dt;
  const bool isAtEnd = sign > 0 ? wanted >= 1 : wanted <= 0;
  const bool wraps = isAtEnd && mEnd == kWrap;
  const double u = wraps ? wanted - std::floor(wanted) : std::clamp(wanted, 0.0, 1.0);
  if (mSwirl > 0) {
    const double draw = ParticleDraw(mStepSeed, store.Ids()[row], kDrawSwirl);
    c.x = std::fmod(c.x + mSwirl * dt * (1 - mSwirlVariation * draw), kTurn);
    mC->Set(row, c);
  }
  b.x = u;
  mB->Set(row, b);
  const Vec3d place = PositionOf(way, u, c);
  Vec3d before = mA->Get(row, place);
  // The leap from end to end is no motion, and what drags behind leaps too.
  if (wraps) before += PositionOf(way, sign > 0 ? 0 : 1, c) - PositionOf(way, sign > 0 ? 1 : 0, c);
  const double blend = std::clamp(mBlend - mBlendVariation * c.z, 0.0, 1.0);
  const double share = blend < 1 ? 1 - std::pow(1 - blend, dt * mBlendPace) : 1;
  const Vec3d position = share < 1 ? before + (place - before) * share : place;
  store.Positions()[row] = position;
  mA->Set(row, position);
  Vec3d& velocity = store.Velocities()[row];
  velocity = (position - before) / dt;
  if (!isAtEnd || wraps) return;
  u16& flags = store.Flags()[row];
  flags = static_cast<u16>(flags & ~PF_SPLINE_FOLLOW);
  if (mEnd == kFinishThere) flags |= PF_SPLINE_DONE;
  // The end cuts a step short: the rest of its way would have led straight on.
  velocity = mEnd == kFinishThere
                 ? Vec3d{}
                 : velocity + FrameOf(way, u).v3 * (share * (wanted - u) * way.Length() / dt);
}

void Pop_FollowSpline::FinishOperator() { mGroup->MarkTreeStale(mKind); }

}  // namespace MELDO_GLOBAL::MELDO_SULVA
