// Scripts in their nodes: what they do is what built-in nodes and closed forms do, and one that
// fails sleeps and harms nothing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "fluids/constraints/script_constraint.h"
#include "fluids/emission/grid_cell_emitter.h"
#include "fluids/fields/plain_grid_channel.h"
#include "fluids/forces/force_gravity.h"
#include "fluids/forces/force_script.h"
#include "fluids/forces/particle_force_script.h"
#include "fluids/forces/velocity_grid_emitter.h"
#include "fluids/gas_rig.h"
#include "fluids/operators/channel_operator_script.h"
#include "fluids/operators/particle_forces.h"
#include "fluids/test_scene.h"
#include "host/noise.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using host::BaseNode;
using host::InExcludeData;
using testing::HasSubstr;

namespace {

std::string MainOf(const std::string& body) { return "function main(op)\n  " + body + "\nend"; }

InExcludeData ListOf(std::initializer_list<const BaseNode*> nodes) {
  InExcludeData list;
  for (const BaseNode* node : nodes) list.entries.push_back({node->Id(), 0});
  return list;
}

/// All faces of a flow after a stage of forces from random velocities.
std::vector<double> FacesAfter(GasRig& rig) {
  rig.Begin();
  std::mt19937 random(5);
  std::uniform_real_distribution<double> speed(-2, 2);
  rig.FillVelocity([&](const Vec3d&) {
    return Vec3d{speed(random), speed(random), speed(random)};
  });
  rig.RunGas(kForcesEmission);
  std::vector<double> faces;
  for (i32 a = 0; a < 3; ++a) {
    const EGrid<double>& grid = *rig.gas->mFlow.mVelocity.GetGrid(a);
    faces.insert(faces.end(), grid.mData, grid.mData + grid.mCount);
  }
  return faces;
}

/// Channels, and whoever walks them, of one scene.
struct CellRig : TestScene {
  Grid_CellEmitter& emitter = Add<Grid_CellEmitter>("grid_celliterator", "cells");
  ChannelOperator_Script& script = Add<ChannelOperator_Script>("channelop_script", "script");

  explicit CellRig(const std::string& body) {
    scene->mTime.elapsed = 1.5;
    Set(script, ScriptPart::kSourceRow, MainOf(body));
    Set(script, ChannelOperator_Script::kIntensityRow, 3.0);
    Links(emitter, 1001, {&script});
  }
  template <class C>
  C& Channel(const char* type) {
    C& channel = Add<C>(type, "field");
    Link(emitter, Grid_CellEmitter::kChannelRow, channel);
    SetUp();
    const double h = scene->mDomain.cellSize;
    EXPECT_TRUE(channel.ApplyBounds({0, 0, 0}, {20 * h, 12 * h, 70 * h}));
    return channel;
  }
};

double HeightAt(const Vec3d& p) { return 0.3 + p.x * p.y - p.z; }

}  // namespace

TEST(ScriptForce, DoesWhatGravityDoesToTheLastBit) {
  GasRig built({9, 8, 7});
  BaseNode& gravity = built.Add("force_gravity", "g");
  gravity.Set(Force_Gravity::kStrengthRow, 2.0);
  const std::vector<double> expected = FacesAfter(built);
  for (const i32 threads : {1, 3}) {
    GasRig rig({9, 8, 7}, 0.1, threads);
    BaseNode& force = rig.Add("force_script", "g");
    force.Set(ScriptPart::kSourceRow, MainOf("return Vector(0, -9.81, 0) * (op.step * intensity)"));
    force.Set(Force_Script::kIntensityRow, 2.0);
    EXPECT_EQ(FacesAfter(rig), expected) << threads;
    EXPECT_EQ(rig.Object<Force_Script>(force)->mRuns, 1u);
  }
}

