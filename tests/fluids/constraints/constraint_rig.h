// Constraints of a scene, asked as a holder asks them.
#pragma once
#include <functional>
#include <random>

#include "fluids/test_scene.h"
#include "framework/constraint.h"
#include "grids/egrid.h"
#include "host/polygon_object.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A scene of cells of 0.1 m in which 100 host units are a metre.
struct ConstraintRig : TestScene {
  /// The set-up passes, then the start of a stage.
  void Begin(i32 stage = kEmitters) {
    SetUp();
    scene->SetStage(stage);
  }
  /// Ready for tests, by itself.
  static Constraint& Opened(Constraint& constraint) {
    constraint.Prepare({});
    return constraint;
  }
  /// What is left of a weight of 1 at a place.
  static double At(Constraint& constraint, const Vec3d& p, u32 worker = 0) {
    double weight = 1;
    constraint.Test(p, weight, {.worker = worker});
    return weight;
  }
  static double OfParticle(Constraint& constraint, const ParticleColumns& particles, i32 row) {
    double weight = 1;
    constraint.Test({}, weight, {.particles = &particles, .particle = row});
    return weight;
  }
  /// The range lets the measure through as it is.
  static void OpenRange(Constraint& constraint) {
    Set(constraint, Constraint::kClampLowRow, i32{0});
    Set(constraint, Constraint::kClampHighRow, i32{0});
  }
  /// f(p) for points of a box from `low` to `high`, the same in every run.
  static void ForEachPoint(i32 count, double low, double high,
                           const std::function<void(const Vec3d&)>& f) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> place(low, high);
    for (i32 i = 0; i < count; ++i) {
      const double x = place(random), y = place(random);
      f({x, y, place(random)});
    }
  }
  template <class F>
  static void Fill(EGrid<double>& g, F&& f) {
    ForEachCell({{0, 0, 0}, g.Dims()},
                [&](i32 x, i32 y, i32 z) { g(x, y, z) = f(g.PositionOf(x, y, z)); });
  }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
