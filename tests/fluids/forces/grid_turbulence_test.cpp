#include <random>

#include "fluids/forces/force_grid_turbulence.h"
#include "fluids/gas_rig.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

struct EddyRig : GasRig {
  explicit EddyRig(i32 threads = 1) : GasRig({10, 8, 9}, 0.1, threads) {
    groupNode = &Add("particlegroup", "eddies");
    node = &Add("force_particleturbulence", "stir");
    node->Set(1000, LinkTo(*groupNode));
    node->Set(1004, 3.0);
    node->Set(1005, 1.0);
    node->Set(1006, 1e6);
    group = Object<ParticleGroup>(*groupNode);
    force = Object<Force_GridTurbulence>(*node);
  }
  i32 Put(const Vec3d& position, const Vec3d& vorticity) {
    ParticleTemplate particle;
    particle.flags |= PF_KIND_VORTICITY;
    particle.position = position;
    const i32 row = group->Store(kVortex).Create(particle);
    group->Store(kVortex).At(row).SetVector(property_id::kVorticity, vorticity);
    group->MarkTreeStale(kVortex);
    return row;
  }
  void PutRandom(i32 count) {
    std::mt19937 random(4);
    std::uniform_real_distribution<double> unit(0, 1);
    for (i32 i = 0; i < count; ++i) {
      const Vec3d p{unit(random), 0.8 * unit(random), 0.9 * unit(random)};
      Put(p, {unit(random) - 0.5, unit(random) - 0.5, unit(random) - 0.5});
    }
  }
  Vec3d VorticityOf(i32 row) const {
    return group->Store(kVortex).At(row).GetVector(property_id::kVorticity, {});
  }
  Vec3d PushAt(const Vec3d& p) const {
    ForceSample sample;
    sample.position = p;
    force->Evaluate(sample);
    return sample.force;
  }
  host::BaseNode *groupNode, *node;
  ParticleGroup* group;
  Force_GridTurbulence* force;
};

}  // namespace

TEST(GridTurbulence, PushesRoundItsParticlesByItsFormula) {
  for (const bool alongFlow : {false, true}) {
    EddyRig rig;
    rig.node->Set(1015, i32{alongFlow});
    rig.Begin();
    rig.PutRandom(60);
    const i32 dead = rig.Put({0.4, 0.4, 0.4}, {0, 0, 9});
    rig.group->Store(kVortex).Flags()[dead] &= ~PF_ALIVE;
    rig.group->Store(kVortex).At(3).AddScalar(property_id::kRadius, 0.05);
    rig.FillVelocity([](const Vec3d&) { return Vec3d{1, -2, 0.5}; });
    rig.force->PrepareFor(rig.gas->mFlow);
    ASSERT_TRUE(rig.force->Has(FLAG_ACTIVE));
    std::mt19937 random(8);
    std::uniform_real_distribution<double> unit(0.1, 0.8);
    const double h = rig.scene->mDomain.cellSize, radius = 3 * h;
    double largest = 0;
    for (i32 k = 0; k < 50; ++k) {
      const Vec3d p{unit(random), unit(random), unit(random)};
      Vec3d sum{};
      for (i32 i = 0; i < 60; ++i) {
        const Vec3d way = rig.group->Store(kVortex).Positions()[i] - p;
        const double r = Length(way);
        if (r >= radius || (i == 3 && r > 0.05)) continue;
        const double q = r * r / (radius * radius);
        const double kernel =
            315 / (64 * 3.14159265358979323846 * radius * radius * radius) * std::pow(1 - q, 3);
        Vec3d w = rig.VorticityOf(i) * kernel;
        double s = 0.2;
        if (alongFlow) {
          s *= Length(rig.VorticityOf(i)) * Dot(Vec3d{1, -2, 0.5}, w);
          w = Normalised(w);
        }
        sum += Cross(way / r, w) * s;
      }
      ASSERT_LT(Length(rig.PushAt(p) - sum), 1e-9 * (1 + Length(sum)));
      largest = std::max(largest, Length(sum));
    }
    EXPECT_GT(largest, 1e-3);
  }
}

