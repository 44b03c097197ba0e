#include <gtest/gtest.h>

#include <random>

#include "fluids/forces/force_curl.h"
#include "fluids/forces/force_follow_spline.h"
#include "fluids/forces/force_trigo_wave.h"
#include "fluids/forces/force_vortex.h"
#include "fluids/gas_rig.h"
#include "fluids/operators/particle_forces.h"
#include "fluids/particles/particle_group.h"
#include "fluids/test_scene.h"
#include "framework/script_part.h"
#include "host/noise.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using host::BaseNode;
using host::SplineObject;

namespace {

/// Cells, and with them the scale of a scene, are in single precision.
constexpr double kStep = 0.04, kCell = 0.1, kSingle = 1e-7;

/// A scene in which particles stand where a test puts them, and a force acts on them.
struct FieldRig : TestScene {
  ParticleGroup& group = Add<ParticleGroup>("particlegroup", "sparks");
  SplineObject& spline = document.Create<SplineObject>(host::kSplineObject, "way", nullptr);
  ParticleStore& Store() { return group.Store(kPassive); }
  void Put(const Vec3d& position, const Vec3d& velocity = {}) {
    ParticleTemplate particle;
    particle.flags |= PF_KIND_PASSIVE;
    particle.position = position;
    particle.velocity = velocity;
    Store().Create(particle);
  }
  /// What a force changes in a step at the particles.
  std::vector<Vec3d> Changes(Force& force) {
    SetUp();
    scene->SetStage(kOperators);
    force.PrepareForParticles();
    const std::span<const Vec3d> positions = std::as_const(Store()).Positions();
    std::vector<Vec3d> changes(positions.size());
    const std::vector<double> weights(positions.size(), 1);
    force.EvaluateParticles(
        {0, &Store(), 0, positions, weights, scene->mDomain.simToWorld, changes});
    force.Finish();
    return changes;
  }
  Vec3d ChangeAt(Force& force, const Vec3d& position, const Vec3d& velocity = {}) {
    Put(position, velocity);
    return Changes(force).back();
  }
  Force& AddFollow() {
    spline.points = {{0, 0, 0}, {200, 0, 0}, {200, 100, 0}};
    Force& force = Add<Force>("force_followspline", "lead");
    Set(force, Force_FollowSpline::kSplineRow, host::Link{spline.Id()});
    return force;
  }
};

void ExpectNear(const Vec3d& a, const Vec3d& b, double within, const std::string& what = {}) {
  for (i32 c = 0; c < 3; ++c) EXPECT_NEAR(a[c], b[c], within) << what << " " << c;
}

/// A noise that lets no place without a slope.
BaseNode& AddNoise(GasRig& rig) {
  BaseNode& noise = rig.Add("constraint_noise", "noise");
  noise.Set(1000, 40.0);
  noise.Set(1004, static_cast<i32>(host::NoiseType::Gradient));
  return noise;
}

host::InExcludeData Only(const BaseNode& node) { return {{{node.Id(), 0}}}; }

struct CurlRig : GasRig {
  explicit CurlRig(i32 n, double fade, i32 threads = 1) : GasRig({n, n, n}, kCell, threads) {
    force = &Add("force_curl", "stir");
    noise = &AddNoise(*this);
    force->Set(common_row::kConstraints, Only(*noise));
    force->Set(Force_Curl::kStrengthRow, 30.0);
    force->Set(Force_Curl::kFadeRow, fade);
  }
  double Flux(i32 axis, const VecInt3D& c) const {
    return (*gas->mFlow.mVelocity.GetGrid(axis))(c.x, c.y, c.z);
  }
  double Divergence(const VecInt3D& c) const {
    return (Flux(0, {c.x + 1, c.y, c.z}) - Flux(0, c) + Flux(1, {c.x, c.y + 1, c.z}) - Flux(1, c) +
            Flux(2, {c.x, c.y, c.z + 1}) - Flux(2, c)) /
           kCell;
  }
  /// The largest divergence of the cells `from` to n + 1 - `from`, and the largest speed.
  std::pair<double, double> Largest(i32 from) const {
    double divergence = 0, speed = 0;
    const VecInt3D dims = gas->mFlow.GetLayout()->dims;
    ForEachCell({{from, from, from}, dims - VecInt3D{from, from, from}}, [&](i32 x, i32 y, i32 z) {
      divergence = std::max(divergence, std::abs(Divergence({x, y, z})));
      for (i32 a = 0; a < 3; ++a) speed = std::max(speed, std::abs(Flux(a, {x, y, z})));
    });
    return {divergence, speed};
  }
  BaseNode *force, *noise;
};

}  // namespace

