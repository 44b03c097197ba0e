// Particles that a test puts where it wants them, under one operator.
#pragma once
#include <gtest/gtest.h>

#include "fluids/particles/particle_group.h"
#include "fluids/test_scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A scene of 100 host units a metre with a group of passive particles.
struct GroupRig : TestScene {
  ParticleGroup& group = Add<ParticleGroup>("particlegroup", "sparks");
  ParticleStore& Store() { return group.Store(kPassive); }
  i32 Put(const Vec3d& position, const Vec3d& velocity = {}) {
    ParticleTemplate particle;
    particle.flags |= PF_KIND_PASSIVE;
    particle.position = position;
    particle.velocity = velocity;
    return Store().Create(particle);
  }
  template <class T>
  T& AddOperator(const char* type, i32 kindRow) {
    T& made = Add<T>(type, type);
    Link(made, T::kGroupRow, group);
    Set(made, kindRow, i32{kPassive});
    return made;
  }
  /// One run of an operator, its parameters and links read anew.
  void Step(iObject& object, i32 threads = 1) {
    SetUp();
    scene->SetStage(kOperators);
    Run(object, threads);
  }
};

inline void ExpectClose(const Vec3d& a, const Vec3d& b, double within = 1e-6,
                        const std::string& what = {}) {
  for (i32 c = 0; c < 3; ++c) EXPECT_NEAR(a[c], b[c], within) << what << " " << c;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
