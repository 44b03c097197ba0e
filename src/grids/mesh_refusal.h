// Meshes for which there was no memory.
#pragma once

namespace MELDO_GLOBAL {

/// Polygons that found no room below the limit of all grids: how many points they would have had,
/// and what all together would have held, bytes. 0 without a refusal; `SetGridMemoryLimit` forgets
/// it.
struct MeshRefusal {
  double points = 0;
  double bytes = 0;
};
/// Tells that `bytes` more for a mesh are too many. The first one counts. Any thread.
void RefuseMesh(double points, double bytes);
MeshRefusal RefusedMesh();

}  // namespace MELDO_GLOBAL
