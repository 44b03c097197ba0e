// What particles fill of meshes, in whole frames.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "fluids/emission/object_particle_grid_emitter.h"
#include "fluids/mesh/mesh_rig.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

/// What fills the mesh of a rig in its first frames.
class FilledMesh : public MeshRig {
 public:
  explicit FilledMesh(const Vec3d& size) : MeshRig(host::MakeBox({.size = size})) {
    Place(size * 0.5);
    AddVolume();
    host::BaseNode& group = Make("particlegroup");
    host::BaseNode& settings = Make("particlemesh_emission_setting");
    settings.Set(1006, 0.5);
    host::BaseNode& emitter = Make("particlegridemitter");
    emitter.Set(ParticleEmitter::kGroupRow, host::Link{group.Id()});
    emitter.Set(1003, host::Link{settings.Id()});
    emitter.Set(ObjectParticleGridEmitter::kVolumeRow, host::Link{volumeNode->Id()});
    for (const i32 frame : {0, 1}) Frame(frame);
    store = &dynamic_cast<ParticleGroup*>(scene->FindObject(&group, kListAll))->Store(kLiquid);
  }
  ParticleStore* store = nullptr;

 private:
  host::BaseNode& Make(const char* kind) {
    return CreateNode(document, *FindKind(kind), kind, server);
  }
};

// Its edges too, wherever its sides lie in their cells: a tank that is as wide has even water.
TEST(FilledMesh, ABoxOfLiquidHasAllPlacesOfItsLattice) {
  for (const double height : {50.0, 52.5, 51.3}) {
    const FilledMesh box({20, height, 20});
    const i32 layers = static_cast<i32>(std::floor(height / 2.5 + 0.5));
    EXPECT_EQ(box.store->Count(), 8 * layers * 8) << height;
    for (const Vec3d& p : box.store->Positions()) {
      ASSERT_GT(std::min({p.x, p.y, p.z}), 0) << height;
      ASSERT_LT(std::max(p.x, p.z), 0.2) << height;
      ASSERT_LT(p.y, 0.01 * height) << height;
    }
    // As the emitter tells it: each its part of the lattice.
    const FilledSpace filled = box.store->Filled();
    EXPECT_EQ(filled.particles, box.store->Count());
    EXPECT_NEAR(filled.volume, box.store->Count() * std::pow(0.025, 3), 1e-6);
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
