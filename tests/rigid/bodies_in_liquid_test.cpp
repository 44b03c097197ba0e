// Bodies in a liquid.
#include <gtest/gtest.h>

#include "io/measure.h"
#include "rigid/body_scene.h"
#include "rigid/rigid_body_variational.h"

namespace MELDO_GLOBAL::app {
namespace {

/// Fills the object "pool" with water at the start, but for the object "body", a body of the
/// settings `body`. The liquid's box reaches `half` metres from the origin.
std::string Water(double half, const std::string& forces, const std::string& body) {
  return fmt::format(
      R"({{"type": "particlegroup", "name": "water"}},
         {{"type": "mesh", "name": "pool mesh", "parameters": {{"object": "pool"}}}},
         {{"type": "volume", "name": "pool volume", "parameters": {{"mesh": "pool mesh"}}}},
         {{"type": "duration", "name": "start", "parameters": {{"length": 0.001}}}},
         {{"type": "particlemesh_emission_setting", "name": "once",
           "parameters": {{"duration": "start"}}}},
         {{"type": "particlegridemitter", "name": "fill",
           "parameters": {{"group": "water", "volume": "pool volume", "settings": "once"}}}},
         {{"type": "particle_advection", "name": "move water", "parameters": {{"group": "water"}}}},
         {{"type": "mesh", "name": "body mesh", "parameters": {{"object": "body"}}}},
         {{"type": "volume", "name": "body volume", "parameters": {{"mesh": "body mesh"}},
           "obstacle": {{{3}}}}},
         {{"type": "alignment", "name": "x",
           "parameters": {{"mode": "fixed", "vector": [1, 0, 0]}}}},
         {{"type": "force_gravity", "name": "gravity"}},
         {{"type": "liquid", "name": "liquid", "position": [{0}, {0}, {0}],
           "parameters": {{"box_size": [{1}, {1}, {1}], "groups": ["water"], "forces": [{2}]}}}},)",
      -100 * half, 200 * half, forces, body);
}

// A body that strikes a block of water in free space, from within, gives it what it loses.
TEST(BodiesInLiquid, ABodyAndABlockOfWaterKeepTheirMomentum) {
  BodyScene scene(
      R"({"name": "pool", "type": "box", "size": [80, 80, 80]},
         {"name": "body", "type": "box", "size": [40, 40, 40]})",
      "", Water(0.6, "", R"("mass_mode": "from_density", "density": 1000,
                        "start_direction": "x", "start_speed": 1)"),
      R"("cell_size": 0.05, "gravity": [0, 0, 0], "time_mode": "fixed_substeps",
         "extra_substeps": 15)");
  for (const i32 frame : {1, 3}) {
    scene.RunTo(frame);
    FrameRecord record;
    MeasureScene(*scene.simulation->Scenes().front(),
                 NodeNames(*scene.loaded->document, NodeNames::Among::SameList), record);
    const ParticlesRecord& water = record.particles.front();
    const auto& body = dynamic_cast<const MELDO_SULVA::RigidBody_Variational&>(scene.Body("body"));
    const double fluid = 1000 * 0.05 * 0.05 * 0.05 / 8 *
                         static_cast<double>(water.counts[MELDO_SULVA::kLiquid]) *
                         water.meanVelocity.x;
    // What has been pressed since its last step acts in the next.
    const double own = body.Mass() * body.LinearVelocity().x + body.FluidForce().x * 0.0025;
    EXPECT_GT(fluid, 0.1 * body.Mass()) << frame;
    EXPECT_NEAR(fluid + own, body.Mass(), 0.04 * body.Mass()) << frame;
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::app
