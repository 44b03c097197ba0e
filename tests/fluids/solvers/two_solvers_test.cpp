// Several solvers in one server: each has its own box, and none silences another.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
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

/// Warm balls in boxes of 10 x 14 x 10 cells that stand side by side, 20 cells apart.
struct Boxes {
  host::Document document;
  host::BaseNode* server = &CreateNode(document, *FindKind("server"), "scene", nullptr);
  std::map<std::string, host::BaseNode*> nodes;
  std::unique_ptr<SulvaScene> scene;

  Boxes() {
    server->Set(1002, 0.1);
    server->Set(1003, i32{1});  // substeps of one length, whatever the other box does
    Make("channel_temp", "heat", {{"value_max", 1000.0}});
    Make("force_buoyancy", "lift",
         {{"temperature_channel", LinkTo("heat")}, {"temperature_coefficient", 0.03}});
  }
  host::Value LinkTo(const std::string& name) { return Link{nodes.at(name)->Id()}; }
  host::BaseNode& Make(std::string_view kind, const std::string& name,
                       const std::map<std::string, host::Value>& values) {
    host::BaseNode& node = CreateNode(document, *FindKind(kind), name, server);
    nodes[name] = &node;
    for (const auto& [parameter, value] : values)
      for (const host::ParameterRow& row : *node.Table())
        if (row.name == parameter) node.Set(row.id, value);
    return node;
  }
  void Ball(const std::string& name, double x, const std::string& channel, double up = 0) {
    auto& ball = document.Create<host::PolygonObject>(host::kMeshObject, name, nullptr);
    host::ShapeArguments shape;
    shape.radius = 25;
    ball.SetGeometry(host::MakeSphere(shape));
    ball.SetPlacement({x, 40 + up, 0}, {}, {1, 1, 1});
    Make("mesh", name + " mesh", {{"object", Link{ball.Id()}}});
    Make("volume", name + " volume", {{"mesh", LinkTo(name + " mesh")}});
    Make("emission_setting", name + " rate", {{"amount", 700.0}});
    Make("channelsettings", name + " pair",
         {{"channel", LinkTo(channel)}, {"settings", LinkTo(name + " rate")}});
    Make("gridemitter", name + " source",
         {{"volume", LinkTo(name + " volume")},
          {"channels", InExcludeData{{{nodes.at(name + " pair")->Id(), 0}}}}});
  }
  void Gas(const std::string& name, double x, double up = 0, i32 padding = 100) {
    Make("fluid", name,
         {{"box_size", Vec3d{100, 140, 100}},
          {"padding_cells", padding},
          {"container_sides", padding < FluidSolver::kLeastPadding ? 1 : 0},
          {"linear_solver", 0},
          {"forces", InExcludeData{{{nodes.at("lift")->Id(), 0}}}}})
        .SetPlacement({x - 50, up, -50}, {}, {1, 1, 1});
    Make("grid_advection", "move " + name, {{"solver", LinkTo(name)}});
  }
  void Carry(const std::string& channel, const std::string& gas) {
    Make("grid_advection", channel + " by " + gas,
         {{"target", LinkTo(channel)}, {"solver", LinkTo(gas)}});
  }
  void Run(i32 lastFrame = 8) {
    scene = CreateScene(*server);
    for (i32 frame = 0; frame <= lastFrame; ++frame) {
      document.SetFrame(frame);
      ASSERT_TRUE(scene->Execute(nullptr, false));
    }
  }
  template <class T>
  T& Object(const std::string& name) const {
    return *dynamic_cast<T*>(scene->FindObject(nodes.at(name), kListAll));
  }
  const EGrid<double>& Field(const std::string& name) const {
    return *Object<ScalarField>(name).GetGrid(0);
  }
};

/// The height of the middle of what a field holds from x = low to x = high.
double HeightOf(const EGrid<double>& g, double low, double high) {
  double sum = 0, moment = 0;
  ForEachCell({{0, 0, 0}, g.Dims()}, [&](i32 x, i32 y, i32 z) {
    const Vec3d p = g.PositionOf(x, y, z);
    if (p.x < low || p.x > high) return;
    sum += g(x, y, z);
    moment += g(x, y, z) * p.y;
  });
  return sum > 0 ? moment / sum : 0;
}

}  // namespace

