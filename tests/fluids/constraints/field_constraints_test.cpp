#include <gtest/gtest.h>

#include <cmath>

#include "fluids/constraints/constraint_rig.h"
#include "fluids/fields/plain_grid_channel.h"
#include "fluids/gas_rig.h"
#include "fluids/operators/particle_forces.h"
#include "fluids/particles/particle_group.h"
#include "framework/memory_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

using Rig = ConstraintRig;

/// Fields over the box from 0 to 1.2 m.
struct FieldRig : Rig {
  PlainField& smoke = Add<PlainField>("channel_scalar", "smoke");
  VectorField& wind = Add<VectorField>("channel_vector", "wind");

  FieldRig() {
    Set(smoke, 1050, 2.0);
    Set(smoke, 1051, 12.0);
    for (const i32 row : {1050, 1051}) Set(wind, row, Vec3d{1, 1, 1} * (row == 1050 ? -1e6 : 1e6));
  }
  void Start(i32 stage = kEmitters) {
    Begin(stage);
    for (iBase* field : {static_cast<iBase*>(&smoke), static_cast<iBase*>(&wind)})
      ASSERT_TRUE(field->ApplyBounds({0, 0, 0}, {1.2, 1.2, 1.2}));
  }
};

double Level(const Vec3d& p) { return 2 + 4 * p.x + 3 * p.y - 2 * p.z; }

TEST(FieldConstraints, ValuesAreComparedAsSharesOfTheRange) {
  FieldRig rig;
  Constraint& c = rig.Add<Constraint>("constraint_gridvalue", "value");
  Rig::OpenRange(c);
  Rig::Link(c, 1000, rig.smoke);
  Rig::Set(c, 1002, 0.2);
  Rig::Set(c, 1003, 0.3);
  const host::SplineData bend{{{-10, -5}, {0, 0.25}, {1, 0.75}, {10, 6}}};
  rig.Start();
  for (const bool bends : {false, true})
    for (i32 mode = 0; mode < 5; ++mode) {
      Rig::Set(c, 1001, mode);
      if (bends) Rig::Set(c, 1005, bend);
      rig.Begin();
      Rig::Fill(*rig.smoke.mGrid, Level);
      Rig::Opened(c);
      i32 ins = 0;
      Rig::ForEachPoint(200, 0.1, 1.1, [&](const Vec3d& p) {
        double v = (Level(p) - 2) / 10;
        const bool is[4] = {v == 0.2, v != 0.2, v <= 0.2 || v >= 0.3, v >= 0.2 && v <= 0.3};
        if (mode < 4) v = is[mode];
        double wanted = v;
        if (bends) {
          double t = v;
          if (mode == 2) t = v > 0.2 ? (v - 0.3) / 0.7 : v / 0.2;
          if (mode == 3) t = (v - 0.2) / 0.1;
          wanted = bend.Evaluate(t);
        }
        EXPECT_NEAR(Rig::At(c, p), wanted, 1e-5) << mode;
        ins += v > 0;
      });
      EXPECT_EQ(ins > 0, mode != 0) << mode;
    }
  // Another grid of the same run of a stage, such as one that a cache brings, is read by the next
  // holder.
  rig.smoke.mGrid = std::make_unique<EGrid<double>>(*rig.smoke.mGrid);
  rig.smoke.mGrid->Fill(7);
  Rig::Set(c, 1005, host::SplineData{});
  Rig::Opened(c);
  EXPECT_NEAR(Rig::At(c, {0.5, 0.5, 0.5}), 0.5, 1e-12);
}

TEST(FieldConstraints, VectorsCountByTheirLength) {
  FieldRig rig;
  Constraint& c = rig.Add<Constraint>("constraint_gridvalue", "speed");
  Rig::OpenRange(c);
  Rig::Link(c, 1000, rig.wind);
  Rig::Set(c, 1001, i32{4});
  Rig::Set(c, 1007, 4.0);
  rig.Start();
  for (i32 a = 0; a < 3; ++a)
    Rig::Fill(*rig.wind.mGrids[a], [&](const Vec3d& p) { return 3 * p[a] - a; });
  rig.scene->SetStage(kOperators);
  Rig::Opened(c);
  Rig::ForEachPoint(50, 0.1, 1.1, [&](const Vec3d& p) {
    EXPECT_NEAR(Rig::At(c, p), Length(Vec3d{3 * p.x, 3 * p.y - 1, 3 * p.z - 2}) / 4, 1e-5);
  });
}

