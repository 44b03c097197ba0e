#include "fluids/forces/force_curl.h"

#include <algorithm>
#include <cmath>

#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

/// From 0 at 0 to 1 at 1, flat there, odd: 15/8 r - 10/8 r^3 + 3/8 r^5.
double Ramp(double r) {
  r = std::clamp(r, -1.0, 1.0);
  const double square = r * r;
  return r * (1.875 - square * (1.25 - 0.375 * square));
}

constexpr i32 kMeanPlaces = 4096;  ///< in the box of each solid's distances
/// Steps of points that fill a cube evenly: powers of 1/p, where p^4 = p + 1 (Roberts 2018).
constexpr Vec3d kEvenSteps = {0.8191725133961645, 0.6710436067037893, 0.5497004779019703};

}  // namespace

const NodeKind& Force_Curl::Kind() {
  static const NodeKind kind = {
      .id = 1300142,
      .type = "force_curl",
      .label = "DF::Field Curl",
      .className = "Force_Curl",
      .typeId = 40,
      .list = kListForces,
      .categories = kCategoryGrid | kCategoryParticle,
      .menu = {"Bodies/Forces", "Grids/Forces", "Particles/Forces"},
      .purpose =
          "stirs fluids and particles by eddies round the patches of a constraint, a noise "
          "above all, without pressing them together and along walls",
      .example =
          {{},
           {R"({ "type": "constraint_noise", "name": "eddies", "parameters": { "scale": 60, "type": "gradient" } })",
            R"({ "type": "force_curl", "name": "stir", "parameters": { "constraints": ["eddies"], "strength": 20 } })",
            R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "forces": ["stir"] } })"}},
      .rows = Parameters,
      .make = MakeNode<Force_Curl>,
  };
  return kind;
}

const ParameterTable& Force_Curl::Parameters() {
  static const ParameterTable table = [] {
    ParameterRow field = *FindRow(CommonParameters(), common_row::kConstraints);
    field.help =
        "the field: eddies go round where they let much or little pass; a noise without holes is "
        "best";
    return ParameterTable{
        RealRow(kStrengthRow, "strength", 1.0, "m/s^2",
                "how hard the eddies push where what the constraints let pass changes by 1 from "
                "cell to cell; in larger patches as much less")
            .To(&Force_Curl::mStrength),
        LinkRow(1001, "duration", "pushes only inside this time window", {Duration::Kind().id})
            .To(&Force_Curl::mDuration),
        RealRow(kSpacingRow, "spacing", 1.0, "cells",
                "over how many cells to each side it looks at the constraints: more leaves out "
                "small eddies")
            .AtLeast(0)
            .To(&Force_Curl::mSpacing),
        RealRow(kFadeRow, "wall_fade", 3.0, "cells",
                "how far from walls and obstacles eddies begin to fade, so that none goes through "
                "flat ones; 0 lets them")
            .AtLeast(0)
            .To(&Force_Curl::mFade),
        field.Required(),
    };
  }();
  return table;
}

bool Force_Curl::PrepareForce() {
  if (mConstraints.IsEmpty())
    return Deactivate("it has no field; name constraints, such as a noise, under 'constraints'");
  if (mStrength == 0) return Deactivate(kNoStrengthReason);
  if (!(mSpacing > 0)) return Deactivate("its 'spacing' is 0");
  const double cell = GetDomain().cellSize;
  mPush = mStrength * cell;
  mStep = mSpacing * cell;
  mFadeLength = mFade * cell;
  for (i32 k = 0; k < 3; ++k) {
    const double off = kOffsets[k];
    mPlaces[k] = ToSim({off, off, off});
  }
  mSolids = mFade > 0 ? NearbySolids(*mScene, mFlow) : NearbySolids();
  return true;
}

void Force_Curl::Open() {
  FieldForce::Open();
  mMeans = {};
  if (Has(FLAG_ACTIVE) && mFade > 0) FindMeans();
}

void Force_Curl::FindMeans() {
  Vec3d places[kRun];
  double shares[kRun], passes[kRun];
  std::size_t count = 0;
  double whole = 0;
  const auto take = [&] {
    for (i32 k = 0; k < 3; ++k) {
      Ask(k, {places, count}, 0, passes);
      for (std::size_t i = 0; i < count; ++i) mMeans[k] += shares[i] * passes[i];
    }
    for (std::size_t i = 0; i < count; ++i) whole += shares[i];
    count = 0;
  };
  for (const auto& [low, high] : mSolids.Boxes()) {
    Vec3d part{0.5, 0.5, 0.5};
    for (i32 i = 0; i < kMeanPlaces; ++i) {
      part += kEvenSteps;
      for (i32 a = 0; a < 3; ++a) part[a] -= std::floor(part[a]);
      places[count] = low + (high - low) * part;
      const double distance = mSolids.DistanceAt(places[count]);
      if (distance < 0 || distance >= mFadeLength) continue;
      shares[count] = 1 - Ramp(distance / mFadeLength);
      if (++count == kRun) take();
    }
  }
  take();
  if (whole > 0)
    for (double& mean : mMeans) mean /= whole;
}

void Force_Curl::Shift(const FieldPoints& points, i32 axis, double way, Shifted& out) const {
  for (std::size_t i = 0; i < points.positions.size(); ++i) {
    out.positions[i] = points.positions[i];
    out.positions[i][axis] += way;
    out.share[i] = mFade > 0 ? Ramp(mSolids.DistanceAt(out.positions[i]) / mFadeLength) : 1.0;
  }
}

void Force_Curl::Ask(i32 which, std::span<const Vec3d> positions, u32 worker, double* out) const {
  const std::size_t count = positions.size();
  Vec3d places[kRun];
  for (std::size_t i = 0; i < count; ++i) {
    places[i] = positions[i] + mPlaces[which];
    out[i] = 1;
  }
  mConstraints.TestRow({{places, count}, {out, count}}, this, worker);
}

void Force_Curl::Potential(i32 which, const Shifted& at, std::size_t count, u32 worker,
                           double* out) const {
  Ask(which, {at.positions.data(), count}, worker, out);
  for (std::size_t i = 0; i < count; ++i) out[i] = at.share[i] * (out[i] - mMeans[which]);
}

/// The curl of (psi_0, psi_1, psi_2): a slope of psi_k along axis a adds to the component that is
/// neither, with the sign of the turn k -> a.
void Force_Curl::AddField(const FieldPoints& points) const {
  const std::size_t n = points.positions.size();
  Vec3d curl[kRun] = {};
  Shifted ahead, behind;
  for (i32 a = 0; a < 3; ++a) {
    Shift(points, a, mStep, ahead);
    Shift(points, a, -mStep, behind);
    for (const i32 k : {(a + 1) % 3, (a + 2) % 3}) {
      double high[kRun], low[kRun];
      Potential(k, ahead, n, points.worker, high);
      Potential(k, behind, n, points.worker, low);
      const i32 to = 3 - a - k;
      const double sign = k == (a + 1) % 3 ? 1 : -1;
      for (std::size_t i = 0; i < n; ++i) curl[i][to] += sign * (high[i] - low[i]);
    }
  }
  const double push = mPush / (2 * mStep);
  for (std::size_t i = 0; i < n; ++i) points.changes[i] += curl[i] * (push * points.weights[i]);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
