// Particles where a test puts them, in a scene of cells of 0.1 m.
#pragma once
#include <gtest/gtest.h>

#include <random>

#include "fluids/particles/particle_group.h"
#include "fluids/test_scene.h"
#include "framework/script_part.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

struct ParticleRig : TestScene {
  static constexpr double kStep = 0.04;
  ParticleGroup& group = Add<ParticleGroup>("particlegroup", "sparks");

  ParticleRig() {
    SetUp();
    scene->mTime.frameIndex = 1;
  }
  ParticleStore& Store() { return group.Store(kPassive); }
  static void Put(ParticleStore& store, const Vec3d& position, const Vec3d& velocity = {}) {
    ParticleTemplate particle;
    particle.flags |= PF_KIND_PASSIVE;
    particle.position = position;
    particle.velocity = velocity;
    store.Create(particle);
  }
  void Put(const Vec3d& position, const Vec3d& velocity = {}) { Put(Store(), position, velocity); }
  /// A cloud in a box from 0, the same in every run.
  static void PutCloud(ParticleStore& store, i32 count, const Vec3d& size, u32 seed = 3) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0, 1);
    const auto draw = [&] {
      const double x = unit(random), y = unit(random);
      return Vec3d{x, y, unit(random)};
    };
    for (i32 i = 0; i < count; ++i) {
      const Vec3d position = draw() * size;
      Put(store, position, draw() * 2.0 - Vec3d{1, 1, 1});
    }
  }
  static void Kill(ParticleStore& store, i32 row) {
    store.Flags()[row] &= static_cast<u16>(~PF_ALIVE);
  }
  static std::vector<Vec3d> CopyOf(std::span<const Vec3d> vectors) {
    return {vectors.begin(), vectors.end()};
  }
  /// A constraint that leaves half of the weight of what stands left of 1 m, and nothing else.
  iBase& AddHalfLeft() {
    iBase& limit = Add<iBase>("constraint_script", "left");
    Set(limit, ScriptPart::kSourceRow,
        std::string("function main(op) return physical_pos.x < 1 and 0.5 or 0 end"));
    return limit;
  }
};

inline void ExpectVector(const Vec3d& a, const Vec3d& b, double within, i32 at = 0) {
  for (i32 c = 0; c < 3; ++c) EXPECT_NEAR(a[c], b[c], within) << at << " component " << c;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
