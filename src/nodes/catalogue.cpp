#include "nodes/catalogue.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>

#include "cache/grid_cacher.h"
#include "cache/mesh_cacher.h"
#include "cache/particle_cacher.h"
#include "fluids/advection/grid_advection.h"
#include "fluids/advection/particle_advection.h"
#include "fluids/constraints/channel_average_constraint.h"
#include "fluids/constraints/fractions_constraint.h"
#include "fluids/constraints/gradient_constraint.h"
#include "fluids/constraints/grid_value_constraint.h"
#include "fluids/constraints/noise_constraint.h"
#include "fluids/constraints/particle_constraint_attribute.h"
#include "fluids/constraints/particle_constraint_property.h"
#include "fluids/constraints/particle_count_constraint.h"
#include "fluids/constraints/particle_distance_constraint.h"
#include "fluids/constraints/plugin_constraint.h"
#include "fluids/constraints/quadrics_constraint.h"
#include "fluids/constraints/rotation_constraint.h"
#include "fluids/constraints/script_constraint.h"
#include "fluids/constraints/strain_constraint.h"
#include "fluids/constraints/volume_constraint.h"
#include "fluids/constraints/voxel_distance_constraint.h"
#include "fluids/emission/alignment_vector.h"
#include "fluids/emission/channel_value.h"
#include "fluids/emission/grid_cell_emitter.h"
#include "fluids/emission/object_grid_emitter.h"
#include "fluids/emission/object_particle_grid_emitter.h"
#include "fluids/emission/object_particle_mesh_emitter.h"
#include "fluids/emission/particle_to_grid_emitter.h"
#include "fluids/fields/fire_grid_channel.h"
#include "fluids/fields/fuel_grid_channel.h"
#include "fluids/fields/plain_grid_channel.h"
#include "fluids/fields/temperature_grid_channel.h"
#include "fluids/forces/force_buoyancy.h"
#include "fluids/forces/force_curl.h"
#include "fluids/forces/force_follow_spline.h"
#include "fluids/forces/force_gravity.h"
#include "fluids/forces/force_grid_turbulence.h"
#include "fluids/forces/force_script.h"
#include "fluids/forces/force_swirling.h"
#include "fluids/forces/force_trigo_wave.h"
#include "fluids/forces/force_vortex.h"
#include "fluids/forces/neighbour_forces.h"
#include "fluids/forces/particle_force_acceleration.h"
#include "fluids/forces/particle_force_script.h"
#include "fluids/forces/plugin_force.h"
#include "fluids/mesh/mesh.h"
#include "fluids/mesh/multi_mesh.h"
#include "fluids/operators/channel_operator_math.h"
#include "fluids/operators/channel_operator_remap.h"
#include "fluids/operators/channel_operator_script.h"
#include "fluids/operators/grid_combustion.h"
#include "fluids/operators/grid_cooling.h"
#include "fluids/operators/grid_diffusion.h"
#include "fluids/operators/grid_dissipate.h"
#include "fluids/operators/grid_sand.h"
#include "fluids/operators/grid_to_particles.h"
#include "fluids/operators/grid_variable_density.h"
#include "fluids/operators/mesh_curvature_operator.h"
#include "fluids/operators/mesh_smoothing_operator.h"
#include "fluids/operators/particle_converter.h"
#include "fluids/operators/particle_forces.h"
#include "fluids/operators/pop_deform.h"
#include "fluids/operators/pop_flock.h"
#include "fluids/operators/pop_follow_spline.h"
#include "fluids/operators/pop_geometry.h"
#include "fluids/operators/pop_property.h"
#include "fluids/particles/kernel.h"
#include "fluids/particles/particle_group.h"
#include "fluids/particles/particle_iso_density.h"
#include "fluids/particles/particle_property.h"
#include "fluids/solvers/fluid_solver.h"
#include "fluids/solvers/water_solver.h"
#include "fluids/surfaces/implicit_mesher.h"
#include "fluids/surfaces/surface_reconstructor.h"
#include "fluids/volume/multi_volume.h"
#include "fluids/volume/volume_mesh.h"
#include "framework/duration.h"
#include "nodes/with_kinds.h"
#include "rigid/bullet_velocity_emitter.h"
#include "rigid/bullet_world.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

