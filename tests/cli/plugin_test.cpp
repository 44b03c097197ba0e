// Plug-ins: what they bring works as what is built in, and one that can't be used is told of.
#include <gmock/gmock.h>

#include "cli/run_folder.h"
#include "fluids/constraints/plugin_constraint.h"
#include "fluids/forces/plugin_force.h"
#include "fluids/gas_rig.h"
#include "fluids/particles/particle_group.h"
#include "nodes/plugins.h"

using testing::HasSubstr;
using testing::Not;

namespace MELDO_GLOBAL::app {
namespace {

using namespace MELDO_SULVA;

std::string LibraryPath(const std::string& name) {
  return (std::filesystem::path(BinaryPath()).parent_path() / ("lib" + name + ".so")).string();
}

std::string GustScene() {
  return ReadAll(std::filesystem::path(SourcePath("/examples/plugins/gusts.json")));
}

std::string Without(std::string text, const std::string& part, const std::string& instead = "") {
  return text.replace(text.find(part), part.size(), instead);
}

}  // namespace

TEST(Plugin, RunsAsWhatIsBuiltInAndGoesOnFromItsStates) {
  const RunFolder folder("plugin");
  const std::string library = LibraryPath("gusts");
  folder.Write("s.json", GustScene());
  for (const char* command : {"check", "run"}) {
    EXPECT_EQ(folder.Run({command, "s.json"}), 3);
    EXPECT_THAT(folder.Errors(), HasSubstr("unknown node type 'force_gusts'"));
  }
  ASSERT_EQ(folder.Run({"check", "s.json", "--strict", "--plugin", library}), 0) << folder.Errors();
  const auto run = [&](const std::string& out, const std::vector<std::string>& more) {
    std::vector<std::string> words = {"run", "s.json", "--plugin", library, "--out", out};
    words.insert(words.end(), more.begin(), more.end());
    return folder.Run(words);
  };
  ASSERT_EQ(run("one", {"--threads", "1", "--frames", "0:20"}), 0) << folder.Errors();
  ASSERT_EQ(run("three", {"--threads", "3", "--frames", "0:20"}), 0) << folder.Errors();
  folder.ExpectSame("one", "three");
  ASSERT_EQ(run("cut", {"--frames", "0:11", "--checkpoint", "6"}), 0) << folder.Errors();
  ASSERT_EQ(run("cut", {"--frames", "0:20", "--resume"}), 0) << folder.Errors();
  const auto whole = folder.Files("one"), cut = folder.Files("cut");
  EXPECT_EQ(whole.at("preview/0020.png"), cut.at("preview/0020.png"));
  // The same kinds from another file are another scene.
  const std::filesystem::path other = folder.Path() / "libother.so";
  std::filesystem::copy_file(library, other);
  std::ofstream(other, std::ios::app | std::ios::binary) << "another build";
  EXPECT_EQ(folder.Run({"run", "s.json", "--plugin", other.string(), "--out", "cut", "--resume"}),
            5);
  EXPECT_THAT(folder.Errors(), HasSubstr("can't go on from it"));
}

TEST(Plugin, IsValidatedAndListedByItsRows) {
  const RunFolder folder("plugin_rows");
  const std::string library = LibraryPath("gusts");
  folder.Write("s.json", Without(GustScene(), R"("wind": [4, 1, 0])", R"("wnid": 2, "drag": -1)"));
  EXPECT_EQ(folder.Run({"check", "s.json", "--plugin", library}), 3);
  EXPECT_THAT(folder.Errors(), HasSubstr("unknown parameter 'wnid'; did you mean 'wind'?"));
  EXPECT_THAT(folder.Errors(), HasSubstr("'drag': -1 is out of range"));
  EXPECT_EQ(folder.Run({"nodes", "force_gusts", "--plugin", library}), 0);
  EXPECT_THAT(folder.Answers(), HasSubstr("from one gust to the next"));
}

TEST(Plugin, ThatCantBeUsedIsToldOf) {
  const RunFolder folder("plugin_errors");
  folder.Write("s.json", GustScene());
  folder.Write("text.so", "no library");
  const std::string gusts = LibraryPath("gusts");
  const auto refused = [&](const std::vector<std::string>& libraries) {
    std::vector<std::string> words = {"check", "s.json"};
    for (const std::string& library : libraries) words.insert(words.end(), {"--plugin", library});
    EXPECT_EQ(folder.Run(words), 5);
    return folder.Errors();
  };
  EXPECT_EQ(refused({"none.so"}), "error: plug-in none.so: no such file\n");
  EXPECT_THAT(refused({"text.so"}), HasSubstr("error: plug-in text.so: it can't be loaded: "));
  EXPECT_THAT(refused({LibraryPath("other_version")}),
              HasSubstr("it is made for version 2 of the interface, and this is version 1"));
  EXPECT_THAT(refused({gusts, gusts}), HasSubstr("its kind 'force_gusts' (\"DF::Gusts\", 10000001) "
                                                 "is given twice"));
  EXPECT_THAT(refused({LibraryPath("taken_kind")}), HasSubstr("its kind 'force_gravity'"));
}

/// In a process of its own, started anew, since one that is merely forked has no workers: other tests
/// list the kinds that there are.
TEST(Plugin, PushesCellsAndParticlesByItsFormula) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  constexpr double kSingle = 1e-7;  // the scale of a scene is in single precision
  const auto isSo = [] {
    LoadPlugin(LibraryPath("gusts"));
    GasRig rig({6, 12, 6});
    rig.scene->mTime.elapsed = 0.375;  // the height of a gust
    host::BaseNode& gusts = rig.Add("force_gusts", "gusts");
    host::BaseNode& high = rig.Add("constraint_above", "high");
    gusts.Set(common_row::kConstraints, host::InExcludeData{{{high.Id(), 0}}});
    auto& sparks = *rig.Object<ParticleGroup>(rig.Add("particlegroup", "sparks"));
    rig.Begin();
    rig.FillVelocity([](const Vec3d& p) { return Vec3d{p.y, 0, 1}; });
    Force& force = *rig.Object<Force>(gusts);
    const auto expected = [](const Vec3d& p) {
      return Vec3d{2 * (3 - p.y), 0, -2} * (0.04 * std::clamp(p.y - 0.5, 0.0, 1.0));
    };
    bool isRight = true;
    ParticleTemplate spark;
    spark.flags |= PF_KIND_PASSIVE;
    for (const double y : {0.25, 0.65, 0.85}) {
      ForceSample sample;
      sample.position = spark.position = {0.35, y, 0.35};
      spark.velocity = {y, 0, 1};
      sparks.Store(kPassive).Create(spark);
      force.PrepareFor(rig.gas->mFlow);
      force.Evaluate(sample);
      force.Finish();
      isRight = isRight && Length(sample.force - expected(sample.position)) < kSingle;
    }
    const ParticleStore& store = sparks.Store(kPassive);
    std::vector<Vec3d> changes(3);
    const std::vector<double> weights(3, 1);
    force.PrepareForParticles();
    force.EvaluateParticles({0, &store, 0, store.Positions(), weights, {100, 100, 100}, changes});
    force.Finish();
    for (i32 i = 0; i < 3; ++i)
      isRight = isRight && Length(changes[i] - expected(store.Positions()[i])) < kSingle;
    return isRight;
  };
  EXPECT_EXIT(std::_Exit(isSo() ? 0 : 1), testing::ExitedWithCode(0), "");
}

/// A node that counts as one of a plug-in's is that, whatever its type, and rests without a
/// plug-in.
TEST(Plugin, IsWhatItsNodeCountsAs) {
  GasRig rig({4, 4, 4});
  host::BaseNode& node = CreateNode(rig.document, *FindKind("force_gravity"), "alien", rig.server);
  node.AddInstanceOf(host::kForeignForce);
  rig.scene->CreateObject(&node, node.Type());
  auto* force = rig.Object<PluginForce>(node);
  ASSERT_NE(force, nullptr);
  rig.Begin();
  force->PrepareFor(rig.gas->mFlow);
  EXPECT_STREQ(force->mInactiveReason, "its plug-in makes no force");
}

}  // namespace MELDO_GLOBAL::app