TEST(WaveForce, MovesWithItsNodeAndIsStretchedByItsScale) {
  FieldRig rig;
  Force& force = rig.Add<Force>("force_trigowave", "swell");
  rig.scene->mTime.elapsed = 1.5;
  FieldRig::Set(force, Force_TrigoWave::kAmplitudeRow, 300.0);
  FieldRig::Set(force, Force_TrigoWave::kTypeRow, i32{0});
  FieldRig::Set(force, Force_TrigoWave::kModeRow, i32{4});
  FieldRig::Set(force, Force_TrigoWave::kOffsetRow, 0.25);
  FieldRig::Set(force, Force_TrigoWave::kScaleRow, Vec3d{1, 1, 2});
  force.Node()->SetPlacement({50, 0, 0}, {0, 90, 0}, {1, 1, 1});  // z leads along x
  // Crests two metres apart, twice that along z, half a metre a second.
  const auto wave = [](double x, double time) {
    return 3 * std::sin(2 * std::numbers::pi * 0.5 * (0.5 * time - (x - 0.5) / 2));
  };
  for (const double x : {0.0, 0.3, 1.1, 2.9})
    ExpectNear(rig.ChangeAt(force, {x, 0.7, -0.2}), {kStep * wave(x, 1.75), 0, 0}, kSingle);
  FieldRig::Set(force, Force_TrigoWave::kRunsRow, i32{0});
  FieldRig::Set(force, Force_TrigoWave::kTimeRow, 5.0);
  ExpectNear(rig.ChangeAt(force, {1.1, 0, 0}), {kStep * wave(1.1, 5.25), 0, 0}, kSingle);
  for (const Vec3d& scale : {Vec3d{1, 0, 1}, Vec3d{1, 1, 1}}) {
    FieldRig::Set(force, Force_TrigoWave::kScaleRow, scale);
    if (scale.y == 1) FieldRig::Set(force, Force_TrigoWave::kLengthRow, 0.05);
    EXPECT_EQ(rig.ChangeAt(force, {1.1, 0, 0}), Vec3d{});
    EXPECT_FALSE(force.Has(FLAG_ACTIVE));
  }
}

TEST(VortexForce, TurnsAsASolidBody) {
  FieldRig rig;
  Force& force = rig.Add<Force>("force_vortex", "stir");
  FieldRig::Set(force, Force_Vortex::kStrengthRow, 7.0);
  force.Node()->SetPlacement({100, 0, 50}, {-90, 0, 0}, {1, 1, 1});  // z leads up
  const double push = 7 * kCell * Force_Vortex::kPerHostUnit * 100 * kStep;
  const Vec3d up{0, 1, 0}, axis{1, 0, 0.5};
  for (const Vec3d& p : {Vec3d{2, 0.3, 0.5}, Vec3d{1.5, -4, 0.25}, Vec3d{1, 7, 0.5}})
    ExpectNear(rig.ChangeAt(force, p), Cross(up, p - axis) * push, kSingle);
  EXPECT_NEAR(push / kStep, 0.7, 1e-3) << "cells a second squared at a metre";
  const Vec3d whole = rig.ChangeAt(force, {3, 0, 0});
  rig.scene->mTime.stepDuration = kStep / 2;
  ExpectNear(rig.ChangeAt(force, {3, 0, 0}) * 2.0, whole, 1e-15, "two steps of half the length");
}

/// With potentials that rise by a = (1, 2, 3) / 100 a metre the curl is (a_y - a_z, a_z - a_x,
/// a_x - a_y).
TEST(CurlForce, IsTheCurlOfWhatItsConstraintsLetPass) {
  FieldRig rig;
  Force& force = rig.Add<Force>("force_curl", "stir");
  auto& ramp = rig.Add<Constraint>("constraint_script", "ramp");
  const auto set = [&](const char* body) {
    FieldRig::Set(ramp, ScriptPart::kSourceRow,
                  "function main(op)\n return " + std::string(body) + "\nend");
  };
  FieldRig::Set(force, Force_Curl::kStrengthRow, 8.0);
  EXPECT_EQ(rig.ChangeAt(force, {1, 2, 3}), Vec3d{}) << "no constraints";
  EXPECT_FALSE(force.Has(FLAG_ACTIVE));
  FieldRig::Links(force, common_row::kConstraints, {&ramp});
  set("(physical_pos.x + 2 * physical_pos.y + 3 * physical_pos.z) / 100");
  for (const double spacing : {1.0, 2.5}) {
    FieldRig::Set(force, Force_Curl::kSpacingRow, spacing);
    ExpectNear(rig.ChangeAt(force, {1, 2, -3}), Vec3d{-0.01, 0.02, -0.01} * (8 * kCell * kStep),
               kSingle);
  }
  set("0.3");
  EXPECT_EQ(rig.ChangeAt(force, {1, 2, 3}), Vec3d{}) << "a flat field";
}