TEST(ScriptForce, PushesEveryCellOfALongRowEvenWithoutIntensity) {
  GasRig rig({140, 4, 4});
  BaseNode& force = rig.Add("force_script", "push");
  force.Set(ScriptPart::kSourceRow, MainOf("return Vector(0, 1 + physical_pos.x + intensity, 0)"));
  force.Set(Force_Script::kIntensityRow, 0.0);
  rig.Begin();
  rig.RunGas(kForcesEmission);
  const EGrid<double>& v = *rig.gas->mFlow.mVelocity.GetGrid(1);
  for (i32 x = 2; x < 140; ++x) EXPECT_NEAR(v(x, 3, 3), 1 + v.PositionOf(x, 3, 3).x, 1e-12) << x;
}

TEST(ScriptForce, PushesOutsideOfTheCellsUnlessItNamesWhatTheyHave) {
  const std::string wind = MainOf("return Vector(2, 0, 1) * op.step -- cell_velocity");
  const std::vector<Vec3d> places = {{0.2, 0.3, 0.2}, {-0.2, 0.5, 0.3}, {5, 5, 5}};
  std::vector<Vec3d> expected;
  for (const char* script : {"", wind.c_str(), "function main(op) return cell_velocity end"}) {
    GasRig rig({6, 6, 6});
    BaseNode& force = rig.Add(*script ? "force_script" : "force_gravity", "wind");
    BaseNode& near = rig.Add("constraint_quadratic", "near");
    near.Set(1002, 90.0);
    force.Set(common_row::kConstraints, ListOf({&near}));
    if (*script)
      force.Set(ScriptPart::kSourceRow, std::string(script));
    else
      force.Set(Force_Gravity::kAccelerationRow, Vec3d{2, 0, 1});
    rig.Begin();
    VelocityGridEmitter forces;
    forces.mForces = {rig.Object<Force>(force)};
    ASSERT_TRUE(forces.Prepare(rig.gas->mFlow));
    std::vector<Vec3d> changes(places.size());
    forces.FindChanges(places, {100, 100, 100}, 5, changes);
    if (!*script) expected = changes;
    const bool rests = script != std::string("function main(op) return cell_velocity end");
    EXPECT_EQ(forces.ActsAnywhere(), rests);
    for (std::size_t i = 0; i < places.size(); ++i)
      EXPECT_LT(Length(changes[i] - (rests ? expected[i] : Vec3d{})), 1e-15) << script << i;
    forces.Finish();
  }
  EXPECT_GT(Length(expected[1]), 1e-3);
}

TEST(ScriptForce, IsToldWhereItIsAndHowFastItFlows) {
  GasRig rig({6, 6, 6});
  BaseNode& force = rig.Add("force_script", "drag");
  force.Set(ScriptPart::kSourceRow,
            MainOf("assert(velocity_w_index >= 0)\n"
                   "return cell_velocity * -0.5 + Vector(velocity_u_index, 0, physical_pos.z)"));
  rig.Begin();
  rig.FillVelocity([](const Vec3d& p) { return Vec3d{0, 1 + p.y, 0}; });
  rig.RunGas(kForcesEmission);
  const VelocityField& velocity = rig.gas->mFlow.mVelocity;
  const EGrid<double>&u = *velocity.GetGrid(0), &v = *velocity.GetGrid(1),
        &w = *velocity.GetGrid(2);
  // A face has the mean of its two cells; a cell reads its low faces.
  EXPECT_NEAR(u(4, 3, 3), 0.5 * (u.Index(3, 3, 3) + u.Index(4, 3, 3)), 1e-12);
  const double below = 1 + v.PositionOf(3, 3, 3).y, at = 1 + v.PositionOf(3, 4, 3).y;
  EXPECT_NEAR(v(3, 4, 3), at - 0.25 * (below + at), 1e-12);
  EXPECT_NEAR(w(3, 3, 4), w.PositionOf(3, 3, 4).z, 1e-12);
}

TEST(ScriptForce, WeighsByConstraintsAndItsWindow) {
  GasRig rig({6, 6, 6});
  BaseNode& limit = rig.Add("constraint_script", "right half");
  limit.Set(ScriptPart::kSourceRow, MainOf("return physical_pos.x > 0.3 and 0.5 or 0"));
  BaseNode& window = rig.Add("duration", "window");
  window.Set(1000, 2.0);  // at 1 s half of it has passed
  BaseNode& force = rig.Add("force_script", "push");
  force.Set(ScriptPart::kSourceRow, MainOf("return Vector(0, 1, 0)"));
  force.Set(1003, LinkTo(window));
  force.Set(common_row::kConstraints, ListOf({&limit}));
  rig.Begin();
  rig.RunGas(kForcesEmission);
  const EGrid<double>& v = *rig.gas->mFlow.mVelocity.GetGrid(1);
  EXPECT_EQ(v(2, 3, 3), 0);
  EXPECT_EQ(v(5, 3, 3), 0.25);
}

