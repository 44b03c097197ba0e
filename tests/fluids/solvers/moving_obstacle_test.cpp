// A box that moves through gas at rest, over whole steps of the pipeline.
#include <gtest/gtest.h>

#include <cmath>

#include "fluids/advection/grid_advection.h"
#include "fluids/solvers/fluid_solver.h"
#include "framework/sulva_scene.h"
#include "host/document.h"
#include "host/shapes.h"
#include "host/worker_pool.h"
#include "nodes/catalogue.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

constexpr double kSpeed = 50;  // host units a second

/// Server with a box of 40 host units, as an obstacle, in a gas with open sides.
struct MovingBox {
  host::Document document;
  host::PolygonObject* object;
  host::BaseNode *server, *gasNode;
  std::unique_ptr<SulvaScene> scene;

  explicit MovingBox(i32 linearSolver, const Vec3d& boxSize = {40, 40, 40}) {
    server = &Make("server", nullptr);
    server->Set(1002, 0.05);
    server->Set(1003, 1);
    server->Set(1005, 0);
    object = &document.Create<host::PolygonObject>(host::kMeshObject, "box", nullptr);
    host::ShapeArguments size;
    size.size = boxSize;
    object->SetGeometry(host::MakeBox(size));
    host::BaseNode& mesh = Make("mesh", server);
    mesh.Set(1000, host::Link{object->Id()});
    host::BaseNode& volume = Make("volume", server);
    volume.Set(1003, host::Link{mesh.Id()});
    volume.Set(1001, 1);
    AddObstacleTag(volume);
    host::BaseNode& node = Make("fluid", server);
    node.Set(1009, 10);
    node.Set(1010, Vec3d{1000, 1000, 1000});
    node.SetPlacement({-500, -500, -500}, {}, {1, 1, 1});
    node.Set(1020, linearSolver);
    for (i32 wall = 1011; wall <= 1016; ++wall) node.Set(wall, 0);
    gasNode = &node;
    scene = CreateScene(*server);
  }

  host::BaseNode& Make(const char* kind, host::BaseNode* parent) {
    return CreateNode(document, *FindKind(kind), "", parent);
  }
  /// Lets the gas carry its own velocity.
  void AddAdvection() {
    host::BaseNode& move = Make("grid_advection", server);
    move.Set(GridAdvection::kTargetRow, host::Link{gasNode->Id()});
    move.Set(GridAdvection::kSolverRow, host::Link{gasNode->Id()});
  }
  FluidSolver* Gas() const {
    return dynamic_cast<FluidSolver*>(scene->FindObject(gasNode, kListSolvers));
  }

  /// Moves on by a frame, with the box at `x` host units.
  void Frame(i32 frame, double x) {
    document.SetFrame(frame);
    object->SetPlacement({x, 0, 0}, {}, {1, 1, 1});
    scene->Execute(nullptr, false);
  }
  /// The flow along x at `p` (simulation units).
  double FlowAt(const Vec3d& p) const {
    const EGrid<double>* u = Gas()->mFlow.mVelocity.GetGrid(0);
    return u ? SampleLinear(*u, u->ToSamples(p)) : 0.0;
  }
  /// How far open faces of the flow along x differ from their mirror image in y.
  double Asymmetry() const {
    const EGrid<double>& u = *Gas()->mFlow.mVelocity.GetGrid(0);
    const EGrid<float>& open = *Gas()->mFlow.mFractions.GetRead(0, 1);
    double top = 0;
    ForEachCell({{0, 0, 0}, u.Dims()}, [&](i32 x, i32 y, i32 z) {
      if (open(x, y, z) > 0) top = std::max(top, std::fabs(u(x, y, z) - u(x, u.mNy - 1 - y, z)));
    });
    return top;
  }
  /// The largest divergence, 1/s: what solids push shows in it.
  double LargestOutflow() const {
    const EGrid<double>& u = *Gas()->mFlow.mVelocity.GetGrid(0);
    double top = 0;
    ForEachCell({{1, 1, 1}, u.mLayout.dims - VecInt3D{1, 1, 1}}, [&](i32 x, i32 y, i32 z) {
      double sum = 0;
      for (i32 axis = 0; axis < 3; ++axis) {
        VecInt3D high{x, y, z};
        ++high[axis];
        const EGrid<double>& v = *Gas()->mFlow.mVelocity.GetGrid(axis);
        const EGrid<float>& open = *Gas()->mFlow.mFractions.GetRead(axis, 1);
        sum +=
            open(high.x, high.y, high.z) * v(high.x, high.y, high.z) - open(x, y, z) * v(x, y, z);
      }
      top = std::max(top, std::fabs(sum) / u.mLayout.cellSize);
    });
    return top;
  }
  double LargestSpeed() const {
    double top = 0;
    for (i32 axis = 0; axis < 3; ++axis) {
      const EGrid<double>* grid = Gas()->mFlow.mVelocity.GetGrid(axis);
      if (!grid) return -1;
      for (i32 i = 0; i < grid->mCount; ++i) top = std::max(top, std::fabs(grid->mData[i]));
    }
    return top;
  }
};

}  // namespace

