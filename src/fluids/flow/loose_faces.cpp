#include "fluids/flow/loose_faces.h"

#include <algorithm>

#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void LooseFaces::TakeLayer(const Flow& flow, i32 axis, i32 z, std::vector<Face>& faces) {
  const EGrid<double>& velocity = *flow.mVelocity.GetGrid(axis);
  const EGrid<float>& faceOpen = *flow.GetOpenFaces(axis);
  const EGrid<float>& open = *flow.mFractions.GetRead(0, 0);
  const EGrid<double>& phi = *flow.mSurface;
  const VecInt3D back = ExtraOf(axis);
  if (z < back.z) return;
  for (i32 y = back.y; y < phi.mNy; ++y)
    for (i32 x = back.x; x < phi.mNx; ++x) {
      const i32 face = velocity.Index(x, y, z);
      if (faceOpen[face] > 0) continue;
      const i32 above = phi.Index(x, y, z);
      const i32 below = phi.Index(x - back.x, y - back.y, z - back.z);
      const bool isBelowWall = open[below] > 0;
      if (isBelowWall == (open[above] > 0) || phi[isBelowWall ? below : above] < 0) continue;
      faces.push_back({axis, face, isBelowWall, velocity[face]});
    }
}

void LooseFaces::Take(const Flow& flow) {
  const GridLayout* layout = flow.GetLayout();
  mFaces.clear();
  if (!layout || !flow.mSurface || flow.mSurface->Dims() != layout->dims) return;
  if (!flow.mFractions.HasField(0, 0)) return;
  for (i32 axis = 0; axis < 3; ++axis)
    if (!flow.GetOpenFaces(axis)) return;
  mFaces.resize(layout->dims.z);
  ForEachBlock(layout->dims.z, flow.Threads(), [&](i32 z) {
    for (i32 axis = 0; axis < 3; ++axis) TakeLayer(flow, axis, z, mFaces[z]);
  });
}

void LooseFaces::Put(Flow& flow) {
  for (const std::vector<Face>& layer : mFaces)
    for (const Face& face : layer) {
      double& v = (*flow.mVelocity.GetGridForWrite(face.axis))[face.index];
      v = face.isBelowWall ? std::min(v, face.velocity) : std::max(v, face.velocity);
    }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