TEST(ScriptForce, SleepsOnceItHasFailedAndHarmsNothing) {
  GasRig rig({6, 6, 6});
  BaseNode& node = rig.Add("force_script", "late");
  node.Set(ScriptPart::kSourceRow,
           MainOf("if op.time > 1 then error('it is late') end return Vector(0, 1, 0)"));
  rig.Add("force_gravity", "g");
  Force_Script& force = *rig.Object<Force_Script>(node);
  rig.Begin();
  rig.RunGas(kForcesEmission);
  const EGrid<double>& v = *rig.gas->mFlow.mVelocity.GetGrid(1);
  const double change = -9.81 * 0.04;
  EXPECT_EQ(v(3, 3, 3), 1 + change);
  EXPECT_EQ(force.mRuns, 1u);
  rig.scene->mTime.elapsed = 2;
  rig.RunGas(kForcesEmission);
  EXPECT_EQ(v(3, 3, 3), 1 + change + change);
  EXPECT_STREQ(force.mInactiveReason, "script:2: it is late");
  EXPECT_EQ(force.mRuns, 1u) << "the step in which it failed doesn't count";
  rig.scene->mTime.elapsed = 0.5;
  rig.RunGas(kForcesEmission);
  EXPECT_EQ(force.mRuns, 1u) << "it sleeps from then on";
  node.Set(ScriptPart::kSourceRow, MainOf("return Vector(0, 0, 0)"));
  rig.Begin();
  rig.RunGas(kForcesEmission);
  EXPECT_EQ(force.mRuns, 2u) << "a new source wakes it";
}

TEST(ScriptOperator, GivesEachCellItsValueOnAnyNumberOfThreads) {
  CellRig rig(
      "return cell_value * intensity + physical_pos.x + Noise(physical_pos, op.time) + "
      "cell_index % 7");
  PlainField& smoke = rig.Channel<PlainField>("channel_scalar");
  EGrid<double>& grid = *smoke.mGrid;
  const host::Noise noise(0);
  for (const i32 threads : {1, 2, 5}) {
    GasRig::Fill(grid, HeightAt);
    TestScene::Run(rig.emitter, threads);
    ForEachCell({{0, 0, 0}, grid.Dims()}, [&](int x, int y, int z) {
      const Vec3d p = grid.PositionOf(x, y, z);
      const bool isBorder =
          x == 0 || y == 0 || z == 0 || x == grid.mNx - 1 || y == grid.mNy - 1 || z == grid.mNz - 1;
      const double expected = isBorder ? HeightAt(p)
                                       : HeightAt(p) * 3 + p.x +
                                             noise.Evaluate(host::NoiseType::Gradient, p, 1.5, 1) +
                                             grid.Index(x, y, z) % 7;
      ASSERT_NEAR(grid(x, y, z), expected, 1e-12) << x << ' ' << y << ' ' << z;
    });
  }
  EXPECT_EQ(rig.script.mRuns, 3u) << rig.script.mInactiveReason;
}

TEST(ScriptOperator, WorksOnVectorsAndInItsScopeAlone) {
  CellRig rig("return cell_value * 2 + Vector(physical_pos.y, 0, intensity)");
  VectorField& flow = rig.Channel<VectorField>("channel_vector");
  PlainField& other = rig.Add<PlainField>("channel_scalar", "other");
  for (i32 a = 0; a < 3; ++a) flow.mGrids[a]->Fill(a + 1.0);
  TestScene::Run(rig.emitter);
  const Vec3d p = flow.mGrids[0]->PositionOf(3, 4, 5);
  EXPECT_NEAR((*flow.mGrids[0])(3, 4, 5), 2 + p.y, 1e-12);
  EXPECT_NEAR((*flow.mGrids[1])(3, 4, 5), 4, 1e-12);
  EXPECT_NEAR((*flow.mGrids[2])(3, 4, 5), 6 + 3, 1e-12);
  TestScene::Links(rig.script, ChannelOperator_Script::kScopeRow, {&other});
  rig.SetUp();
  TestScene::Run(rig.emitter);
  EXPECT_NEAR((*flow.mGrids[1])(3, 4, 5), 4, 1e-12);
  EXPECT_STREQ(rig.script.mInactiveReason, "its channel isn't in its 'scope'");
}