TEST(TwoSolvers, AnEmptyOneChangesNothing) {
  Boxes alone, beside;
  for (Boxes* boxes : {&alone, &beside}) {
    boxes->Ball("ball", 0, "heat");
    boxes->Gas("gas", 0);
    boxes->Carry("heat", "gas");
  }
  beside.Gas("empty", 4000);
  alone.Run(16);
  beside.Run(16);
  const EGrid<double>&a = alone.Field("heat"), &b = beside.Field("heat");
  ASSERT_EQ(a.Dims(), b.Dims());
  EXPECT_EQ(std::memcmp(a.mData, b.mData, a.mCount * sizeof(double)), 0);
  EXPECT_GT(HeightOf(a, -1, 1), 0.45) << "it rises";
  EXPECT_EQ(beside.Object<FluidSolver>("empty").mFlow.GetLayout(), nullptr);
}

TEST(TwoSolvers, EachHasItsOwnBoxAndFieldsCoverBoth) {
  Boxes one, two;
  one.Ball("left ball", 0, "heat");
  one.Gas("left", 0);
  one.Carry("heat", "left");
  one.Run();
  for (const auto& [name, x] : {std::pair{"left", 0.0}, {"right", 300.0}}) {
    two.Ball(std::string(name) + " ball", x, "heat");
    two.Gas(name, x);
    two.Carry("heat", name);
  }
  two.Run();
  const GridLayout& left = *two.Object<FluidSolver>("left").mFlow.GetLayout();
  const GridLayout& right = *two.Object<FluidSolver>("right").mFlow.GetLayout();
  EXPECT_EQ(left.dims, (VecInt3D{12, 16, 12}));
  EXPECT_EQ(right.dims, left.dims);
  EXPECT_EQ(right.originCell.x - left.originCell.x, 30);
  const EGrid<double>& heat = two.Field("heat");
  EXPECT_EQ(heat.Dims(), (VecInt3D{42, 16, 12}));

  // What happens in a box is what would happen in it alone.
  const EGrid<double>& single = one.Field("heat");
  ASSERT_EQ(single.Dims(), left.dims);
  double worst = 0, most = 0;
  ForEachCell({{0, 0, 0}, single.Dims()}, [&](i32 x, i32 y, i32 z) {
    for (const i32 shift : {0, 30})
      worst = std::max(worst, std::abs(heat(x + shift, y, z) - single(x, y, z)));
    most = std::max(most, single(x, y, z));
  });
  EXPECT_GT(most, 100);
  EXPECT_LT(worst, 1e-6 * most);
}

TEST(TwoSolvers, AFieldIsCarriedByTheOneThatItsAdvectionNames) {
  Boxes boxes;
  boxes.Make("channel_scalar", "still", {});
  boxes.Make("channel_scalar", "moving", {});
  boxes.Ball("heater", 0, "heat");
  boxes.Ball("dust", 0, "still");
  boxes.Ball("smoke", 0, "moving");
  boxes.Gas("left", 0);
  boxes.Gas("right", 300);
  boxes.Carry("heat", "left");
  boxes.Carry("moving", "left");
  boxes.Carry("still", "right");
  boxes.Run(16);
  EXPECT_GT(HeightOf(boxes.Field("moving"), -1, 1), 0.45);
  EXPECT_NEAR(HeightOf(boxes.Field("still"), -1, 1), 0.4, 0.01);
}

TEST(TwoSolvers, NoBoxFollowsWhatOnlyAnotherOneReaches) {
  Boxes one, three;
  constexpr double kFar = 300;
  const auto makeOne = [](Boxes& boxes, const std::string& name, double x, double up) {
    boxes.Ball(name + " ball", x, "heat", up);
    boxes.Gas(name, x, up, 1);
    boxes.Carry("heat", name);
  };
  makeOne(one, "left", 0, 0);
  makeOne(three, "left", 0, 0);
  makeOne(three, "right", kFar, kFar);
  three.Gas("between", 0, kFar, 1);
  for (Boxes* boxes : {&one, &three}) boxes->Run();
  const GridLayout& alone = *one.Object<FluidSolver>("left").mFlow.GetLayout();
  const GridLayout& left = *three.Object<FluidSolver>("left").mFlow.GetLayout();
  const GridLayout& right = *three.Object<FluidSolver>("right").mFlow.GetLayout();
  EXPECT_EQ(left.dims, alone.dims);
  EXPECT_EQ(right.dims, alone.dims);
  EXPECT_LT(alone.dims.y, 16) << "a box that fills what the user gave would show nothing";
  EXPECT_EQ(three.Object<FluidSolver>("between").mFlow.GetLayout(), nullptr);
  EXPECT_EQ(three.Field("heat").Dims(), (left.dims + VecInt3D{30, 30, 0}));
}
