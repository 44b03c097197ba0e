// Several simulations in one process.
#include <gtest/gtest.h>

#include <thread>

#include "fluids/fields/channel.h"
#include "fluids/particles/particle_group.h"
#include "paths.h"
#include "run/simulation.h"
#include "scene/scene_file.h"

namespace MELDO_GLOBAL::app {
namespace {

/// The bytes of all scalar channels of a scene behind some frames.
std::vector<double> Simulate(const std::string& scene, const std::string& cellSize, i32 frames) {
  Diagnostics diagnostics;
  const std::optional<LoadedScene> loaded =
      LoadScene(SourcePath(scene), diagnostics, {"scene.cell_size=" + cellSize});
  if (!loaded) return {};
  Simulation simulation(*loaded->document, loaded->servers, u64{1} << 40);
  FrameRecord record;
  const i32 first = simulation.Range().first;
  for (i32 frame = first; frame < first + frames; ++frame)
    if (simulation.Evaluate(frame, record) != FrameOutcome::Done) return {};
  std::vector<double> bytes;
  for (const auto& [id, object] : simulation.Scenes().front()->List(MELDO_SULVA::kListChannels))
    if (const auto* field = dynamic_cast<const MELDO_SULVA::ScalarField*>(object.get()))
      if (const auto* grid = field->GetGrid(0); grid && grid->mData)
        bytes.insert(bytes.end(), grid->mData, grid->mData + grid->mCount);
  return bytes;
}

}  // namespace

TEST(Simulations, AnEmitterFillsTheLiquidsAloneThatItNames) {
  Diagnostics diagnostics;
  const auto loaded = LoadScene(SourcePath("/tests/scenes/two_pools.json"), diagnostics);
  ASSERT_TRUE(loaded);
  Simulation simulation(*loaded->document, loaded->servers, u64{1} << 40);
  FrameRecord record;
  for (i32 frame = 0; frame < 2; ++frame)
    ASSERT_EQ(simulation.Evaluate(frame, record), FrameOutcome::Done);
  i32 counts[2] = {};
  for (const auto& [id, object] : simulation.Scenes().front()->List(MELDO_SULVA::kListParticles)) {
    auto* group = dynamic_cast<MELDO_SULVA::ParticleGroup*>(object.get());
    if (!group) continue;
    // The bar reaches 80 cm to both sides; the right pool begins at 20 cm.
    for (const i32 kind : {MELDO_SULVA::kPassive, MELDO_SULVA::kLiquid})
      for (const Vec3d& p : group->Store(kind).Positions()) {
        ++counts[kind == MELDO_SULVA::kPassive];
        const bool isRight = group->Node()->Path().ends_with("right water");
        ASSERT_TRUE(kind == MELDO_SULVA::kPassive ? p.x < 0 : !isRight || p.x > 0.2) << p.x;
      }
  }
  EXPECT_GT(counts[0], 500);
  EXPECT_GT(counts[1], 400);
}

TEST(Simulations, InAnyThreadsOfAProcessTheyGiveTheBytesOfOneAlone) {
  const std::pair<std::string, std::string> scenes[] = {{"/scenes/plume.json", "0.12"},
                                                        {"/scenes/fire.json", "0.12"},
                                                        {"/scenes/plume.json", "0.15"}};
  host::SetThreadCount(3);
  std::vector<std::vector<double>> alone;
  for (const auto& [scene, cellSize] : scenes) alone.push_back(Simulate(scene, cellSize, 6));
  std::vector<std::vector<double>> together(6);
  {
    std::vector<std::jthread> threads;
    for (size_t i = 0; i < together.size(); ++i)
      threads.emplace_back([&, i] {
        const auto& [scene, cellSize] = scenes[i % 3];
        together[i] = Simulate(scene, cellSize, 6);
      });
  }
  host::SetThreadCount(0);
  for (size_t i = 0; i < together.size(); ++i) {
    ASSERT_GT(alone[i % 3].size(), 1000u);
    EXPECT_EQ(together[i], alone[i % 3]) << i;
  }
}

}  // namespace MELDO_GLOBAL::app
