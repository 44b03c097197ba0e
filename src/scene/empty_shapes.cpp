// Emitters from which nothing comes, and fluids into which nothing does.
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

#include "cache/cache_rows.h"
#include "fluids/emission/grid_cell_emitter.h"
#include "fluids/emission/object_grid_emitter.h"
#include "fluids/emission/particle_to_grid_emitter.h"
#include "fluids/solvers/fluid_solver.h"
#include "fluids/volume/volume_mesh.h"
#include "scene/scene_hints.h"
#include "scene/shape_boxes.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using namespace MELDO_SULVA;

namespace {

class EmptyShapes : public ShapeBoxes {
 public:
  using ShapeBoxes::ShapeBoxes;

  /// Nothing comes out of an emitter that is flat, or outside of every box of a gas.
  void FindEmitters(const BaseNode& server, std::map<NodeId, std::string>& empty) {
    mNodes.clear();
    Collect(server);
    ForEachStillEmitter(
        [&](const BaseNode& emitter, const BaseNode& volume, const Vec3d& low, const Vec3d& high) {
          const std::string shape = fmt::format("the shape of '{}'", Shown(volume.Name()));
          if (ThinnestSide(low, high) <= 0) {
            empty[emitter.Id()] = shape + " is flat and has no inside";
          } else if (IsA<VolumeMesh>(volume) && Number(volume, VolumeMesh::kShellRow) == 0 &&
                     !volume.Tracks().contains(VolumeMesh::kShellRow)) {
            empty[emitter.Id()] =
                fmt::format("the skin of '{}' has no thickness: its '{}' is 0",
                            Shown(volume.Name()), NameOf(volume, VolumeMesh::kShellRow));
          } else if (LiesOutside(low, high)) {
            empty[emitter.Id()] = OutsideText(volume);
          }
        });
    const double cell = CellOf(server);
    ForEachStill(
        ParticleToGridEmitter::Kind(), ParticleToGridEmitter::kSourceRow,
        [&](const BaseNode& emitter, const BaseNode& mesh, const Vec3d& low, const Vec3d& high) {
          if (emitter.Tracks().contains(ParticleToGridEmitter::kRadiusRow)) return;
          // A point fills the cells whose centres it reaches.
          const double reach = Number(emitter, ParticleToGridEmitter::kRadiusRow) * cell;
          const Vec3d radius{reach, reach, reach};
          if (LiesOutside(low - radius, high + radius)) empty[emitter.Id()] = OutsideText(mesh);
        });
  }

  /// Fluids into whose box nothing ever comes, where all that brings something rests elsewhere.
  void FindDryFluids(const BaseNode& server, std::map<NodeId, std::string>& empty) {
    mNodes.clear();
    Collect(server);
    std::vector<Box> sources;
    std::vector<const BaseNode*> dry;
    for (const BaseNode* node : mNodes) {
      if (MayBringAnywhere(*node)) return;
      if (!IsA<FluidSolver>(*node)) continue;
      if (mPlaces.IsMoved(*node) || !node->Tracks().empty()) return;
      dry.push_back(node);
    }
    std::size_t emitters = 0;
    const double cell = CellOf(server);
    const auto add = [&](const BaseNode& emitter, const BaseNode&, const Vec3d& low,
                         const Vec3d& high) {
      ++emitters;
      const double* reach = Get<double>(emitter, ParticleToGridEmitter::kRadiusRow);
      if (!empty.contains(emitter.Id()))
        sources.push_back(Box{low, high}.Wider(IsPoints(emitter) && reach ? *reach * cell : 0));
    };
    ForEachStillEmitter(add);
    ForEachStill(ParticleToGridEmitter::Kind(), ParticleToGridEmitter::kSourceRow, add);
    // A single one that may be anywhere may fill any fluid.
    if (emitters != CountEmitters() || sources.empty()) return;
    // What comes into a fluid may drift into the next one.
    constexpr double kMarginCells = 10;
    for (bool isNew = true; std::exchange(isNew, false);)
      std::erase_if(dry, [&](const BaseNode* fluid) {
        const bool isMet = std::any_of(sources.begin(), sources.end(), [&](const Box& source) {
          return MayMeet(*fluid, source.low, source.high);
        });
        if (isMet) sources.push_back(BoxOf(*fluid).Wider(kMarginCells * cell));
        isNew = isNew || isMet;
        return isMet;
      });
    for (const BaseNode* fluid : dry) empty[fluid->Id()] = FluidSolver::kDryReason;
  }

 private:
  static bool IsPoints(const BaseNode& node) { return IsA<ParticleToGridEmitter>(node); }
  /// Recordings, volumes that are there for the space, and whatever fills fields in ways unknown.
  static bool MayBringAnywhere(const BaseNode& node) {
    const NodeKind* kind = FindKind(node.Type());
    if (!kind) return true;
    if (kind->list == kListCaches)
      return Whole(node, cache_row::kMode) != cache_row::kRecord ||
             node.Tracks().contains(cache_row::kMode);
    return IsVolume(node) && (Whole(node, VolumeMesh::kAffectsBoundsRow) != 0 ||
                              node.Tracks().contains(VolumeMesh::kAffectsBoundsRow));
  }
  std::size_t CountEmitters() const {
    return static_cast<std::size_t>(
        std::count_if(mNodes.begin(), mNodes.end(), [](const BaseNode* node) {
          const NodeKind* kind = FindKind(node->Type());
          return kind && kind->list == kListEmitters && !IsA<Grid_CellEmitter>(*node);
        }));
  }
  static std::string OutsideText(const BaseNode& shape) {
    return fmt::format("the shape of {} lies outside of the box of every fluid; {}", Named(shape),
                       kOfBoxes);
  }
};

}  // namespace

std::map<NodeId, std::string> FindEmptyShapes(const LoadedScene& scene, const ScenePlaces& places) {
  std::map<NodeId, std::string> empty;
  Diagnostics unused;
  EmptyShapes shapes(scene, places, unused);
  for (const BaseNode* server : scene.servers) {
    shapes.FindEmitters(*server, empty);
    shapes.FindDryFluids(*server, empty);
  }
  return empty;
}

}  // namespace MELDO_GLOBAL::app