TEST(MovingObstacle, PushesGasAheadAndLeavesItAloneOnceItStands) {
  std::vector<std::vector<double>> flows;
  for (const auto& [solver, threads] : {std::pair{0, 1}, {0, 2}, {1, 2}}) {
    host::SetThreadCount(threads);
    MovingBox box(solver);
    double x = 0;
    i32 frame = 0;
    const double step = kSpeed / 25;
    for (; frame<8; ++frame, x += frame> 1 ? step : 0) box.Frame(frame, x);
    x -= step;
    const double front = (x + 20) / 100;
    std::vector<double> flow;
    for (const double ahead : {0.075, 0.1, 0.15}) flow.push_back(box.FlowAt({front + ahead, 0, 0}));
    EXPECT_GT(flow[0], 0.35 * kSpeed / 100);
    EXPECT_LT(flow[0], 0.95 * kSpeed / 100);
    EXPECT_GT(flow[0], flow[1]);
    EXPECT_GT(flow[1], flow[2]);
    EXPECT_LT(box.FlowAt({front - 0.2, 0.3, 0}), 0.0) << "it flows back along the sides";
    EXPECT_LT(box.Asymmetry(), solver == 0 ? 1e-6 : 1e-4)
        << "the box's sides lie in planes of nodes";
    EXPECT_LT(box.Gas()->mPressure.DivergenceMax(), solver == 0 ? 1e-5 : 1e-2);
    EXPECT_GT(box.LargestOutflow(), 1.0) << "what the box pushes";
    for (const i32 stop = frame + 20; frame < stop; ++frame) box.Frame(frame, x);
    EXPECT_LT(std::fabs(box.FlowAt({front + 0.1, 0, 0})), 0.02 * kSpeed / 100)
        << "nothing pushes any more";
    EXPECT_LT(box.LargestOutflow(), solver == 0 ? 1e-5 : 1e-2);
    flow.push_back(box.LargestSpeed());
    flows.push_back(flow);
  }
  host::SetThreadCount(0);
  EXPECT_EQ(flows[0], flows[1]);
}

// Each of these once had one of two mirrored faces closed, or paths past one of two rims stopped.
TEST(MovingObstacle, MirroredScenesStayMirrored) {
  struct Case {
    Vec3d size;
    double start, step;
  };
  for (const auto& [size, start, step] :
       {Case{{2, 53, 61}, -20.5, 2.7},  // a sheet whose rims lie between planes
        Case{{2, 45, 45}, -20.5, 2.7},  // in planes of centres
        Case{{5, 37, 43}, -20, 2.5},    // a plate whose sides come to lie in them
        Case{{20, 40, 40}, -20, 2.5},   // a box with sides in planes of nodes
        Case{{37, 37, 43}, -20.5, 2.7}}) {
    MovingBox box(2, size);
    box.AddAdvection();
    for (i32 frame = 0; frame < 9; ++frame) box.Frame(frame, start + step * frame);
    EXPECT_LT(box.Asymmetry(), 1e-6) << size.x << " " << size.y;
    EXPECT_GT(box.LargestSpeed(), 0.1);
  }
}

TEST(MovingObstacle, AWallBesideItRests) {
  MovingBox box(2);
  box.gasNode->Set(1010, Vec3d{100, 100, 100});
  box.gasNode->SetPlacement({-50, -50, -50}, {}, {1, 1, 1});
  for (i32 wall = 1011; wall <= 1016; ++wall) box.gasNode->Set(wall, 1);
  // Ahead of it, within reach of its distances.
  for (i32 frame = 0; frame < 4; ++frame) box.Frame(frame, 10 + 2.0 * frame);
  const EGrid<double>& u = *box.Gas()->mFlow.mVelocity.GetGrid(0);
  ASSERT_EQ(u.mLayout.dims, (VecInt3D{22, 22, 22}));
  double top = 0;
  for (i32 z = 1; z < u.mNz - 1; ++z)
    for (i32 y = 1; y < u.mNy - 1; ++y) top = std::max(top, std::fabs(u(u.mNx - 2, y, z)));
  EXPECT_EQ(top, 0);
  EXPECT_GT(box.LargestSpeed(), 0.1);
}
