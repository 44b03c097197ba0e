// Momentum of bodies and a liquid that nothing else pushes.
#include <gtest/gtest.h>

#include "body_scene.h"
#include "io/measure.h"

namespace MELDO_GLOBAL::app {
namespace {

/// A block of water of 0.8 m without weight, and a ball of 0.4 m that flies into it.
struct Strike : BodyScene {
  static constexpr double kWater = 512;  // kg

  Strike(double cell, double density, const Vec3d& way, const Vec3d& from)
      : BodyScene(Objects(from), "", Nodes(density, way),
                  fmt::format(R"("cell_size": {}, "gravity": [0, 0, 0])", cell)) {}

  static std::string Objects(const Vec3d& from) {
    return fmt::format(R"({{"name": "block", "type": "box", "size": [80, 80, 80]}},
      {{"name": "ball", "type": "sphere", "radius": 20, "segments": 32,
        "position": [{}, {}, {}]}})",
                       from.x, from.y, from.z);
  }
  static std::string Nodes(double density, const Vec3d& way) {
    return fmt::format(R"(
      {{"type": "alignment", "name": "way",
        "parameters": {{"mode": "fixed", "vector": [{}, {}, {}]}}}},
      {{"type": "mesh", "name": "ball mesh", "parameters": {{"object": "ball"}}}},
      {{"type": "volume", "name": "ball volume", "parameters": {{"mesh": "ball mesh"}},
        "obstacle": {{"mass_mode": "from_density", "density": {}, "start_direction": "way"}}}},)",
                       way.x, way.y, way.z, density) +
           R"(
      {"type": "particlegroup", "name": "water"},
      {"type": "mesh", "name": "block mesh", "parameters": {"object": "block"}},
      {"type": "volume", "name": "block volume", "parameters": {"mesh": "block mesh"}},
      {"type": "duration", "name": "start", "parameters": {"length": 0.001}},
      {"type": "particlemesh_emission_setting", "name": "once", "parameters": {"duration": "start"}},
      {"type": "particlegridemitter", "name": "fill",
       "parameters": {"group": "water", "volume": "block volume", "settings": "once"}},
      {"type": "particle_advection", "name": "move", "parameters": {"group": "water"}},
      {"type": "liquid", "name": "liquid", "position": [-200, -200, -200],
       "parameters": {"box_size": [400, 400, 400], "groups": ["water"], "wall_low_x": 0,
                      "wall_high_x": 0, "wall_low_y": 0, "wall_high_y": 0, "wall_low_z": 0,
                      "wall_high_z": 0}},)";
  }
  Vec3d BallVelocity() const {
    Vec3d linear, angular;
    Body("ball").GetFlowVelocities(linear, angular);  // with the impulse that is still to act
    return linear;
  }
  Vec3d Momentum() const {
    const auto& groups = simulation->Scenes().front()->List(MELDO_SULVA::kListParticles);
    auto& water = dynamic_cast<MELDO_SULVA::ParticleGroup&>(*groups.begin()->second);
    return BallVelocity() * Body("ball").Mass() + MeasureParticles(water, 1).meanVelocity * kWater;
  }
};

// The pressure is exact on any lattice. What particles take from faces that the ball cuts was up to
// 19 % of its momentum.
TEST(BodyMomentum, ABallThatStrikesWaterGivesItWhatItLoses) {
  struct Case {
    double cell, density, most;
    Vec3d way, from;
  };
  const Case cases[] = {{0.1, 300, 0.03, {1, 0, 0}, {-62, 0, 0}},
                        {0.1, 1000, 0.03, {1, 0.4, 0.2}, {-62, 10, 5}},
                        {0.05, 300, 0.01, {1, 0, 0}, {-62, 0, 0}}};
  for (const Case& c : cases) {
    Strike strike(c.cell, c.density, c.way, c.from);
    strike.RunTo(0);
    const Vec3d before = strike.Momentum();
    ASSERT_GT(Length(before), 5);
    for (const i32 frame : {1, 2, 3, 6}) {
      strike.RunTo(frame);
      EXPECT_LT(Length(strike.Momentum() - before), c.most * Length(before))
          << c.cell << " " << c.density << " " << frame;
    }
    EXPECT_LT(strike.BallVelocity().x, 0.9);
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::app