TEST(FieldConstraints, TheAverageIsThatOfCellsAboveZeroAndStands) {
  FieldRig rig;
  Constraint& c = rig.Add<Constraint>("constraint_gridaverage", "average");
  Rig::OpenRange(c);
  Rig::Link(c, 1000, rig.smoke);
  Rig::Set(c, 1001, 3.0);
  rig.Start();
  EGrid<double>& g = *rig.smoke.mGrid;
  const auto level = [](const Vec3d& p) { return p.y < 0.4 ? 0.0 : 4 + std::sin(9 * p.x + p.z); };
  double sum = 0;
  i32 count = 0;
  Rig::Fill(g, level);
  for (i32 i = 0; i < g.mCount; ++i)
    if (g[i] > 0) sum += g[i], ++count;
  std::vector<double> results;
  for (const i32 threads : {1, 2, 5}) {
    rig.scene->mThreadCount = threads;
    rig.scene->SetStage(kOperators);
    results.push_back(Rig::At(Rig::Opened(c), {}));
  }
  const double share = (sum / count - 2) / 10;
  EXPECT_NEAR(results[0], share, 1e-12);
  EXPECT_EQ(results[0], results[1]);
  EXPECT_EQ(results[0], results[2]);

  g.Fill(0);
  EXPECT_EQ(Rig::At(Rig::Opened(c), {}), results[0]) << "the stage has begun: it stays";
  rig.scene->SetStage(kChannelsOperators);
  EXPECT_EQ(Rig::At(Rig::Opened(c), {}), results[0])
      << "without a cell above 0 the last one stands";
  MemoryArchive archive;
  c.Persist(archive);
  archive.Rewind();
  Constraint& resumed = rig.Add<Constraint>("constraint_gridaverage", "resumed");
  Rig::OpenRange(resumed);
  Rig::Link(resumed, 1000, rig.smoke);
  rig.Begin();
  resumed.Persist(archive);
  ASSERT_TRUE(archive.IsGood()) << archive.Problem();
  EXPECT_EQ(Rig::At(Rig::Opened(resumed), {}), results[0]) << "and survives a stop";
  g.Fill(2.9);
  rig.scene->SetStage(kFinish);
  EXPECT_NEAR(Rig::At(Rig::Opened(c), {}), -0.2, 1e-12) << "less than the least counts as 0";
}

/// A flow whose slopes are the same everywhere.
struct Linear {
  double m[3][3] = {{0.5, 2, -1}, {0.25, -0.75, 3}, {1.5, -2, 0.4}};
  Vec3d At(const Vec3d& p) const {
    Vec3d v;
    for (i32 i = 0; i < 3; ++i) v[i] = m[i][0] * p.x + m[i][1] * p.y + m[i][2] * p.z + 0.1 * i;
    return v;
  }
};

/// What strain and rotation make of a flow that they look at through row 1000.
void CompareFlow(Constraint& strain, Constraint& rotation, const Linear& flow, double h, double dt,
                 double low, double high, const std::function<void()>& begin) {
  const auto& m = flow.m;
  const double k = h * h / dt;
  const auto e = [&](i32 i, i32 j) { return k * (m[i][j] + m[j][i]) / 2; };
  const double mean = (e(0, 0) + e(1, 1) + e(2, 2)) / 3;
  double shear = 0;
  for (i32 i = 0; i < 3; ++i)
    for (i32 j = 0; j < 3; ++j) shear += std::pow(e(i, j) - (i == j ? mean : 0), 2);
  const double strains[9] = {
      mean, std::sqrt(shear / 2), e(0, 0), e(1, 1), e(2, 2), e(0, 1), e(0, 2), e(1, 2), 0};
  for (const bool absolute : {false, true})
    for (i32 mode = 0; mode < 8; ++mode) {
      ConstraintRig::Set(strain, 1003, mode);
      ConstraintRig::Set(strain, 1004, i32{absolute});
      begin();
      ConstraintRig::Opened(strain);
      ConstraintRig::ForEachPoint(20, low, high, [&](const Vec3d& p) {
        const double wanted = absolute ? std::abs(strains[mode]) : strains[mode];
        EXPECT_NEAR(ConstraintRig::At(strain, p), wanted, 1e-6) << mode;
      });
    }
  const Vec3d curl{m[2][1] - m[1][2], m[0][2] - m[2][0], m[1][0] - m[0][1]};
  for (const bool absolute : {false, true})
    for (i32 mode = 0; mode < 2; ++mode) {
      ConstraintRig::Set(rotation, 1002, mode);
      ConstraintRig::Set(rotation, 1003, i32{absolute});
      begin();
      ConstraintRig::Opened(rotation);
      ConstraintRig::ForEachPoint(20, low, high, [&](const Vec3d& p) {
        const double wanted = mode == 0 ? Length(curl) : Dot(curl, flow.At(p));
        EXPECT_NEAR(ConstraintRig::At(rotation, p), absolute ? std::abs(wanted) : wanted, 1e-5);
      });
    }
  EXPECT_EQ(ConstraintRig::At(strain, {9, 9, 9}), 0);
  EXPECT_EQ(ConstraintRig::At(rotation, {9, 9, 9}), 0) << "outside of the flow nothing passes";
}