/// A deque keeps kinds where they are when others are added.
std::deque<NodeKind>& Kinds() {
  static std::deque<NodeKind> kinds = {
      VolumeMesh::Kind(),
      Duration::Kind(),
      SulvaScene::Kind(),
      GridDiffusion::Kind(),
      FluidSolver::Kind(),
      WaterSolver::Kind(),
      ObjectGridEmitter::Kind(),
      ObjectParticleGridEmitter::Kind(),
      ObjectParticleMeshEmitter::Kind(),
      ParticleToGridEmitter::Kind(),
      AlignmentVector3D::Kind(),
      EmissionRate::Kind(),
      ChannelPair::Kind(),
      ChannelValue::Kind(),
      Force_Gravity::Kind(),
      Force_Buoyancy::Kind(),
      Force_Swirling::Kind(),
      Force_GridTurbulence::Kind(),
      VoxelDistanceConstraint::Kind(),
      VolumeConstraint::Kind(),
      NoiseConstraint::Kind(),
      GridValueConstraint::Kind(),
      GradientConstraint::Kind(),
      ChannelAverageConstraint::Kind(),
      GridEmissionSettings::Kind(),
      ParticleEmissionSettings::Kind(),
      PlainField::Kind(),
      FuelField::Kind(),
      FireField::Kind(),
      VectorField::Kind(),
      SurfaceReconstructor::Kind(),
      ImplicitMesher::Kind(),
      ParticleGroup::Kind(),
      Property<double>::Kind(),
      Property<Vec3d>::Kind(),
      ParticleConverter::Kind(),
      GridCooling::Kind(),
      GridCombustion::Kind(),
      ParticleForce_Acceleration::Kind(),
      ChannelOperator_Math::Kind(),
      ScriptConstraint::Kind(),
      ChannelOperator_Script::Kind(),
      ParticleForce_Script::Kind(),
      ChannelOperator_Remap::Kind(),
      Kernel::Kind(),
      Force_TrigoWave::Kind(),
      ParticleDistanceConstraint::Kind(),
      ParticleCountConstraint::Kind(),
      ParticleConstraint_Attribute::Kind(),
      ParticleConstraint_Property::Kind(),
      GridCacher::Kind(),
      ParticleCacher::Kind(),
      MeshCacher::Kind(),
      TemperatureField::Kind(),
      Force_Vortex::Kind(),
      GridDissipate::Kind(),
      Grid_CellEmitter::Kind(),
      GridAdvection::Kind(),
      Bullet_VelocityEmitter::Kind(),
      GridVariableDensity::Kind(),
      ParticleAdvection::Kind(),
      ParticleForces::Kind(),
      MultiVolume::Kind(),
      MeshCurvatureOperator::Kind(),
      MeshSmoothingOperator::Kind(),
      GridToParticles::Kind(),
      Force_Curl::Kind(),
      Mesh::Kind(),
      MultiMesh::Kind(),
      Grid_Sand::Kind(),
      StrainConstraint::Kind(),
      RotationConstraint::Kind(),
      FractionsConstraint::Kind(),
      GroupKind(),
      POP_Property::Kind(),
      QuadricsConstraint::Kind(),
      Force_Cohesion::Kind(),
      Force_Alignment::Kind(),
      Force_Separation::Kind(),
      POP_Flock::Kind(),
      Force_FollowSpline::Kind(),
      Pop_FollowSpline::Kind(),
      POP_Geometry::Kind(),
      POP_Deform::Kind(),
      Force_Script::Kind(),
      Property<bool>::Kind(),
  };
  return kinds;
}

bool Takes(const ParameterRow& row, const NodeKind& kind) {
  return std::any_of(row.acceptsAny.begin(), row.acceptsAny.end(), [&](const KindGroup& group) {
    return group.Holds(kind.list, kind.categories);
  });
}

