#include "nodes/catalogue.h"

#include <algorithm>
#include <map>
#include <string>

#include "cache/grid_cacher.h"
#include "fluids/advection/grid_advection.h"
#include "fluids/emission/alignment_vector.h"
#include "fluids/emission/channel_value.h"
#include "fluids/emission/grid_cell_emitter.h"
#include "fluids/emission/object_grid_emitter.h"
#include "fluids/emission/particle_to_grid_emitter.h"
#include "fluids/fields/fire_grid_channel.h"
#include "fluids/fields/fuel_grid_channel.h"
#include "fluids/fields/plain_grid_channel.h"
#include "fluids/fields/temperature_grid_channel.h"
#include "fluids/forces/force_buoyancy.h"
#include "fluids/forces/force_gravity.h"
#include "fluids/forces/force_swirling.h"
#include "fluids/mesh/mesh.h"
#include "fluids/mesh/multi_mesh.h"
#include "fluids/operators/channel_operator_remap.h"
#include "fluids/operators/grid_combustion.h"
#include "fluids/operators/grid_cooling.h"
#include "fluids/operators/grid_diffusion.h"
#include "fluids/operators/grid_dissipate.h"
#include "fluids/operators/grid_variable_density.h"
#include "fluids/operators/mesh_curvature_operator.h"
#include "fluids/operators/mesh_smoothing_operator.h"
#include "fluids/solvers/fluid_solver.h"
#include "fluids/volume/multi_volume.h"
#include "fluids/volume/volume_mesh.h"
#include "framework/duration.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const std::vector<NodeKind>& Catalogue() {
  static const std::vector<NodeKind> kinds = {
      VolumeMesh::Kind(),
      Duration::Kind(),
      SulvaScene::Kind(),
      GridDiffusion::Kind(),
      FluidSolver::Kind(),
      ObjectGridEmitter::Kind(),
      ParticleToGridEmitter::Kind(),
      AlignmentVector3D::Kind(),
      EmissionRate::Kind(),
      ChannelPair::Kind(),
      ChannelValue::Kind(),
      Force_Gravity::Kind(),
      Force_Buoyancy::Kind(),
      Force_Swirling::Kind(),
      GridEmissionSettings::Kind(),
      PlainField::Kind(),
      FuelField::Kind(),
      FireField::Kind(),
      VectorField::Kind(),
      GridCooling::Kind(),
      GridCombustion::Kind(),
      ChannelOperator_Remap::Kind(),
      GridCacher::Kind(),
      TemperatureField::Kind(),
      GridDissipate::Kind(),
      Grid_CellEmitter::Kind(),
      GridAdvection::Kind(),
      GridVariableDensity::Kind(),
      MultiVolume::Kind(),
      MeshCurvatureOperator::Kind(),
      MeshSmoothingOperator::Kind(),
      Mesh::Kind(),
      MultiMesh::Kind(),
      GroupKind(),
  };
  return kinds;
}

const NodeKind* FindKind(i32 id) {
  for (const NodeKind& kind : Catalogue())
    if (kind.id == id) return &kind;
  return nullptr;
}

const NodeKind* FindKind(std::string_view name) {
  for (const NodeKind& kind : Catalogue())
    if (kind.type == name || kind.label == name || std::to_string(kind.id) == name) return &kind;
  return nullptr;
}

namespace {

/// The kinds that a row takes by list and categories.
std::vector<i32> AcceptedKinds(const ParameterRow& row) {
  std::vector<i32> ids;
  for (const NodeKind& kind : Catalogue())
    if (kind.list == row.acceptsList &&
        (kind.categories & row.acceptsCategories) == row.acceptsCategories)
      ids.push_back(kind.id);
  return ids;
}

}  // namespace

const ParameterTable& ParametersOf(const NodeKind& kind) {
  static const std::map<i32, ParameterTable> tables = [] {
    std::map<i32, ParameterTable> all;
    for (const NodeKind& k : Catalogue()) {
      ParameterTable& table = all[k.id] = k.rows();
      for (const ParameterRow& row : iBase::CommonParameters()) {
        const auto own = std::find_if(table.begin(), table.end(),
                                      [&](const ParameterRow& r) { return r.id == row.id; });
        if (own == table.end()) {
          table.push_back(row);
        } else {
          // A kind may have its own words and default for what all kinds can be told.
          own->fill = row.fill;
          own->connect = row.connect;
        }
      }
      for (ParameterRow& row : table)
        if (row.acceptsList && row.accepts.empty()) row.accepts = AcceptedKinds(row);
    }
    return all;
  }();
  return tables.at(kind.id);
}

BaseNode& CreateNode(Document& document, const NodeKind& kind, std::string name, BaseNode* parent) {
  BaseNode& node = document.Create<BaseNode>(
      kind.id, name.empty() ? std::string(kind.label) : std::move(name), parent);
  node.AddInstanceOf(kServerNode);
  node.SetKind(&kind);
  node.SetTable(&ParametersOf(kind));
  return node;
}

BaseNode& AddObstacleTag(BaseNode& node) {
  BaseNode& tag = node.AddTag(kObstacleTag);
  tag.SetTable(&ObstacleParameters());
  return tag;
}

SulvaScene::ObjectFactory NodeFactory() {
  return [](i32 pluginId, BaseNode* node, Scene* scene) -> std::unique_ptr<iBase> {
    const NodeKind* kind = FindKind(pluginId);
    // Nodes of other programs stand for one of these kinds.
    for (const i32 adopted : {1300139, 1300140, 1300141})
      if (node && node->IsInstanceOf(adopted)) kind = FindKind(adopted);
    return kind && kind->make ? kind->make(node, scene) : nullptr;
  };
}

std::unique_ptr<SulvaScene> CreateScene(BaseNode& server) {
  return std::make_unique<SulvaScene>(&server, NodeFactory());
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
