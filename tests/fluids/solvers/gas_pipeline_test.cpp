// A gas scene run frame by frame through the whole pipeline, from a mesh to moving smoke.
#include <map>

#include "fluids/solvers/fluid_solver.h"
#include "framework/sulva_scene.h"
#include "host/shapes.h"
#include "nodes/catalogue.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using host::InExcludeData;
using host::Link;

namespace {

/// A warm ball under an open top, with everything that makes it rise.
struct RisingBall {
  host::Document document;
  host::BaseNode* server;
  std::map<std::string, host::BaseNode*> nodes;
  std::unique_ptr<SulvaScene> scene;

  RisingBall() {
    server = &CreateNode(document, *FindKind("server"), "scene", nullptr);
    server->Set(1002, 0.1);
    auto& ball = document.Create<host::PolygonObject>(host::kMeshObject, "ball", nullptr);
    host::ShapeArguments shape;
    shape.radius = 30;
    ball.SetGeometry(host::MakeSphere(shape));
    ball.SetPlacement({0, 60, 0}, {}, {1, 1, 1});
    Make("channel_temp", "heat", {{"value_max", 1000.0}});
    Make("mesh", "ball mesh", {{"object", Link{ball.Id()}}});
    Make("volume", "ball volume", {{"mesh", LinkTo("ball mesh")}});
    Make("emission_setting", "rate", {{"amount", 700.0}});
    Make("channelsettings", "pair", {{"channel", LinkTo("heat")}, {"settings", LinkTo("rate")}});
    Make("gridemitter", "source",
         {{"volume", LinkTo("ball volume")}, {"channels", InExcludeData{{{Id("pair"), 0}}}}});
    Make("force_buoyancy", "lift",
         {{"temperature_channel", LinkTo("heat")}, {"temperature_coefficient", 0.03}});
    Make("fluid", "gas",
         {{"box_size", Vec3d{200, 300, 200}}, {"wall_high_y", 0}, {"linear_solver", 0}});
    nodes["gas"]->SetPlacement({-100, 0, -100}, {}, {1, 1, 1});
    nodes["gas"]->Set(1008, host::InExcludeData{{{nodes["lift"]->Id(), 0}}});
    Make("grid_advection", "move heat", {{"target", LinkTo("heat")}, {"solver", LinkTo("gas")}});
    Make("grid_advection", "move gas", {{"solver", LinkTo("gas")}});
    scene = CreateScene(*server);
  }

  host::NodeId Id(const std::string& name) { return nodes.at(name)->Id(); }
  host::Value LinkTo(const std::string& name) { return Link{Id(name)}; }
  void Make(std::string_view kind, const std::string& name,
            const std::map<std::string, host::Value>& values) {
    host::BaseNode& node = CreateNode(document, *FindKind(kind), name, server);
    nodes[name] = &node;
    for (const auto& [parameter, value] : values)
      for (const host::ParameterRow& row : *node.Table())
        if (row.name == parameter) node.Set(row.id, value);
  }
  void Frame(i32 frame) {
    document.SetFrame(frame);
    scene->Execute(nullptr, false);
  }
  template <class T>
  T& Object(const std::string& name) {
    return *dynamic_cast<T*>(scene->FindObject(nodes.at(name), 12));
  }
};

}  // namespace

TEST(GasPipeline, TheSolverSleepsUntilTimeHasPassed) {
  RisingBall ball;
  std::vector<std::string> runs[4];
  i32 frame = 0;
  ball.scene->mTrace = [&](i32 stage, const iBase& object) {
    if (object.mName == "gas" || object.mName == "move heat")
      runs[frame].push_back(std::to_string(stage) + " " + object.mName);
  };
  for (; frame < 4; ++frame) ball.Frame(frame);
  using Lines = std::vector<std::string>;
  EXPECT_EQ(runs[0], Lines{"6 move heat"}) << "new nodes are dirty";
  const Lines whole = {"5 gas", "6 move heat", "9 gas", "10 gas", "11 gas"};
  for (const i32 later : {1, 2, 3}) EXPECT_EQ(runs[later], whole);
}

TEST(GasPipeline, WarmthRisesAndTheContainerFollowsIt) {
  RisingBall ball;
  for (i32 frame = 0; frame <= 6; ++frame) ball.Frame(frame);
  const FluidSolver& gas = ball.Object<FluidSolver>("gas");
  const auto centreOfHeat = [&] {
    const EGrid<double>& g = *ball.Object<ScalarField>("heat").GetGrid(0);
    double sum = 0, moment = 0;
    ForEachCell({{0, 0, 0}, g.Dims()}, [&](i32 x, i32 y, i32 z) {
      sum += g(x, y, z);
      moment += g(x, y, z) * g.PositionOf(x, y, z).y;
    });
    return moment / sum;
  };
  const VecInt3D before = gas.mFlow.GetLayout()->dims;
  const double low = centreOfHeat();
  EXPECT_NEAR(low, 0.6, 0.05);
  for (i32 frame = 7; frame <= 30; ++frame) ball.Frame(frame);
  const VecInt3D after = gas.mFlow.GetLayout()->dims;
  EXPECT_GT(centreOfHeat(), low + 0.2);
  EXPECT_GT(after.y, before.y);
  EXPECT_LT(after.y, 33) << "not the whole box yet";
  EXPECT_GT(gas.mMaxSpeedSq, 0.1);
  EXPECT_LT(gas.mPressure.DivergenceMax(), 1e-5);
}

TEST(GasPipeline, AMirroredSceneStaysMirroredWhileItsContainerGrows) {
  RisingBall ball;
  ball.nodes["gas"]->SetPlacement({-200, 0, -200}, {}, {1, 1, 1});
  ball.nodes["gas"]->Set(1010, Vec3d{400, 400, 400});
  ball.Frame(0);
  const VecInt3D start = ball.Object<ScalarField>("heat").GetGrid(0)->Dims();
  for (i32 frame = 1; frame <= 32; ++frame) ball.Frame(frame);
  const EGrid<double>& g = *ball.Object<ScalarField>("heat").GetGrid(0);
  EXPECT_GT(g.mNx, start.x + 1);
  EXPECT_EQ(g.mNx, g.mNz);
  EXPECT_NEAR(g.mLayout.simOrigin.x, -g.mLayout.simMax.x, 1e-9);
  double worst = 0, most = 0;
  ForEachCell({{0, 0, 0}, g.Dims()}, [&](i32 x, i32 y, i32 z) {
    worst = std::max(worst, std::abs(g(x, y, z) - g(g.mNx - 1 - x, y, z)));
    worst = std::max(worst, std::abs(g(x, y, z) - g(x, y, g.mNz - 1 - z)));
    most = std::max(most, g(x, y, z));
  });
  EXPECT_LT(worst, 1e-6 * most);
}
