// A volume with exact distances, for tests of what works inside volumes.
#pragma once
#include "fluids/test_scene.h"
#include "fluids/volume/volume_base.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A ball on nodes of the scene's cell size, at `corner` + whole cells.
class SphereVolume : public VolumeBase {
 public:
  SphereVolume(host::BaseNode* node, Scene* scene) : VolumeBase(node, scene) {}
  bool ReadParameters() override { return true; }
  bool ResolveLinks() override { return true; }
  bool AfterLinks() override { return true; }
  bool IsDirty() const override { return false; }

  void Make(const Vec3d& centre, double radius, const VecInt3D& cells, const Vec3d& corner) {
    const GridLayout& domain = GetDomain();
    GridLayout layout;
    layout.Set(cells, ToReal(cells) * domain.worldCell, domain.cellSize,
               corner * domain.simToWorld);
    mGrid = std::make_unique<EGrid<double>>(layout, kNode);
    mMaximumDistance = radius;
    mBoxMin = mGrid->mLayout.simOrigin;
    mBoxMax = mGrid->mLayout.simMax;
    ForEachCell({{0, 0, 0}, mGrid->Dims()}, [&](int x, int y, int z) {
      (*mGrid)(x, y, z) = Length(mGrid->PositionOf(x, y, z) - centre) - radius;
    });
  }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