TEST(CurlForce, IsFreeOfDivergenceOnTheFacesOfALattice) {
  for (const double fade : {0.0, 3.0}) {
    CurlRig rig(14, fade);
    rig.Begin();
    rig.RunGas(kForcesEmission);
    const auto [divergence, speed] = rig.Largest(2);
    EXPECT_GT(speed, 0.01) << fade;
    EXPECT_LT(divergence * kCell, 1e-12 * speed) << fade;
  }
}

TEST(CurlForce, GoesThroughNoWall) {
  double atWall[2], outermost[2];
  for (const i32 fades : {0, 1}) {
    CurlRig rig(14, fades * 3.0);
    rig.Begin();
    Force& force = *rig.Object<Force>(*rig.force);
    force.PrepareFor(rig.gas->mFlow);
    atWall[fades] = 0;
    std::mt19937 random(9);
    std::uniform_real_distribution<double> place(0.2, 1.2);
    double inside = 0;
    for (i32 i = 0; i < 200; ++i)
      for (i32 axis = 0; axis < 3; ++axis) {
        ForceSample sample;
        sample.position = {place(random), place(random), place(random)};
        force.Evaluate(sample);
        inside = std::max(inside, Length(sample.force));
        sample.force = {};
        sample.position[axis] = i % 2 ? 0 : 14 * kCell;
        force.Evaluate(sample);
        atWall[fades] = std::max(atWall[fades], std::abs(sample.force[axis]));
      }
    force.Finish();
    atWall[fades] /= inside;
    // Closed faces take nothing: what the outermost cells lack of them is what would have gone out.
    rig.RunGas(kForcesEmission);
    outermost[fades] = rig.Largest(1).first;
  }
  EXPECT_LT(atWall[1], 1e-6);
  EXPECT_GT(atWall[0], 0.1) << "without a fade it would";
  EXPECT_LT(outermost[1], 0.2 * outermost[0]);
}

/// Potentials that are far from 0 on the whole, as those of a noise are, blow nowhere along walls.
TEST(CurlForce, BlowsNoWayAlongWalls) {
  constexpr i32 kCells = 32, kPlaces = 400;
  CurlRig rig(kCells, 3.0);
  rig.Begin();
  Force& force = *rig.Object<Force>(*rig.force);
  force.PrepareFor(rig.gas->mFlow);
  std::mt19937 random(5);
  std::uniform_real_distribution<double> place(0.4, kCells * kCell - 0.4);
  for (i32 axis = 0; axis < 3; ++axis)
    for (const double wall : {0.0, kCells * kCell}) {
      Vec3d mean{};
      double square = 0;
      for (i32 i = 0; i < kPlaces; ++i) {
        ForceSample sample;
        sample.position = {place(random), place(random), place(random)};
        sample.position[axis] = wall;
        force.Evaluate(sample);
        mean += sample.force / kPlaces;
        square += Dot(sample.force, sample.force) / kPlaces;
      }
      EXPECT_GT(square, 0);
      EXPECT_LT(Length(mean), 0.35 * std::sqrt(square)) << axis << " " << wall;
    }
  force.Finish();
  CurlRig flat(8, 3.0);
  flat.noise->Set(1005, 0.0);  // no contrast
  flat.Begin();
  flat.RunGas(kForcesEmission);
  EXPECT_LT(flat.Largest(1).second, 1e-12) << "what is the same everywhere has no curl";
}

