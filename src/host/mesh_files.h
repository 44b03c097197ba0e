// Meshes from files of other tools.
#pragma once
#include <filesystem>

#include "host/geometry.h"

namespace MELDO_GLOBAL::host {

/// Reads a mesh by the file's extension: .obj, .ply, .stl, .gltf or .glb. Coordinates are taken as
/// they stand, as host units, in double. Points keep the order of the file, so that the points of a
/// file per frame correspond; quads stay quads, polygons of more corners become a fan of triangles.
/// PLY and glTF bring velocities (vx vy vz, VELOCITY) and colours of points, as light.
/// Two formats repeat a point for every corner: STL and glTF. There, points that agree (in STL
/// within 2^-22 of the largest coordinate, as much as single precision tells apart; in glTF
/// exactly, and within one mesh node) become one, in order of first appearance, so that a closed
/// surface is closed. glTF nodes are placed by their transforms and appended. Throws MeshFileError
/// when the file is missing, unreadable, truncated or malformed, has no polygons, an index out of
/// range, or a coordinate that isn't finite.
Geometry LoadMesh(const std::filesystem::path& path);
/// The same, and a file without polygons is as good as another.
Geometry LoadMeshOrNone(const std::filesystem::path& path);

}  // namespace MELDO_GLOBAL::host
