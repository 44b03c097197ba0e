#include "nodes/catalogue.h"

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

namespace {

template <class T>
std::unique_ptr<iBase> Make(BaseNode* node, Scene* scene) {
  return std::make_unique<T>(node, scene);
}

constexpr u32 kScalarChannel = kCategoryGrid | kCategoryScalar;
constexpr u32 kVectorChannel = kCategoryGrid | kCategoryVector;
constexpr u32 kDualForce = kCategoryGrid | kCategoryParticle;

}  // namespace

const std::vector<NodeKind>& Catalogue() {
  // clang-format off
  static const std::vector<NodeKind> kinds = {
    // id, type, label, class, type id, list, categories, flags, stages, priority, rows, factory
    {1028106, "volume", "Volume", "VolumeMesh", kTypeVolumeMesh, 2, kCategoryMesh | kCategoryVolume,
     "SV", {3}, 0, VolumeMesh::Parameters, Make<VolumeMesh>},
    {1028240, "duration", "Duration", "Duration", kTypeDuration, 11, 0, "", {}, {},
     Duration::Parameters, Make<Duration>},
    {1300000, "server", "Sulva Scene", "Scene", 0, 0, 0, "", {}, {}, Scene::Parameters, nullptr},
    {1300001, "grid_diffusion", "GOP::Diffusor", "GridDiffusion", GridDiffusion::kTypeId, 4,
     kCategoryGrid, "IE", {15}, 30, GridDiffusion::Parameters, Make<GridDiffusion>},
    {1300002, "fluid", "Gaseous Dynamics", "FluidSolver", kTypeFluidSolver, 5, 0, "S",
     {5, 9, 10, 11}, 30, FluidSolver::Parameters, Make<FluidSolver>},
    {1300005, "gridemitter", "Emitter::Grid", "ObjectGridEmitter", kTypeObjectGridEmitter, 3,
     kCategoryGrid, "", {5}, 10, ObjectGridEmitter::Parameters, Make<ObjectGridEmitter>},
    {1300008, "properties_particles", "POP::PointData To Grid", "ParticleToGridEmitter",
     kTypeParticleToGridEmitter, 3, kDualForce, "", {7}, 20, ParticleToGridEmitter::Parameters,
     Make<ParticleToGridEmitter>},
    {1300010, "alignment", "Alignment", "AlignmentVector3D", kTypeAlignment, 11, 0, "", {}, {},
     AlignmentVector3D::Parameters, Make<AlignmentVector3D>},
    {1300011, "rate", "Value", "EmissionRate", 0, 10, 0, "", {}, {}, EmissionRate::Parameters,
     Make<EmissionRate>},
    {1300012, "channelsettings", "Container::Channel/Settings", "ChannelPair", kTypeChannelPair, 10,
     kCategoryGrid, "", {}, {}, ChannelPair::Parameters, Make<ChannelPair>},
    {1300013, "channelvalue", "Container::Channel/Value", "ChannelValue", kTypeChannelValue, 10,
     kCategoryGrid | kCategoryProperty, "", {}, {}, ChannelValue::Parameters, Make<ChannelValue>},
    {1300014, "force_gravity", "GF::External", "Force_Gravity", kTypeGravity, 7, kCategoryGrid, "",
     {}, 20, Force_Gravity::Parameters, Make<Force_Gravity>},
    {1300015, "force_buoyancy", "DF::Buoyancy", "Force_Buoyancy", kTypeBuoyancy, 7, kDualForce, "",
     {}, {}, Force_Buoyancy::Parameters, Make<Force_Buoyancy>},
    {1300016, "force_swirling", "GF::Swirling", "Force_Swirling", kTypeSwirling, 7, kCategoryGrid,
     "", {}, {}, Force_Swirling::Parameters, Make<Force_Swirling>},
    {1300024, "emission_setting", "Settings::Grid Emission", "GridEmissionSettings",
     kTypeGridEmissionSettings, 10, kCategoryGrid, "", {}, {}, GridEmissionSettings::Parameters,
     Make<GridEmissionSettings>},
    {1300027, "channel_scalar", "Scalar", "FuelGridChannel", kTypeFuelChannel, 1, kScalarChannel,
     "R", {}, {}, FuelField::ScalarParameters, Make<FuelField>},
    {1300028, "channel_fuel", "Fuel", "FuelGridChannel", kTypeFuelChannel, 1, kScalarChannel, "R",
     {}, {}, FuelField::Parameters, Make<FuelField>},
    {1300029, "channel_fire", "Fire", "FireGridChannel", kTypeFireChannel, 1, kScalarChannel, "R",
     {}, {}, FireField::Parameters, Make<FireField>},
    {1300030, "channel_vector", "Vector", "VectorGridChannel", kTypeVectorChannel, 1,
     kVectorChannel, "R", {}, {}, VectorField::Parameters, Make<VectorField>},
    {1300041, "grid_cooling", "GOP::Cooling", "GridCooling", GridCooling::kTypeId, 4, kCategoryGrid,
     "", {15}, 20, GridCooling::Parameters, Make<GridCooling>},
    {1300042, "grid_combustion_fire", "GOP::Combustion", "GridCombustion", GridCombustion::kTypeId,
     4, kCategoryGrid, "", {7}, 20, GridCombustion::Parameters, Make<GridCombustion>},
    {1300063, "channelop_remap", "COP::Remap", "ChannelOperator_Remap",
     ChannelOperator_Remap::kRemapType, 0, kCategoryGrid, "", {}, {},
     ChannelOperator_Remap::Parameters, nullptr},
    {1300098, "cache", "GOP::Cacher", "GridCacher", kTypeGridCacher, 8, kCategoryGrid, "S",
     {0, 5, 17}, {}, GridCacher::Parameters, Make<GridCacher>},
    {1300112, "channel_temp", "Temperature", "TemperatureGridChannel", kTypeTemperatureChannel, 1,
     kScalarChannel, "R", {}, {}, TemperatureField::Parameters, Make<TemperatureField>},
    {1300116, "grid_dissipate", "GOP::Dissipation", "GridDissipate", GridDissipate::kTypeId, 4,
     kCategoryGrid, "", {15}, 21, GridDissipate::Parameters, Make<GridDissipate>},
    {1300121, "grid_celliterator", "Emitter::Cell Iterator", "Grid_CellEmitter", kTypeCellEmitter,
     3, kCategoryGrid, "", {5}, 15, Grid_CellEmitter::Parameters, Make<Grid_CellEmitter>},
    {1300122, "grid_advection", "GOP::Advection", "GridAdvection", 0, 4, kCategoryGrid, "SI", {6},
     5, GridAdvection::Parameters, Make<GridAdvection>},
    {1300125, "grid_variabledensity", "GOP::VariableDensity", "GridVariableDensity",
     GridVariableDensity::kTypeId, 4, kCategoryGrid, "", {7}, 20, GridVariableDensity::Parameters,
     Make<GridVariableDensity>},
    {1300133, "volume_multi", "MultiVolume", "MultiVolume", kTypeMultiVolume, 2, kCategoryVolume,
     "SV", {3}, 0, MultiVolume::Parameters, Make<MultiVolume>},
    {1300135, "mop_curvature", "MOP::Curvature", "MeshCurvatureOperator", kTypeMeshOperator, 4,
     kCategoryMesh, "I*V", {7}, 20, MeshCurvatureOperator::Parameters, Make<MeshCurvatureOperator>},
    {1300136, "mop_smoothing", "MOP::Smoother", "MeshSmoothingOperator", kTypeMeshOperator, 4,
     kCategoryMesh, "IV", {7}, 20, MeshSmoothingOperator::Parameters, Make<MeshSmoothingOperator>},
    {1300143, "mesh", "Mesh", "Mesh", kTypeMesh, 2, kCategoryMesh, "SV", {3}, 0, Mesh::Parameters,
     Make<Mesh>},
    {1300144, "mesh_multi", "MultiMesh", "MultiMesh", kTypeMultiMesh, 2, kCategoryMesh, "SV", {3},
     0, MultiMesh::Parameters, Make<MultiMesh>},
    {1300150, "group", "Node Group", "", 0, 0, 0, "", {}, {}, GroupParameters, nullptr},
  };
  // clang-format on
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

const ParameterTable& ParametersOf(const NodeKind& kind) {
  static const std::map<i32, ParameterTable> tables = [] {
    const ParameterTable common = {
        LinksRow(2502, "constraints",
                 "where, and how strongly, the node works: every one that is named weakens it "
                 "outside of its own region",
                 {}),
        LongRow(2604, "class_option", 0, "", "kept with the node; a few kinds read it"),
        LongRow(10001, "stage", 0, "",
                "moves the node to another stage of the step; 0 keeps its own")
            .Range(0, 25),
        LongRow(10002, "priority", 0, "",
                "runs later in its stage than others with a lower number"),
        BoolRow(10003, "group_break", true, "others in its stage wait until it is done"),
    };
    std::map<i32, ParameterTable> all;
    for (const NodeKind& k : Catalogue()) {
      ParameterTable& table = all[k.id] = k.rows();
      for (const ParameterRow& row : common)
        if (!FindRow(table, row.id)) table.push_back(row);
    }
    return all;
  }();
  return tables.at(kind.id);
}

BaseNode& CreateNode(Document& document, const NodeKind& kind, std::string name, BaseNode* parent) {
  BaseNode& node = document.Create<BaseNode>(
      kind.id, name.empty() ? std::string(kind.label) : std::move(name), parent);
  node.AddInstanceOf(kServerNode);
  node.SetTable(&ParametersOf(kind));
  return node;
}

BaseNode& AddObstacleTag(BaseNode& node) {
  BaseNode& tag = node.AddTag(kObstacleTag);
  tag.SetTable(&ObstacleParameters());
  return tag;
}

Scene::ObjectFactory NodeFactory() {
  return [](i32 pluginId, BaseNode* node, Scene* scene) -> std::unique_ptr<iBase> {
    const NodeKind* kind = FindKind(pluginId);
    return kind && kind->make ? kind->make(node, scene) : nullptr;
  };
}

std::unique_ptr<Scene> CreateScene(BaseNode& server) {
  return std::make_unique<Scene>(&server, NodeFactory());
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