TEST(FollowSpline, PullsWhatIsInReachAndLeadsWhatIsNear) {
  FieldRig rig;
  Force& force = rig.AddFollow();
  const Vec3d corner{1, 0.5, 0};
  // Half a metre off: a quarter of the pull's metre a second in 1/25 s, straight down.
  ExpectNear(rig.ChangeAt(force, corner), {0, -0.25, 0}, kSingle);
  EXPECT_EQ(rig.ChangeAt(force, {1, -3.01, 0}), Vec3d{}) << "out of reach";
  EXPECT_NE(rig.ChangeAt(force, {1, -2.99, 0}), Vec3d{});
  // As fast as it is wanted, no more is added.
  ExpectNear(rig.ChangeAt(force, corner, {0, -1, 0}), {}, kSingle);
  ExpectNear(rig.ChangeAt(force, corner, {0, -0.9, 0}), {0, -0.1, 0}, kSingle);
  // On the line nothing pulls; a tenth of a metre a second along it, a quarter of that at a time.
  ExpectNear(rig.ChangeAt(force, {1, 0, 0}), {0.025, 0, 0}, kSingle);
  // Near to it the pull leads onto it in this step, and not beyond.
  ExpectNear(rig.ChangeAt(force, {1, 0.004, 0}), {0.025, -0.004 / kStep, 0}, kSingle);
  FieldRig::Set(force, Force_FollowSpline::kBackwardsRow, i32{1});
  ExpectNear(rig.ChangeAt(force, {1, 0, 0}), {-0.025, 0, 0}, kSingle);
  FieldRig::Set(force, Force_FollowSpline::kFollowDistanceRow, 0.0);
  EXPECT_EQ(rig.ChangeAt(force, {1, 0, 0}), Vec3d{});
  // Half the step, half the limit.
  rig.scene->mTime.stepDuration = kStep / 2;
  ExpectNear(rig.ChangeAt(force, corner), {0, -0.125, 0}, kSingle);
  rig.scene->mTime.stepDuration = kStep;
  rig.spline.SetPlacement({0, 100, 0}, {}, {1, 1, 1});
  ExpectNear(rig.ChangeAt(force, corner), {0, 0.25, 0}, kSingle, "the spline has moved");
}

TEST(FollowSpline, DrawsToThePlaceThatItsModeSays) {
  FieldRig rig;
  Force& force = rig.AddFollow();
  const Vec3d p{1.4, 0.3, 0};
  const auto expect = [&](const Vec3d& target, const std::string& what) {
    ExpectNear(rig.ChangeAt(force, p), Normalised(target - p) * 0.25, kSingle, what);
  };
  expect({1.4, 0, 0}, "nearest place");
  FieldRig::Set(force, Force_FollowSpline::kModeRow, i32{1});
  expect({2, 0, 0}, "nearest point");
  FieldRig::Set(force, Force_FollowSpline::kReachRow, 10.0);
  EXPECT_EQ(rig.ChangeAt(force, p), Vec3d{});
  FieldRig::Set(force, Force_FollowSpline::kModeRow, i32{2});
  FieldRig::Set(force, Force_FollowSpline::kPointRow, i32{2});
  expect({2, 1, 0}, "a point, however far");
  FieldRig::Set(force, Force_FollowSpline::kModeRow, i32{3});
  FieldRig::Set(force, Force_FollowSpline::kLengthRow, 250.0);
  expect({2, 0.5, 0}, "a length");
  FieldRig::Set(force, Force_FollowSpline::kModeRow, i32{2});
  for (const auto& [row, value, reason] :
       {std::tuple{Force_FollowSpline::kSegmentRow, 2, "its spline has no such 'segment'"},
        std::tuple{Force_FollowSpline::kPointRow, 3, "its spline has no such 'point'"}}) {
    force.Node()->Set(row, i32{value});
    EXPECT_EQ(rig.ChangeAt(force, p), Vec3d{});
    EXPECT_STREQ(force.mInactiveReason, reason);
    force.Node()->Set(row, i32{row == Force_FollowSpline::kSegmentRow ? 1 : 2});
  }
  rig.spline.points = {{5, 5, 5}, {5, 5, 5}};
  rig.spline.Touch();
  EXPECT_EQ(rig.ChangeAt(force, p), Vec3d{});
  EXPECT_STREQ(force.mInactiveReason, "its spline has no length");
}

TEST(FollowSpline, ReadsTheVelocityOfAFlow) {
  GasRig rig({8, 8, 8});
  auto& spline = rig.document.Create<SplineObject>(host::kSplineObject, "way", nullptr);
  spline.points = {{-1000, 40, 40}, {1000, 40, 40}};
  BaseNode& lead = rig.Add("force_followspline", "lead");
  lead.Set(Force_FollowSpline::kSplineRow, host::Link{spline.Id()});
  lead.Set(Force_FollowSpline::kFollowDistanceRow, 1000.0);
  lead.Set(Force_FollowSpline::kPullWeightRow, 0.0);
  lead.Set(Force_FollowSpline::kFollowForceRow, 100.0);
  rig.Begin();
  rig.FillVelocity([](const Vec3d& p) { return Vec3d{p.x, p.y - 0.4, 0.1 * p.x}; });
  Force& force = *rig.Object<Force>(lead);
  force.PrepareFor(rig.gas->mFlow);
  ForceSample sample;
  sample.position = {0.33, 0.48, 0.21};
  sample.weight = 0.5;
  force.Evaluate(sample);
  // Far below its limit it takes half of the way to 0.1 m/s along x.
  ExpectNear(sample.force, {0.5 * (0.1 - 0.33), -0.04, -0.0165}, kSingle);
}

