// Channels on one box, and operators that run on them as in their stage.
#pragma once
#include <functional>
#include <vector>

#include "fluids/fields/fire_grid_channel.h"
#include "fluids/fields/fuel_grid_channel.h"
#include "fluids/fields/temperature_grid_channel.h"
#include "fluids/test_scene.h"
#include "grids/random_stream.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Halves the weight left of a plane and drops what lies right of it; counts who asks.
class HalfLeft : public Constraint {
 public:
  HalfLeft(host::BaseNode* node, Scene* scene, double plane, int* asked)
      : Constraint(node, scene), mPlane(plane), mAsked(asked) {}
  bool Test(const Vec3d& p, double& weight, const ConstraintUse&) override {
    ++*mAsked;
    weight *= p.x < mPlane ? 0.5 : 0.0;
    return weight != 0;
  }

 private:
  double mPlane;
  int* mAsked;
};

struct OperatorRig : TestScene {
  explicit OperatorRig(const VecInt3D& size, double cellSize = 0.1)
      : TestScene(cellSize), cells(size) {
    scene->mTime.elapsed = 1;
    scene->mTime.frameIndex = 1;
    scene->mClock.frame = 1;
  }

  /// The set-up passes, and grids of the box for every channel.
  void Begin() {
    SetUp();
    for (const auto& [id, channel] : scene->List(kListChannels))
      channel->ApplyBounds({}, ToReal(cells) * double{scene->mDomain.cellSize});
  }
  template <class F>
  static void Fill(EGrid<double>& g, F&& f) {
    ForEachCell({{0, 0, 0}, g.Dims()}, [&](i32 x, i32 y, i32 z) { g(x, y, z) = f(x, y, z); });
  }
  static void Randomise(EGrid<double>& g, u32 seed, double low, double high) {
    RandomStream random;
    random.Seed(seed);
    for (i32 i = 0; i < g.mCount; ++i) g[i] = low + (high - low) * random.NextUnit();
  }
  static std::vector<double> Copy(const EGrid<double>& g) { return {g.mData, g.mData + g.mCount}; }
  template <class F>
  void ForEachInnerCell(F&& f) const {
    ForEachCell({{1, 1, 1}, cells - VecInt3D{1, 1, 1}}, f);
  }

  VecInt3D cells;
};

/// Calls `run(threads)`, which answers all that it wrote, for 1, 2 and 5 workers: the bytes agree.
inline bool IsSameForAllThreads(const std::function<std::vector<double>(i32)>& run) {
  const std::vector<double> one = run(1);
  for (const i32 threads : {2, 5})
    if (run(threads) != one) return false;
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
