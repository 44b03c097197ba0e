// Scenes of bodies for tests.
#pragma once
#include <fmt/format.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "fluids/mesh/multi_mesh.h"
#include "rigid/rigid_body.h"
#include "run/simulation.h"
#include "scene/scene_file.h"

namespace MELDO_GLOBAL::app {

/// A scene of bodies, frame by frame.
struct BodyScene {
  std::optional<LoadedScene> loaded;
  std::unique_ptr<Simulation> simulation;
  FrameRecord record;
  i32 frame = -1;

  /// `nodes` stand before the group "all" of `names`; `settings` are the server's.
  BodyScene(const std::string& objects, const std::string& names, const std::string& nodes = "",
            const std::string& settings = "") {
    const std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("sulva_bodies" + std::to_string(::getpid()));
    std::ofstream(path) << R"({"sulva": 1, "fps": 25, "range": [0, 999], "objects": [)" << objects
                        << R"(], "nodes": [{"type": "server", "name": "scene", "parameters": {)"
                        << settings << R"(}, "children": [)" << nodes
                        << R"({"type": "mesh_multi", "name": "all", "parameters": {"objects": [)"
                        << names << "]}}]}]}";
    Diagnostics diagnostics;
    loaded = LoadScene(path, diagnostics);
    std::filesystem::remove(path);
    if (!loaded) throw std::runtime_error(diagnostics.Lines().front());
    simulation = std::make_unique<Simulation>(*loaded->document, loaded->servers, u64{1} << 30);
  }
  void RunTo(i32 last) {
    while (frame < last) {
      ++frame;
      simulation->Evaluate(frame, record);
    }
  }
  const MELDO_SULVA::Mesh* MeshOf(const std::string& name) const {
    std::vector<MELDO_SULVA::Mesh*> meshes;
    for (const auto& [id, object] : simulation->Scenes().front()->List(MELDO_SULVA::kListGeometry))
      MELDO_SULVA::CollectMeshes(object.get(), meshes);
    for (const MELDO_SULVA::Mesh* mesh : meshes)
      if (mesh->ObjectName() == name) return mesh;
    return nullptr;
  }
  bool IsAwake(const std::string& name) const {
    const auto* body = dynamic_cast<const MELDO_SULVA::RigidBody*>(MeshOf(name)->GetBody());
    return body && !body->IsAsleep();
  }
  const MELDO_SULVA::BodyState& Body(const std::string& name) const {
    const MELDO_SULVA::Mesh* mesh = MeshOf(name);
    if (!mesh || !mesh->HasBody()) throw std::runtime_error("no body " + name);
    return *mesh->GetBody();
  }
  double HeightOf(const std::string& name) const {
    const MELDO_SULVA::Mesh* mesh = MeshOf(name);
    return mesh && mesh->HasBody() ? mesh->GetBody()->Pose().centre.y : -1;
  }
};

/// An object with an obstacle tag of these settings: `shape` is its type with its sizes, `place`
/// its position, both in host units.
inline std::string Object(const std::string& name, const std::string& shape, const Vec3d& place,
                          const std::string& settings) {
  return fmt::format(
      R"({{"name": "{}", "type": {}, "position": [{}, {}, {}], "obstacle": {{{}}}}})", name, shape,
      place.x, place.y, place.z, settings);
}
/// A box of 20 cm.
inline constexpr const char* kCube = R"("box", "size": [20, 20, 20])";
/// A ball as wide.
inline constexpr const char* kBall = R"("sphere", "radius": 10, "segments": 32)";

/// Bodies above a floor whose top is at 0.
struct FloorScene : BodyScene {
  FloorScene(const std::string& objects, const std::string& names, const std::string& nodes = "",
             const std::string& settings = "")
      : BodyScene(
            Object("floor", R"("box", "size": [400, 20, 400])", {0, -10, 0}, "") + ", " + objects,
            R"("floor", )" + names, nodes, settings) {}
};

}  // namespace MELDO_GLOBAL::app