TEST(FieldConstraints, StrainAndRotationAreThoseOfALinearFlow) {
  const Linear flow;
  FieldRig rig;
  Constraint& strain = rig.Add<Constraint>("constraint_strain", "strain");
  Constraint& rotation = rig.Add<Constraint>("constraint_rotation", "rotation");
  for (Constraint* c : {&strain, &rotation}) {
    Rig::OpenRange(*c);
    Rig::Link(*c, 1000, rig.wind);
  }
  rig.Start();
  for (i32 a = 0; a < 3; ++a)
    Rig::Fill(*rig.wind.mGrids[a], [&](const Vec3d& p) { return flow.At(p)[a]; });
  CompareFlow(strain, rotation, flow, rig.scene->mDomain.cellSize, 0.04, 0.2, 1,
              [&] { rig.Begin(); });
}

TEST(FieldConstraints, TheyReadASolversFacesAndItsSolids) {
  const Linear flow;
  GasRig rig({10, 10, 10});
  rig.Walls(1, 0, 0, 0, 0, 0);
  auto add = [&](const char* type) -> Constraint& {
    host::BaseNode& node = rig.Add(type, type);
    node.Set(1000, LinkTo(*rig.gasNode));
    Constraint& c = *rig.Object<Constraint>(node);
    Rig::OpenRange(c);
    return c;
  };
  Constraint &strain = add("constraint_strain"), &rotation = add("constraint_rotation"),
             &open = add("constraint_fractions"), &speed = add("constraint_gridvalue");
  speed.Node()->Set(1001, i32{4});
  rig.Begin();
  EXPECT_EQ(Rig::At(Rig::Opened(open), {0.5, 0.5, 0.5}), 1);
  const EGrid<float>& cells = *rig.gas->mFlow.mFractions.GetRead(0, 0);
  Rig::ForEachPoint(100, -0.1, 1.1, [&](const Vec3d& p) {
    EXPECT_EQ(Rig::At(open, p), SampleLinear(cells, cells.ToSamples(p)));
  });
  const auto begin = [&] {
    rig.Begin();
    rig.FillVelocity([&](const Vec3d& p) { return flow.At(p); });
  };
  CompareFlow(strain, rotation, flow, rig.scene->mDomain.cellSize, 0.04, 0.2, 0.8, begin);
  begin();
  Rig::Opened(speed);
  EXPECT_NEAR(Rig::At(speed, {0.3, 0.5, 0.7}), Length(flow.At({0.3, 0.5, 0.7})) / 10, 1e-6);
}

TEST(ParticleConstraints, DistanceAndCountAgreeWithBruteForce) {
  Rig rig;
  ParticleGroup& group = rig.Add<ParticleGroup>("particlegroup", "water");
  Constraint& distance = rig.Add<Constraint>("constraint_particledistance", "near");
  Constraint& count = rig.Add<Constraint>("constraint_particlecount", "crowd");
  for (Constraint* c : {&distance, &count}) {
    Rig::OpenRange(*c);
    Rig::Link(*c, 1000, group);
    Rig::Set(*c, 1001, 2.5);
  }
  std::vector<Vec3d> places;
  const auto drop = [&](const Vec3d& p) {
    ParticleTemplate particle;
    particle.flags |= PF_KIND_LIQUID;
    particle.position = p;
    places.push_back(p);
    group.Store(kLiquid).Create(particle);
    group.MarkTreeStale(kLiquid);
  };
  const double radius = 2.5 * rig.scene->mDomain.cellSize;
  rig.Begin();
  Rig::Opened(distance);
  EXPECT_GT(Rig::At(distance, {}), 1) << "no particle is near";
  Rig::ForEachPoint(200, 0, 1, drop);
  const auto compare = [&](i32 least, i32 most, bool ramp, i32 overflow) {
    Rig::Set(count, 1005, least);
    Rig::Set(count, 1004, most);
    Rig::Set(count, 1006, i32{ramp});
    Rig::Set(count, 1007, overflow);
    rig.Begin();
    Rig::Opened(distance);
    Rig::Opened(count);
    Rig::ForEachPoint(80, -0.3, 1.3, [&](const Vec3d& p) {
      double nearest = radius + 1;
      i32 n = 0;
      for (const Vec3d& q : places)
        if (const double d = Length(q - p); d < radius) nearest = std::min(nearest, d), ++n;
      EXPECT_NEAR(Rig::At(distance, p), nearest / radius, 1e-9);
      if (n > most && overflow == 1) n = most;
      if (n > most && overflow == 2) n = least;
      const double part = ramp ? double(n - least) / (most - least) : 1.0;
      EXPECT_NEAR(Rig::At(count, p), n <= least ? 0 : part, 1e-12) << overflow;
    });
  };
  for (i32 overflow = 0; overflow < 3; ++overflow) {
    compare(0, 5, true, overflow);
    compare(3, 8, overflow == 1, overflow);
  }
  // Born since the stage began: the next holder sees them.
  const Vec3d far{5, 5, 5};
  EXPECT_GT(Rig::At(distance, far), 1);
  drop(far);
  EXPECT_EQ(Rig::At(Rig::Opened(distance), far), 0);
}

