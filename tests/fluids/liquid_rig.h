// A liquid solver in a scene of its own, driven stage by stage, with particles that a test makes.
#pragma once
#include "fluids/advection/particle_advection.h"
#include "fluids/solvers/water_solver.h"
#include "fluids/test_scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class LiquidRig : public TestScene {
 public:
  /// A user's box of `cells` cells from the origin on, 0.1 wide.
  explicit LiquidRig(const VecInt3D& cells, i32 threads = 1) {
    scene->mThreadCount = threads;
    scene->mFlags |= Scene::kTimeChanged;
    group = &Add<ParticleGroup>("particlegroup", "water");
    move = &Add<ParticleAdvection>("particle_advection", "move");
    gravity = &Add<Force>("force_gravity", "gravity");
    liquid = &Add<WaterSolver>("liquid", "liquid");
    Link(*move, ParticleAdvection::kGroupRow, *group);
    Set(*liquid, WaterSolver::kBoxSizeRow, ToReal(cells) * (100.0 * Cell()));
    Links(*liquid, WaterSolver::kGroupsRow, {group});
    Links(*liquid, WaterSolver::kForcesRow, {gravity});
    Set(*liquid, 1022, 0.9);
    scene->mTime.elapsed = 1;
    scene->mTime.frameIndex = 1;
    scene->mTime.stepDuration = 0.02;
  }

  double Cell() const { return scene->mDomain.cellSize; }
  ParticleStore& Store() { return group->Store(kLiquid); }

  /// Eight particles in each cell of those from `low` to below `high` whose middle `isIn` takes;
  /// velocityOf(position) is their speed.
  template <class IsIn, class VelocityOf>
  void Fill(const VecInt3D& low, const VecInt3D& high, IsIn&& isIn, VelocityOf&& velocityOf) {
    ForEachCell({low, high}, [&](i32 x, i32 y, i32 z) {
      if (!isIn((ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5}) * Cell())) return;
      ForEachPlace({x, y, z}, [&](const Vec3d& p) { Drop(p, velocityOf(p)); });
    });
    Commit();
  }
  /// The same of the places alone that `isIn` takes, at rest.
  template <class IsIn>
  void FillPlaces(const VecInt3D& low, const VecInt3D& high, IsIn&& isIn) {
    ForEachCell({low, high}, [&](i32 x, i32 y, i32 z) {
      ForEachPlace({x, y, z}, [&](const Vec3d& p) {
        if (isIn(p)) Drop(p, {});
      });
    });
    Commit();
  }
  void Drop(const Vec3d& position, const Vec3d& velocity) {
    ParticleTemplate particle;
    particle.flags |= PF_KIND_LIQUID;
    particle.position = position;
    particle.velocity = velocity;
    Store().Create(particle);
  }
  void Commit() {
    group->MarkTreeStale(kLiquid);
    group->CommitStep();
  }
  void Fill(const VecInt3D& low, const VecInt3D& high) {
    Fill(
        low, high, [](const Vec3d&) { return true; }, [](const Vec3d&) { return Vec3d{}; });
  }

  void RunLiquid(i32 stage) {
    scene->SetStage(stage);
    liquid->Prepare();
    liquid->Evaluate({});
    liquid->Finish();
  }
  /// The stages of a step up to the one given.
  void StepTo(i32 last) {
    SetUp();
    scene->SetStage(kCalculateBounds);
    Bounds bounds;
    group->ExpandBounds(bounds.min, bounds.max);
    liquid->ExpandBounds(bounds.min, bounds.max);
    liquid->ApplyBounds(bounds.min, bounds.max);
    liquid->GetFlow().mBoundary.mObstacles = obstacles;
    RunLiquid(kEmitters);
    scene->SetStage(kAdvection);
    Run(*move, scene->mThreadCount);
    for (const i32 stage : {kOperators, kFluidDynamics, kForcesEmission, kPressure, kFlip})
      if (stage <= last) RunLiquid(stage);
  }
  void Step() {
    StepTo(kFlip);
    scene->SetStage(kFinish);
    group->CommitStep();
    liquid->UpdateRange();
    scene->mTime.elapsed += scene->mTime.stepDuration;
  }

  double MaxSpeed() {
    double most = 0;
    for (const Vec3d& v : Store().Velocities()) most = std::max(most, Length(v));
    return most;
  }
  Vec3d Centroid() {
    Vec3d sum{};
    for (const Vec3d& p : Store().Positions()) sum += p;
    return sum / Store().Count();
  }
  /// Half the mean square of speed.
  double Energy() {
    double sum = 0;
    for (const Vec3d& v : Store().Velocities()) sum += Dot(v, v);
    return 0.5 * sum / Store().Count();
  }

  ParticleGroup* group;
  ParticleAdvection* move;
  Force* gravity;
  WaterSolver* liquid;
  std::vector<VolumeBase*> obstacles;  ///< that stand in the liquid

 private:
  template <class F>
  void ForEachPlace(const VecInt3D& cell, F&& f) const {
    for (i32 k = 0; k < 8; ++k)
      f((ToReal(cell) +
         Vec3d{0.25 + 0.5 * (k & 1), 0.25 + 0.5 * (k >> 1 & 1), 0.25 + 0.5 * (k >> 2)}) *
        Cell());
  }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