/// Keeps a row with the scene that does nothing for the nodes of its kind.
void KeepUnread(ParameterRow& row) {
  row.kept = true;
  row.fill = nullptr;
  row.connect = nullptr;
}

/// A table with the kinds that each link takes by its groups.
ParameterTable WithKinds(ParameterTable table) {
  for (ParameterRow& row : table) {
    const std::vector<i32> named = row.accepts;
    for (const NodeKind& other : Kinds())
      if (Takes(row, other) && std::find(named.begin(), named.end(), other.id) == named.end())
        row.accepts.push_back(other.id);
  }
  return table;
}

/// The rows of a kind with those that every node has.
ParameterTable MakeTable(const NodeKind& kind, ParameterTable table) {
  for (const ParameterRow& row : iBase::CommonParameters()) {
    const auto found = std::find_if(table.begin(), table.end(),
                                    [&](const ParameterRow& r) { return r.id == row.id; });
    ParameterRow& own = found == table.end() ? table.emplace_back(row) : *found;
    // A kind may have its own words and default for what all kinds can be told, or be the one that
    // reads it.
    if (!own.fill) own.fill = row.fill;
    if (!own.connect) own.connect = row.connect;
    if (!kind.Reads(row.id)) KeepUnread(own);
  }
  return WithKinds(std::move(table));
}

std::map<i32, ParameterTable>& Tables() {
  static std::map<i32, ParameterTable> tables = [] {
    std::map<i32, ParameterTable> all;
    for (const NodeKind& kind : Kinds()) all[kind.id] = MakeTable(kind, kind.rows());
    return all;
  }();
  return tables;
}

}  // namespace

const std::deque<NodeKind>& Catalogue() { return Kinds(); }

const ParameterTable& TableWithKinds(i32 id, const ParameterTable& (*rows)()) {
  // Scenes may be read by several threads.
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  const auto found = Tables().find(id);
  return found == Tables().end() ? Tables()[id] = WithKinds(rows()) : found->second;
}

void AddKind(const NodeKind& kind) { AddKind(kind, kind.rows()); }

void AddKind(const NodeKind& kind, ParameterTable rows) {
  if (FindKind(kind.id) || FindKind(kind.type) || FindKind(kind.label))
    throw std::invalid_argument(
        fmt::format("a kind of the id {}, the name '{}' or the label '{}' is there", kind.id,
                    kind.type, kind.label));
  std::map<i32, ParameterTable>& tables = Tables();
  Kinds().push_back(kind);
  for (auto& [id, table] : tables)
    for (ParameterRow& row : table)
      if (Takes(row, kind)) row.accepts.push_back(kind.id);
  tables[kind.id] = MakeTable(Kinds().back(), std::move(rows));
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

const ParameterTable& ParametersOf(const NodeKind& kind) { return Tables().at(kind.id); }

BaseNode& CreateNode(Document& document, const NodeKind& kind, std::string name, BaseNode* parent) {
  if (name.empty()) name = kind.label;
  BaseNode& node = kind.isPolygonObject
                       ? document.Create<PolygonObject>(kind.id, std::move(name), parent)
                       : document.Create<BaseNode>(kind.id, std::move(name), parent);
  node.AddInstanceOf(kServerNode);
  if (FindPluginKind(kind.id))
    node.AddInstanceOf(kind.list == kListForces ? kForeignForce : kForeignConstraint);
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
    // Nodes of plug-ins are what they count as, whatever their own type.
    if (node && node->IsInstanceOf(kForeignForce))
      return std::make_unique<PluginForce>(node, scene);
    if (node && node->IsInstanceOf(kForeignConstraint))
      return std::make_unique<PluginConstraint>(node, scene);
    const NodeKind* kind = FindKind(pluginId);
    return kind && kind->make ? kind->make(node, scene) : nullptr;
  };
}

std::unique_ptr<SulvaScene> CreateScene(BaseNode& server) {
  auto scene = std::make_unique<SulvaScene>(&server, NodeFactory());
  scene->mParts.Add(std::make_unique<ParticleIsoDensity>());
  scene->mParts.Add(std::make_unique<BulletWorld>());
  return scene;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
