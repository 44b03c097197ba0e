// The scenes of the operators that change channels, against themselves with the operator made idle
// by one of its parameters: what it says it does is what the run shows.
#include <gtest/gtest.h>

#include "cli/scene_run.h"
#include "paths.h"

namespace {

struct Trial {
  const char* scene;
  const char* idle;               ///< option that leaves the operator without effect
  const char *channel, *measure;  ///< of the last frame's statistics
  double least, most;             ///< the operator's over the idle one's
};

class OperatorScene : public testing::TestWithParam<Trial> {};

double Measure(const SceneRun& run, const Trial& trial) {
  const nlohmann::json& end = run.frames.back();
  return end[trial.channel[0] == '@' ? "solvers" : "channels"]
            [trial.channel[0] == '@' ? trial.channel + 1 : trial.channel][trial.measure]
                .get<double>();
}

}  // namespace

TEST_P(OperatorScene, ShowsWhatItsOperatorDoes) {
  const Trial& trial = GetParam();
  const std::filesystem::path scene =
      std::filesystem::path(SourcePath()) / "tests/scenes" / (std::string(trial.scene) + ".json");
  const SceneRun with = RunCoarsely(scene, 0.1, 12);
  const SceneRun without = RunCoarsely(scene, 0.1, 12, std::string("--set \"") + trial.idle + '"');
  ASSERT_EQ(with.status, 0) << with.errors;
  ASSERT_EQ(without.status, 0) << without.errors;
  const double ratio = Measure(with, trial) / Measure(without, trial);
  EXPECT_GT(ratio, trial.least);
  EXPECT_LT(ratio, trial.most);
}

INSTANTIATE_TEST_SUITE_P(
    Scenes, OperatorScene,
    testing::Values(Trial{"grid_combustion_fire", "burn.burn_rate=0", "fuel", "sum", 0.0, 0.1},
                    Trial{"grid_cooling", "cool.rate=0", "heat", "sum", 0.5, 0.97},
                    Trial{"grid_dissipate", "thin.rate=0", "smoke", "sum", 0.3, 0.9},
                    Trial{"grid_diffusion", "blur.strength=0", "smoke", "max", 0.5, 0.999},
                    Trial{"grid_variabledensity", "mix.other_density=1.184", "@gas",
                          "kinetic_energy", 4, 1e300}),
    [](const auto& trial) { return std::string(trial.param.scene); });