TEST(ParticleConstraints, FlagsAndPropertiesCountForParticlesAlone) {
  Rig rig;
  ParticleGroup& group = rig.Add<ParticleGroup>("particlegroup", "water");
  Constraint& flag = rig.Add<Constraint>("constraint_particle_collision", "hit");
  Constraint& property = rig.Add<Constraint>("constraint_particle_property", "property");
  ParticleStore& store = group.Store(kPassive);
  for (i32 i = 0; i < 70; ++i) {
    ParticleTemplate particle;
    particle.flags |= PF_KIND_PASSIVE;
    if (i % 3 == 0) particle.flags |= PF_COLLIDED;
    particle.velocity = {0.3 * i, 0, 0.4 * i};
    if (i % 2) particle.Set(property_id::kAge, double(i));
    if (i % 2) particle.Set(property_id::kLifeSpan, 80.0);
    if (i % 4) particle.Set(property_id::kTemperature, 10.0 * i);
    store.Create(particle);
  }
  rig.Begin();
  Rig::Opened(flag);
  for (i32 i = 0; i < 70; ++i) EXPECT_EQ(Rig::OfParticle(flag, store, i), i % 3 == 0);
  EXPECT_EQ(Rig::At(flag, {}), 1) << "a mere place passes";

  const auto measure = [&](const char* type, i32 id, auto&& wanted) {
    iBase& named = rig.Add<iBase>(type, type);
    Rig::Set(named, 2001, id);
    Rig::Link(property, 1000, named);
    rig.Begin();
    Rig::Opened(property);
    EXPECT_EQ(Rig::At(property, {}), 1);
    for (i32 i = 0; i < 70; ++i) EXPECT_NEAR(Rig::OfParticle(property, store, i), wanted(i), 1e-9);
  };
  Rig::OpenRange(property);
  measure("property_scalar", property_id::kAge,
          [](i32 i) { return i % 2 ? 1 - std::min(i / 80.0, 1.0) : 0.0; });
  Rig::Set(property, 1002, 100.0);
  Rig::Set(property, 1003, 300.0);
  measure("property_scalar", property_id::kTemperature,
          [](i32 i) { return ((i % 4 ? 10.0 * i : 1.0) - 100) / 200; });
  measure("property_vector", property_id::kVelocity, [](i32 i) { return 0.5 * i; });
  measure("property_vector", property_id::kColor, [](i32) { return std::sqrt(3); });
  Rig::Set(property, 1005, i32{0});
  measure("property_state", 80, [](i32) { return 1; });
}

TEST(ParticleConstraints, AForceHandsThemTheParticleThatItPushes) {
  Rig rig;
  ParticleGroup& group = rig.Add<ParticleGroup>("particlegroup", "dust");
  ParticleForces& push = rig.Add<ParticleForces>("particle_forces", "push");
  Force& gravity = rig.Add<Force>("force_gravity", "down");
  Constraint& flag = rig.Add<Constraint>("constraint_particle_collision", "hit");
  Constraint& low = rig.Add<Constraint>("constraint_gradient", "low");
  Rig::Set(low, 1000, host::Gradient{{{0, {0, 0, 0}}, {1, {1, 1, 1}}}});
  Rig::Links(push, ParticleForces::kGroupRow, {&group});
  Rig::Links(push, ParticleForces::kForcesRow, {&gravity});
  Rig::Links(gravity, common_row::kConstraints, {&flag, &low});
  ParticleStore& store = group.Store(kPassive);
  for (i32 i = 0; i < 200; ++i) {
    ParticleTemplate particle;
    particle.flags |= PF_KIND_PASSIVE;
    if (i % 3 == 0) particle.flags |= PF_COLLIDED;
    particle.position = {0, 0.004 * i, 0};
    store.Create(particle);
  }
  rig.scene->mTime.frameIndex = 1;
  rig.Begin(kOperators);
  Rig::Run(push, 2);
  for (i32 i = 0; i < 200; ++i)
    EXPECT_NEAR(store.Velocities()[i].y, i % 3 == 0 ? -9.81 * 0.04 * (0.004 * i) : 0, 1e-7) << i;
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
