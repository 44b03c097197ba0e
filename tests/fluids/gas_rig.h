// A gas solver in a scene of its own, driven stage by stage, without host geometry or emitters.
#pragma once
#include <string>

#include "fluids/solvers/fluid_solver.h"
#include "framework/sulva_scene.h"
#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class GasRig {
 public:
  /// A user's box of `cells` cells from the origin on; the grids have one more layer on each side.
  /// 100 host units are one simulation unit.
  explicit GasRig(const VecInt3D& cells, double cellSize = 0.1, i32 threads = 1) : mCells(cells) {
    server = &CreateNode(document, *FindKind("server"), "scene", nullptr);
    scene = CreateScene(*server);
    scene->UpdateDomain(100, 1, cellSize);
    scene->mThreadCount = threads;
    scene->mFlags |= Scene::kTimeChanged;
    scene->mTime.elapsed = 1;
    scene->mTime.frameIndex = 1;
    scene->mTime.stepDuration = 0.04;
    gasNode = &Add("fluid", "gas");
    gas = Object<FluidSolver>(*gasNode);
    gasNode->Set(1010, ToReal(cells) * (100.0 * scene->mDomain.cellSize));
    gasNode->Erase(1008);  // without a list every force acts
    gasNode->Set(1020, i32{0});
    gasNode->Set(1022, 0.9);
  }

  host::BaseNode& Add(std::string_view type, std::string name) {
    host::BaseNode& node = CreateNode(document, *FindKind(type), std::move(name), server);
    scene->CreateObject(&node, node.Type());
    return node;
  }
  template <class T>
  T* Object(const host::BaseNode& node) const {
    return dynamic_cast<T*>(scene->FindObject(&node, 12));
  }
  void Walls(i32 lowX, i32 highX, i32 lowY, i32 highY, i32 lowZ, i32 highZ) {
    const i32 values[6] = {lowX, highX, lowY, highY, lowZ, highZ};
    for (i32 i = 0; i < 6; ++i) gasNode->Set(1011 + i, values[i]);
  }

  /// Set-up passes and dirty checks of a step.
  void SetUp() {
    scene->SetStage(kFinishVisual);
    scene->DispatchStage();
    scene->SetStage(kStartSimulation);
    scene->DispatchStage();
  }
  /// Fits everything to a content box in cells; the whole user's box by default.
  void Fit(Vec3d min, Vec3d max) {
    const double h = scene->mDomain.cellSize;
    min *= h;
    max *= h;
    scene->SetStage(kCalculateBounds);
    gas->ExpandBounds(min, max);
    gas->ApplyBounds(min, max);
    if (!gas->Has(FLAG_ACTIVE)) return;
    for (const auto& [id, channel] : scene->List(kListChannels)) channel->ApplyBounds(min, max);
  }
  void Fit() { Fit({0, 0, 0}, ToReal(mCells)); }
  void RunGas(i32 stage) {
    scene->SetStage(stage);
    gas->Prepare();
    gas->Begin();
    gas->Evaluate({});
    gas->Finish();
  }
  /// Runs every object of a list in stage order of a sequential operator.
  /// The operators in list order, each for itself or knowing the others of its group.
  void RunOperators(bool together = false) {
    scene->SetStage(kAdvection);
    std::vector<iObject*> group;
    for (const auto& [id, object] : scene->List(kListOperators))
      group.push_back(static_cast<iObject*>(object.get()));
    EvaluationThreadData data;
    if (together) data.objects = &group;
    for (iObject* work : group) {
      work->Prepare();
      work->Evaluate(data);
      work->Finish();
    }
  }
  /// Set-up, bounds and solids: the state in which stages 6 to 11 may run.
  void Begin() {
    SetUp();
    Fit();
    RunGas(kEmitters);
  }
  void Step() {
    Begin();
    RunOperators();
    RunGas(kForcesEmission);
    RunGas(kPressure);
    RunGas(kFlip);
    scene->SetStage(kFinish);
    for (const i32 list : {kListChannels, kListSolvers})
      for (const auto& [id, object] : scene->List(list)) object->UpdateRange();
  }

  /// Sets samples of a grid from f(position in simulation units).
  template <class F>
  static void Fill(EGrid<double>& g, F&& f) {
    for (i32 z = 0; z < g.mNz; ++z)
      for (i32 y = 0; y < g.mNy; ++y)
        for (i32 x = 0; x < g.mNx; ++x) g(x, y, z) = f(g.PositionOf(x, y, z));
  }
  template <class F>
  void FillVelocity(F&& f) {
    for (i32 a = 0; a < 3; ++a)
      Fill(*gas->mFlow.mVelocity.GetGrid(a), [&](const Vec3d& p) { return f(p)[a]; });
  }

  host::Document document;
  host::BaseNode* server = nullptr;
  std::unique_ptr<SulvaScene> scene;
  host::BaseNode* gasNode = nullptr;
  FluidSolver* gas = nullptr;

 private:
  VecInt3D mCells;
};

/// A link to a node, as a parameter's value.
inline host::Value LinkTo(const host::BaseNode& node) { return host::Link{node.Id()}; }

}  // namespace MELDO_GLOBAL::MELDO_SULVA
