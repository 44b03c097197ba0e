// Binary glTF 2.0.
#pragma once
#include <nlohmann/json.hpp>
#include <span>
#include <string>

#include "io/mesh_table.h"

namespace MELDO_GLOBAL::app {

/// Puts a glTF file together: meshes of one primitive each, nodes, one animation. All numbers are
/// in single precision.
class GlbWriter {
 public:
  using Json = nlohmann::ordered_json;

  /// Returns the number of the mesh, which has polygons.
  std::size_t AddMesh(const MeshTable& mesh);
  /// A node of the scene; returns its number.
  std::size_t AddNode(Json node);
  /// Numbers of an animation, `components` in a row; with bounds as times need them. Returns the
  /// number of their accessor.
  std::size_t AddNumbers(std::span<const double> numbers, int components);
  /// Moves a node along `path`, "translation" or "rotation", through what two accessors hold.
  void Animate(std::size_t node, const char* path, std::size_t times, std::size_t values);
  /// What else the file tells of its scene.
  void SetExtras(Json extras) { mExtras = std::move(extras); }
  std::string Encode();

 private:
  std::size_t AddView(std::size_t first, int target);
  std::size_t AddVectors(const std::vector<Vec3d>& values, bool hasBounds);
  /// The first two of each, counted from the picture's upper left corner.
  std::size_t AddUvs(const std::vector<Vec3d>& uvs);
  std::size_t AddSplit(const MeshTable& mesh, const std::vector<Vec3d>& uvs);
  std::size_t AddTriangles(const MeshTable& mesh);

  std::string mBytes;
  Json mMeshes = Json::array(), mNodes = Json::array(), mAccessors = Json::array(),
       mViews = Json::array(), mChannels = Json::array(), mSamplers = Json::array(), mExtras;
};

}  // namespace MELDO_GLOBAL::app
