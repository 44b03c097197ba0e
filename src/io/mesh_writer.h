// Meshes as files for other tools.
#pragma once
#include <string>
#include <string_view>

#include "io/mesh_table.h"

namespace MELDO_GLOBAL::app {

/// A mesh of several in a file.
struct NamedMesh {
  std::string name;
  const MeshTable* mesh;
};

/// The bytes of a file by its suffix, .ply, .obj, .stl or .glb: binary little-endian PLY with
/// doubles, OBJ text that reads back to the same bits, binary STL or binary glTF, both of triangles
/// in single precision. All but STL hold normals. Where there are some, PLY holds velocities as
/// vx vy vz and colours as a screen wants them, red green blue; glTF VELOCITY,
/// once more as _VELOCITY, the way the format has names of one's own, and COLOR_0 in linear light,
/// from 0 to 1. Texture coordinates are in all but STL: of corners, and in glTF of points, of which
/// there are more then.
std::string EncodeMesh(const MeshTable& mesh, std::string_view suffix);
/// The same of several: OBJ and glTF name them, in the others they are one.
std::string EncodeMeshes(std::span<const NamedMesh> meshes, std::string_view suffix);
/// What such files can't hold of a mesh, in words.
std::vector<std::string> MissingFrom(std::string_view suffix, const MeshTable& mesh);

}  // namespace MELDO_GLOBAL::app
