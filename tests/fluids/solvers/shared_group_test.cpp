// Liquids of one group: each particle is moved by one of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "fluids/advection/particle_advection.h"
#include "fluids/emission/object_particle_grid_emitter.h"
#include "fluids/mesh/mesh_rig.h"
#include "fluids/solvers/water_solver.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

/// Blocks of water that are there from the start, in groups that liquids share or don't.
class Tanks : public MeshRig {
 public:
  static constexpr double kCell = 0.1;
  Tanks() : MeshRig(host::MakeBox({.size = {30, 30, 30}}), kCell) {
    gravity = &Make("force_gravity", "gravity");
    once = &Make("particlemesh_emission_setting", "once");
    host::BaseNode& moment = Make("duration", "moment");
    moment.Set(1000, 0.001);
    once->Set(1002, host::Link{moment.Id()});
  }
  host::BaseNode& AddGroup(const std::string& name) {
    host::BaseNode& group = Make("particlegroup", name);
    groups.push_back(&group);
    Make("particle_advection", "move " + name)
        .Set(ParticleAdvection::kGroupRow, host::Link{group.Id()});
    return group;
  }
  /// A block of 3 x 3 x 3 cells about a place in cells.
  void AddWater(const std::string& name, const host::BaseNode& group, const Vec3d& middle) {
    auto& block = document.Create<host::PolygonObject>(host::kMeshObject, name, nullptr);
    block.SetGeometry(host::MakeBox({.size = {30, 30, 30}}));
    block.SetPlacement(middle * 10, {}, {1, 1, 1});
    host::BaseNode& mesh = Make("mesh", name + " mesh");
    mesh.Set(Mesh::kObjectRow, host::Link{block.Id()});
    host::BaseNode& volume = Make("volume", name + " volume");
    volume.Set(VolumeMesh::kMeshRow, host::Link{mesh.Id()});
    host::BaseNode& fill = Make("particlegridemitter", name + " fill");
    fill.Set(ParticleEmitter::kGroupRow, host::Link{group.Id()});
    fill.Set(1003, host::Link{once->Id()});
    fill.Set(ObjectParticleGridEmitter::kVolumeRow, host::Link{volume.Id()});
  }
  /// A box of `size` cells from a place on.
  host::BaseNode& AddLiquid(const std::string& name, const host::BaseNode& group, const Vec3d& low,
                            const Vec3d& size) {
    host::BaseNode& liquid = Make("liquid", name);
    liquid.SetPlacement(low * 10, {}, {1, 1, 1});
    liquid.Set(WaterSolver::kBoxSizeRow, size * 10);
    liquid.Set(WaterSolver::kGroupsRow, host::InExcludeData{{{group.Id(), 0}}});
    liquid.Set(WaterSolver::kForcesRow, host::InExcludeData{{{gravity->Id(), 0}}});
    return liquid;
  }
  void RunTo(i32 last) {
    for (i32 frame = 0; frame <= last; ++frame) Frame(frame);
  }
  const ParticleStore& Store(const host::BaseNode& group) const {
    return dynamic_cast<ParticleGroup*>(scene->FindObject(&group, kListAll))->Store(kLiquid);
  }
  struct Content {
    i32 count = 0;
    Vec3d centroid{};
    double energy = 0;
  };
  /// Of all particles from `low` to `high` along x, in cells.
  Content Between(double low, double high) const {
    Content all;
    for (const host::BaseNode* group : groups) {
      const ParticleStore& store = Store(*group);
      for (i32 row = 0; row < store.Count(); ++row) {
        const Vec3d p = store.Positions()[row] / kCell, v = store.Velocities()[row];
        if (p.x < low || p.x >= high) continue;
        ++all.count;
        all.centroid += p;
        all.energy += 0.5 * Dot(v, v);
      }
    }
    all.centroid = all.centroid / std::max(all.count, 1);
    all.energy /= std::max(all.count, 1);
    return all;
  }

  host::BaseNode *gravity, *once;
  std::vector<host::BaseNode*> groups;

 private:
  host::BaseNode& Make(const char* kind, const std::string& name) {
    return CreateNode(document, *FindKind(kind), name, server);
  }
};

TEST(SharedGroup, WaterInTwoBoxesFallsOnce) {
  std::vector<Vec3d> first;
  for (const bool swaps : {false, true}) {
    Tanks tanks;
    const host::BaseNode& water = tanks.AddGroup("water");
    tanks.AddWater("block", water, {5, 12, 5});
    for (const char* name : {swaps ? "b" : "a", swaps ? "a" : "b"})
      tanks.AddLiquid(name, water, {0, 0, 0}, {10, 16, 10});
    constexpr i32 kFrames = 8;
    tanks.RunTo(kFrames);
    const ParticleStore& store = tanks.Store(water);
    ASSERT_EQ(store.Count(), 8 * 27);
    for (const Vec3d& v : store.Velocities())
      ASSERT_TRUE(IsNear(v, {0, -9.81 * 0.04 * kFrames, 0}, 1e-3));
    const std::vector<Vec3d> now(store.Positions().begin(), store.Positions().end());
    if (!swaps) first = now;
    EXPECT_EQ(now, first);
  }
}

// A wall parts the two; what the one holds close to it is nothing to the other.
TEST(SharedGroup, TanksSideBySideDontFeelEachOther) {
  constexpr double kWall = 5;
  std::vector<Tanks::Content> alone;
  for (const bool shares : {false, true}) {
    SCOPED_TRACE(shares);
    Tanks tanks;
    const host::BaseNode& left = tanks.AddGroup("left");
    const host::BaseNode& right = shares ? left : tanks.AddGroup("right");
    tanks.AddWater("low", left, {3.5, 2.5, 2.5});
    tanks.AddWater("high", right, {6.5, 4.5, 2.5});
    tanks.AddLiquid("a", left, {0, 0, 0}, {kWall, 8, 5});
    tanks.AddLiquid("b", right, {kWall, 0, 0}, {kWall, 8, 5});
    tanks.RunTo(14);
    std::vector<Tanks::Content> now{tanks.Between(0, kWall), tanks.Between(kWall, 2 * kWall)};
    for (std::size_t i = 0; i < now.size() && shares; ++i) {
      EXPECT_EQ(now[i].count, alone[i].count);
      EXPECT_VEC(now[i].centroid, alone[i].centroid, 0.1);
      EXPECT_NEAR(now[i].energy / alone[i].energy, 1, 0.1);
    }
    alone = now;
  }
}

// What flows out of one box into the other goes on there.
TEST(SharedGroup, WaterPassesFromBoxToBox) {
  Tanks tanks;
  const host::BaseNode& water = tanks.AddGroup("water");
  tanks.AddWater("block", water, {2.5, 12, 2.5});
  tanks.AddLiquid("a", water, {0, 6, 0}, {5, 10, 5}).Set(WaterSolver::kWallRows[2], i32{0});
  tanks.AddLiquid("b", water, {0, 0, 0}, {5, 6, 5}).Set(WaterSolver::kWallRows[3], i32{0});
  tanks.RunTo(50);
  const ParticleStore& store = tanks.Store(water);
  ASSERT_EQ(store.Count(), 8 * 27);
  // It lies on the floor of the lower one: 27 cells on 25.
  const Tanks::Content all = tanks.Between(0, 5);
  EXPECT_NEAR(all.centroid.y, 0.54, 0.25);
  EXPECT_LT(all.energy, 0.01);
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