TEST(ScriptOperator, ASolverInItsScopeStandsForItsFlow) {
  GasRig rig({6, 6, 6});
  BaseNode& smoke = rig.Add("channel_scalar", "smoke");
  BaseNode& kick = rig.Add("channelop_script", "kick");
  kick.Set(ScriptPart::kSourceRow, MainOf("return cell_value + Vector(0, 2, 0)"));
  kick.Set(ChannelOperator_Script::kScopeRow, ListOf({&smoke, rig.gasNode}));
  BaseNode& cells = rig.Add("grid_celliterator", "cells");
  cells.Set(Grid_CellEmitter::kChannelRow, LinkTo(*rig.gasNode));
  cells.Set(Grid_CellEmitter::kSolverFieldRow, i32{ChannelTarget::kVelocity});
  cells.Set(1001, ListOf({&kick}));
  rig.Begin();
  TestScene::Run(*rig.Object<Grid_CellEmitter>(cells));
  EXPECT_EQ((*rig.gas->mFlow.mVelocity.GetGrid(1))(3, 3, 3), 2)
      << rig.Object<ChannelOperator_Script>(kick)->mInactiveReason;
}

TEST(ScriptOperator, LeavesTheCellsAtWhichItFailsAndThenSleeps) {
  CellRig rig("if physical_pos.z > 3 then return physical_pos end return 7");
  PlainField& smoke = rig.Channel<PlainField>("channel_scalar");
  std::vector<double> first;
  for (const i32 threads : {1, 2, 5}) {
    smoke.mGrid->Fill(1);
    TestScene::Set(rig.script, ScriptPart::kSourceRow,
                   MainOf("if physical_pos.z > 3 then return physical_pos end return 7 -- " +
                          std::to_string(threads)));
    rig.SetUp();
    TestScene::Run(rig.emitter, threads);
    const EGrid<double>& grid = *smoke.mGrid;
    const std::vector<double> values(grid.mData, grid.mData + grid.mCount);
    if (first.empty()) first = values;
    EXPECT_EQ(values, first) << threads;
    EXPECT_STREQ(rig.script.mInactiveReason, "script:1: main(op) gave a vector; expected a number");
    EXPECT_EQ(grid(5, 5, 60), 1);
  }
}

TEST(ScriptConstraint, ItsAnswerIsTheMeasure) {
  TestScene s;
  auto& limit = s.Add<ScriptConstraint>("constraint_script", "limit");
  TestScene::Set(limit, ScriptConstraint::kIntensityRow, 0.7);
  TestScene::Set(limit, Constraint::kOutputHighRow, 4.0);
  TestScene::Set(limit, Constraint::kInvertRow, i32{1});
  TestScene::Set(limit, ScriptPart::kSourceRow,
                 MainOf("assert(invert == 1)\n"
                        "return intensity * physical_pos.x + source_value * 0.1"));
  s.SetUp();
  limit.Prepare({});
  std::vector<Vec3d> positions;
  std::vector<double> weights, alone;
  for (int i = 0; i < 200; ++i) {
    positions.push_back({0.01 * i, 5, 0});
    weights.push_back(i % 3 == 0 ? 0.0 : 0.5 + 0.001 * i);
  }
  alone = weights;
  const std::vector<double> before = weights;
  limit.TestRow({positions, weights}, {&limit, nullptr, 3});
  for (int i = 0; i < 200; ++i) {
    const double measure = std::min(0.7 * positions[i].x + before[i] * 0.1, 1.0);
    const double expected = before[i] == 0 ? 0 : before[i] * ((1 - measure) * 4);
    EXPECT_NEAR(weights[i], expected, 1e-14) << i;
    if (alone[i] == 0) continue;
    EXPECT_EQ(limit.Test(positions[i], alone[i], {&limit, nullptr, 3}), weights[i] != 0);
    EXPECT_EQ(alone[i], weights[i]);
  }
  // Nothing is asked any more once the user breaks off.
  host::HostThread user;
  s.scene->mThread = &user;
  user.Stop();
  weights = before;
  limit.TestRow({positions, weights}, {&limit, nullptr, 3});
  EXPECT_EQ(weights, before);
  s.scene->mThread = nullptr;
  // One that fails lets everything pass.
  TestScene::Set(limit, ScriptPart::kSourceRow, MainOf("return nil"));
  s.SetUp();
  limit.Prepare({});
  weights = before;
  limit.TestRow({positions, weights}, {&limit, nullptr, 3});
  limit.Finish({});
  EXPECT_EQ(weights, before);
  EXPECT_THAT(limit.mInactiveReason, HasSubstr("gave nothing"));
}