TEST(GridTurbulence, TheFlowStretchesVorticityWithinItsLimits) {
  EddyRig rig;
  rig.node->Set(1005, 100.0);
  rig.node->Set(1006, 1000.0);
  rig.Begin();
  const Vec3d rows[3] = {{0, -3, 1}, {3, 0.5, 0}, {-1, 0, -0.5}};
  rig.FillVelocity([&](const Vec3d& p) {
    return Vec3d{Dot(rows[0], p), Dot(rows[1], p), Dot(rows[2], p)};
  });
  const Vec3d middle{0.5, 0.4, 0.45};
  const i32 plain = rig.Put(middle, {0.2, 0.3, -0.4}), weak = rig.Put(middle, {0, 1e-6, 0}),
            none = rig.Put(middle, {}), strong = rig.Put(middle, {0, 0, 7}),
            dead = rig.Put(middle, {0, 0, 7}), outside = rig.Put({50, 0, 0}, {0, 0, 7});
  rig.group->Store(kVortex).Flags()[dead] &= ~PF_ALIVE;
  rig.force->PrepareFor(rig.gas->mFlow);
  const Vec3d w{0.2, 0.3, -0.4};
  const Vec3d turned = w + Vec3d{Dot(rows[0], w), Dot(rows[1], w), Dot(rows[2], w)} * 0.04;
  EXPECT_LT(Length(rig.VorticityOf(plain) - turned), 1e-9);
  EXPECT_NEAR(Length(rig.VorticityOf(weak)), 0.1, 1e-12) << "raised to the lowest";
  EXPECT_EQ(rig.VorticityOf(none), (Vec3d{}));
  EXPECT_NEAR(Length(rig.VorticityOf(strong)), 1, 1e-12) << "cut to the highest";
  EXPECT_EQ(rig.VorticityOf(dead), (Vec3d{0, 0, 7}));
  EXPECT_NEAR(Length(rig.VorticityOf(outside)), 1, 1e-12) << "limited out there too";
}

TEST(GridTurbulence, ConstraintsOfParticlesWeighEachOfThemAndOthersThePlace) {
  std::vector<double> faces[2];
  for (const bool isLimited : {false, true}) {
    EddyRig rig;
    host::BaseNode& flag = rig.Add("constraint_particle_collision", "hit");
    host::BaseNode& half = rig.Add("constraint_quadratic", "half");
    half.Set(Constraint::kOutputLowRow, 0.5);
    half.Set(Constraint::kOutputHighRow, 0.5);
    if (isLimited) {
      host::InExcludeData list;
      for (const host::BaseNode* node : {&half, &flag}) list.entries.push_back({node->Id(), 0});
      rig.node->Set(common_row::kConstraints, list);
    }
    rig.Begin();
    const i32 hit = rig.Put({0.3, 0.4, 0.4}, {0, 0.3, 0.1});
    rig.group->Store(kVortex).Flags()[hit] |= PF_COLLIDED;
    if (isLimited) rig.Put({0.4, 0.4, 0.5}, {0, 0, 9});
    rig.RunGas(kForcesEmission);
    const EGrid<double>& u = *rig.gas->mFlow.mVelocity.GetGrid(0);
    faces[isLimited].assign(u.mData, u.mData + u.mCount);
  }
  double largest = 0;
  for (std::size_t i = 0; i < faces[0].size(); ++i) {
    EXPECT_NEAR(faces[1][i], 0.5 * faces[0][i], 1e-12) << i;
    largest = std::max(largest, std::abs(faces[0][i]));
  }
  EXPECT_GT(largest, 1e-3);
}

TEST(GridTurbulence, IsTheSameForAnyNumberOfThreads) {
  std::vector<double> results[3];
  for (const i32 threads : {1, 2, 3}) {
    EddyRig rig(threads);
    rig.Begin();
    rig.PutRandom(200);
    rig.FillVelocity([](const Vec3d& p) { return Vec3d{p.y, -p.x * p.z, p.x}; });
    rig.RunGas(kForcesEmission);
    const EGrid<double>& u = *rig.gas->mFlow.mVelocity.GetGrid(0);
    results[threads - 1].assign(u.mData, u.mData + u.mCount);
  }
  EXPECT_EQ(results[0], results[1]);
  EXPECT_EQ(results[0], results[2]);
}

TEST(GridTurbulence, RestsWithoutStrengthAndAddsNothingWithoutParticles) {
  EddyRig rig;
  rig.Begin();
  rig.force->PrepareFor(rig.gas->mFlow);
  EXPECT_TRUE(rig.force->Has(FLAG_ACTIVE));
  EXPECT_EQ(rig.PushAt({0.5, 0.4, 0.4}), (Vec3d{}));
  rig.node->Set(1002, 0.0);
  rig.Begin();
  rig.force->PrepareFor(rig.gas->mFlow);
  EXPECT_FALSE(rig.force->Has(FLAG_ACTIVE));
}
