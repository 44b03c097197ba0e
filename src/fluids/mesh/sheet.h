// Meshes that enclose nothing.
#pragma once
#include "fluids/mesh/tri_mesh.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Whether the triangles are a sheet, as a plane, a bowl or a pipe without ends: edges with one
/// triangle alone are long for its area. A closed surface has none, and one that lacks a few
/// triangles has short ones. Vertices at one place count as one.
bool IsSheet(const TriMeshSTL& mesh);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