TEST(ScriptConstraint, OneThatFailedAHolderSleepsForTheOthersOfThatStage) {
  TestScene s;
  auto& limit = s.Add<ScriptConstraint>("constraint_script", "limit");
  TestScene::Set(limit, ScriptPart::kSourceRow, MainOf("return physical_pos.x < 1 and 0.5 or {}"));
  s.SetUp();
  double weight = 1;
  limit.Prepare({});
  EXPECT_TRUE(limit.Test({2, 0, 0}, weight, {}));
  limit.Finish({});
  limit.Prepare({});
  EXPECT_TRUE(limit.Test({0, 0, 0}, weight, {&limit, nullptr, 1}));
  limit.Finish({});
  EXPECT_EQ(weight, 1);
  EXPECT_THAT(limit.mInactiveReason, HasSubstr("gave a table"));
}

TEST(ScriptOnParticles, DoesWhatGravityDoesToTheLastBit) {
  std::vector<Vec3d> expected;
  for (const bool isScript : {false, true})
    for (const i32 threads : {1, 3}) {
      TestScene s;
      auto& group = s.Add<ParticleGroup>("particlegroup", "sparks");
      auto& forces = s.Add<ParticleForces>("particle_forces", "push");
      auto& limit = s.Add<ScriptConstraint>("constraint_script", "low");
      TestScene::Set(limit, ScriptPart::kSourceRow,
                     MainOf("return physical_pos.y < 1 and 0.5 or 0"));
      Force& force = s.Add<Force>(isScript ? "pforce_script" : "force_gravity", "down");
      if (isScript)
        TestScene::Set(force, ScriptPart::kSourceRow,
                       MainOf("assert(particle_index >= 0 and particle_pos.y < 1)\n"
                              "return Vector(0, -9.81, 0)"));
      s.SetUp();
      s.scene->mTime.frameIndex = 1;
      TestScene::Links(forces, ParticleForces::kGroupRow, {&group});
      TestScene::Links(forces, ParticleForces::kForcesRow, {&force});
      TestScene::Links(forces, common_row::kConstraints, {&limit});
      for (int i = 0; i < 1000; ++i) {
        ParticleTemplate particle;
        particle.flags |= PF_KIND_PASSIVE;
        particle.position = {0.01 * i, 0.002 * i, 0};
        particle.velocity = {1, 0.1 * i, 0};
        group.Store(kPassive).Create(particle);
      }
      s.SetUp();
      TestScene::Run(forces, threads);
      const auto velocities = group.Store(kPassive).Velocities();
      const std::vector<Vec3d> found(velocities.begin(), velocities.end());
      if (expected.empty()) expected = found;
      EXPECT_TRUE(std::equal(found.begin(), found.end(), expected.begin()));
      EXPECT_EQ(found[3].y, 0.1 * 3 - 9.81 * (0.04 * 0.5));
      EXPECT_EQ(found[700].y, 0.1 * 700) << "outside of its limit";
      EXPECT_EQ(force.mRuns, 1u);
    }
}