TEST(FieldForces, RowsAndParticlesGetWhatSamplesGet) {
  GasRig rig({90, 3, 3});
  auto& spline = rig.document.Create<SplineObject>(host::kSplineObject, "way", nullptr);
  spline.smooth = true;
  spline.points = {{0, 0, 0}, {300, 30, 10}, {900, 0, 0}};
  BaseNode& noise = AddNoise(rig);
  std::vector<BaseNode*> nodes;
  for (const char* type : {"force_trigowave", "force_vortex", "force_curl", "force_followspline"}) {
    nodes.push_back(&rig.Add(type, type));
    nodes.back()->Set(common_row::kConstraints, Only(noise));
  }
  nodes[0]->Set(Force_TrigoWave::kTypeRow, i32{2});
  nodes[3]->Set(Force_FollowSpline::kSplineRow, host::Link{spline.Id()});
  auto& group = *rig.Object<ParticleGroup>(rig.Add("particlegroup", "sparks"));
  rig.Begin();
  std::vector<u8> open(90, 1);
  open[17] = 0;
  ForceRow row;
  row.count = 90;
  row.open = open.data();
  row.step = kCell;
  row.position = {0.05, 0.15, 0.17};
  row.simToWorld = rig.scene->mDomain.simToWorld;
  const std::vector<float> fractions(90, 1);
  row.fraction = {fractions.data(), fractions.data(), fractions.data()};
  ParticleStore& store = group.Store(kPassive);
  for (i32 x = 0; x < row.count; ++x) {
    ParticleTemplate particle;
    particle.flags |= PF_KIND_PASSIVE;
    particle.position = row.PositionOf(x);
    store.Create(particle);
  }
  const std::vector<double> weights(open.begin(), open.end());
  for (const BaseNode* node : nodes) {
    Force& force = *rig.Object<Force>(*node);
    force.PrepareFor(rig.gas->mFlow);
    ASSERT_TRUE(force.Has(FLAG_ACTIVE)) << node->Name();
    std::vector<double> sums[3];
    for (i32 a = 0; a < 3; ++a) {
      sums[a].assign(90, 0.125);
      row.force[a] = sums[a].data();
    }
    force.EvaluateRow(row);
    std::vector<Vec3d> particles(90, Vec3d{0.125, 0.125, 0.125});
    force.EvaluateParticles(
        {0, &store, 0, std::as_const(store).Positions(), weights, row.simToWorld, particles});
    double largest = 0;
    for (i32 x = 0; x < 90; ++x) {
      ForceSample sample;
      sample.position = row.PositionOf(x);
      sample.force = {0.125, 0.125, 0.125};
      if (open[x]) force.Evaluate(sample);
      EXPECT_EQ(particles[x], sample.force) << node->Name() << " " << x;
      EXPECT_EQ((Vec3d{sums[0][x], sums[1][x], sums[2][x]}), sample.force) << node->Name() << x;
      largest = std::max(largest, Length(sample.force - Vec3d{0.125, 0.125, 0.125}));
    }
    EXPECT_GT(largest, 1e-6) << node->Name();
    force.Finish();
  }
}

/// A limit that only particles have leaves out those that aren't meant, of fields and of laws.
TEST(FieldForces, ConstraintsSeeTheParticle) {
  for (const char* type : {"force_gravity", "force_vortex"}) {
    FieldRig rig;
    Force& force = rig.Add<Force>(type, "push");
    auto& mark = rig.Add<Constraint>("constraint_particle_collision", "marked");
    FieldRig::Set(mark, 1000, i32{4});
    FieldRig::Links(force, common_row::kConstraints, {&mark});
    rig.Put({1, 0, 0});
    rig.Put({2, 0, 0});
    rig.Store().Flags()[1] |= PF_MARK;
    const std::vector<Vec3d> changes = rig.Changes(force);
    EXPECT_EQ(changes[0], Vec3d{}) << type;
    EXPECT_NE(changes[1], Vec3d{}) << type;
  }
}
