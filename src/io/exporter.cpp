#include "io/exporter.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "exchange/particle_files.h"
#include "fluids/mesh/sheet.h"
#include "fluids/particles/particle_group.h"
#include "fluids/particles/point_table.h"
#include "fluids/solvers/fluid_solver.h"
#include "fluids/volume/volume_base.h"
#include "fluids/volume/voxeliser.h"
#include "host/exit_codes.h"
#include "host/polygon_object.h"
#include "io/mesh_writer.h"
#include "io/vdb_writer.h"
#include "scene/command_files.h"
#include "scene/diagnostics.h"

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;
namespace fs = std::filesystem;

namespace {

/// The core object of a node and the scene that owns it.
struct Found {
  const Scene* scene = nullptr;
  iBase* object = nullptr;
};

Found Find(const Exporter::Scenes& scenes, host::NodeId node) {
  for (const auto& scene : scenes)
    for (i32 list = 1; list <= 11; ++list) {
      const auto found = scene->List(list).find(node);
      if (found != scene->List(list).end()) return {scene.get(), found->second.get()};
    }
  return {};
}

/// The field of a node; of one that is switched off an empty one.
std::optional<Field> FieldAt(const Exporter::Scenes& scenes, host::NodeId id) {
  if (const Found found = Find(scenes, id); found.object) return FieldOf(*found.object);
  const host::BaseNode* node = scenes.front()->GetDocument()->Find(id);
  for (const auto& scene : scenes)
    if (node && node->HasAncestor(scene->Server()))
      return EmptyFieldOf(*node, scene->mDomain.cellSize);
  return {};
}

/// The polygons of a mesh node, a mesher or an object of the document.
MeshTable MeshAt(const Exporter::Scenes& scenes, host::NodeId id) {
  const Found found = Find(scenes, id);
  if (const auto* mesh = dynamic_cast<const Mesh*>(found.object)) return TableOf(mesh->mMesh);
  const Scene& scene = found.scene ? *found.scene : *scenes.front();
  const auto* object = dynamic_cast<const host::PolygonObject*>(scene.GetDocument()->Find(id));
  return object ? TableOf(*object, scene.mDomain.worldToSim) : MeshTable{};
}

/// A box in simulation units.
struct Box {
  Vec3d min, max;
};

/// The users' boxes of the solvers of a scene, on whole cells: one box round all.
std::optional<Box> SolverBox(const Scene& scene) {
  std::optional<Box> all;
  for (const auto& [id, object] : scene.List(kListSolvers)) {
    const auto* solver = dynamic_cast<const FluidSolver*>(object.get());
    if (!solver || !solver->Has(FLAG_ENABLED)) continue;
    Box box;
    solver->GetUserBox(box.min, box.max);
    all = all ? Box{Min(all->min, box.min), Max(all->max, box.max)} : box;
  }
  return all;
}

/// The lengths of a staggered field at the centres of its cells.
std::unique_ptr<EGrid<double>> SpeedOf(const Field& field) {
  auto speed = std::make_unique<EGrid<double>>(field.grids[0]->mLayout, kCentre);
  if (!speed->mData) throw std::bad_alloc();
  const auto& g = field.grids;
  ForEachCell({{0, 0, 0}, speed->Dims()}, [&](i32 x, i32 y, i32 z) {
    const Vec3d u{(*g[0])(x, y, z) + (*g[0])(x + 1, y, z), (*g[1])(x, y, z) + (*g[1])(x, y + 1, z),
                  (*g[2])(x, y, z) + (*g[2])(x, y, z + 1)};
    (*speed)(x, y, z) = 0.5 * Length(u);
  });
  return speed;
}

/// What a picture shows, with the grids that were made for it.
struct PictureContent {
  std::vector<PreviewLayer> layers;
  std::vector<PreviewSolid> solids;
  std::vector<PreviewDots> dots;
  std::vector<std::unique_ptr<EGrid<double>>> made;
  std::optional<Box> content;  ///< union of the grids
  Bounds looseBox;             ///< of particles and meshes
  const Scene* scene = nullptr;

  void Add(const Field& field, bool isFirst);
  void Add(const ParticleGroup& group, u32 kinds);
  void Add(const MeshTable& mesh, const Scene& from);
  /// Widens the box of the content.
  void Cover(const GridLayout& layout);
  void AddSolids(const Exporter::Scenes& scenes);
  /// The smoke of a picture with a fire is soot.
  void BlackenByFire();
};

void PictureContent::Cover(const GridLayout& layout) {
  content = content ? Box{{Min(content->min, layout.simOrigin)}, {Max(content->max, layout.simMax)}}
                    : Box{layout.simOrigin, layout.simMax};
}

void PictureContent::Add(const Field& field, bool isFirst) {
  if (!field.HasGrid()) return;
  Cover(field.grids[0]->mLayout);
  if (field.kind == Field::Kind::LevelSet) {
    solids.push_back({field.grids[0], false});
    for (const EGrid<double>* other : field.others) {
      Cover(other->mLayout);
      solids.push_back({other, false});
    }
    return;
  }
  PreviewLayer layer;
  layer.palette = field.isHeat || !isFirst ? Palette::Fire : Palette::Smoke;
  layer.full = field.valueMax > 0 && field.valueMax < 1e12 ? field.valueMax : 1;
  if (field.kind == Field::Kind::Velocity) {
    made.push_back(SpeedOf(field));
    layer.grids[0] = made.back().get();
    layer.palette = Palette::Dust;
    layer.full = 10;  // metres a second
  } else {
    for (int i = 0; i < 3; ++i) layer.grids[i] = field.grids[i];
  }
  layers.push_back(layer);
}

/// A box whose sides lie on steps of at least an eighth of it, so that pictures of particles alone
/// seldom show another box than the last one did.
Box SteadyBox(const Box& box) {
  const Vec3d size = box.max - box.min;
  const double step = std::exp2(std::ceil(std::log2(std::max({size.x, size.y, size.z}))) - 3);
  Box steady;
  for (int a = 0; a < 3; ++a) {
    steady.min[a] = step * std::floor(box.min[a] / step);
    steady.max[a] = step * std::ceil(box.max[a] / step);
  }
  return steady;
}

void PictureContent::Add(const ParticleGroup& group, u32 kinds) {
  constexpr Vec3d kColours[kParticleKinds] = {
      {0.54, 0.58, 0.47}, {0.95, 0.08, 0.07}, {0.12, 0.18, 0.5}, {0.95, 0.95, 0.95}};
  for (i32 kind = 0; kind < kParticleKinds; ++kind) {
    const ParticleStore& store = group.Store(kind);
    if (store.IsEmpty() || (kinds != 0 && !(kinds >> kind & 1))) continue;
    dots.push_back({&store, kColours[kind]});
    const Bounds& own = store.GetBounds().box;
    if (own.IsValid()) looseBox.Add(own);
  }
}

/// As distances in cells of its scene, coarser ones where it is very large.
void PictureContent::Add(const MeshTable& mesh, const Scene& from) {
  constexpr double kMostCells = 256, kMargin = 2;
  if (mesh.polygons.empty()) return;
  TriMeshSTL triangles;
  triangles.GetVertices() = mesh.points;
  mesh.ForEachTriangle([&](i32 a, i32 b, i32 c) { triangles.GetTriangles().push_back({a, b, c}); });
  triangles.UpdateBounds();
  const Vec3d low = triangles.GetBoundsMin(), size = triangles.GetBoundsMax() - low;
  looseBox.Add({low, low + size});
  const GridLayout& domain = from.mDomain;
  const double cell = std::max<double>(domain.cellSize, Largest(size) / kMostCells);
  const Vec3d world = domain.simToWorld * cell;
  VecInt3D dims;
  for (int a = 0; a < 3; ++a) dims[a] = static_cast<i32>(std::ceil(size[a] / cell + 2 * kMargin));
  GridLayout layout;
  layout.Set(dims, ToReal(dims) * world, static_cast<f32>(cell),
             low * domain.simToWorld - world * kMargin);
  auto distance = std::make_unique<EGrid<double>>(layout, kNode);
  if (!distance->mData) throw std::bad_alloc();
  VolumeVoxeliser voxeliser;
  voxeliser.mIsSheet = CountOpenEdges(mesh) > 0 && IsSheet(triangles);
  if (!voxeliser.Voxelise(triangles, *distance, true, from.mThreadCount)) return;
  if (voxeliser.mIsSheet)
    for (i32 i = 0; i < distance->mCount; ++i) distance->mData[i] -= cell;
  solids.push_back({distance.get(), false});
  made.push_back(std::move(distance));
}

void PictureContent::BlackenByFire() {
  const bool burns = std::any_of(layers.begin(), layers.end(), [](const PreviewLayer& layer) {
    return layer.palette == Palette::Fire;
  });
  if (!burns) return;
  for (PreviewLayer& layer : layers)
    if (layer.palette == Palette::Smoke) layer.palette = Palette::Soot;
}

void PictureContent::AddSolids(const Exporter::Scenes& scenes) {
  for (const auto& owner : scenes)
    for (const auto& [id, object] : owner->List(kListGeometry)) {
      auto* named = dynamic_cast<iVolume*>(object.get());
      if (!named || !named->Has(FLAG_ENABLED)) continue;
      std::vector<VolumeBase*> members;
      named->CollectMembers(members);
      for (const VolumeBase* volume : members) {
        if (!volume->HasGridData() || !volume->Has(FLAG_ENABLED) || volume->mInverted) continue;
        const bool isListed = std::any_of(solids.begin(), solids.end(), [&](const PreviewSolid& s) {
          return s.distance == volume->GetGrid();
        });
        if (!isListed) solids.push_back({volume->GetGrid(), !volume->mHasTag});
      }
    }
}

}  // namespace

Exporter::Exporter(std::vector<ExportSpec> exports, fs::path folder, u64 simulation)
    : mExports(std::move(exports)), mFolder(std::move(folder)), mSimulation(simulation) {
  if (!mExports.empty()) MakeFolder(mFolder);
}

std::vector<WrittenFile> Exporter::Write(i32 frame, const Scenes& scenes) {
  std::vector<WrittenFile> written;
  for (const ExportSpec& spec : mExports) {
    if (spec.IsOfWholeRun()) continue;
    const std::string bytes = spec.format == "vdb"      ? EncodeVolumes(spec, frame, scenes)
                              : spec.format == "points" ? EncodePoints(spec, frame, scenes)
                              : spec.format == "mesh"   ? EncodeMeshOf(spec, scenes)
                                                        : EncodePicture(spec, frame, scenes);
    const fs::path path = mFolder / host::FrameFileName(spec.file, frame);
    WriteFileAtomically(path, bytes);
    written.push_back({path, bytes.size(), ChecksumOf(bytes)});
  }
  return written;
}

std::string Exporter::EncodeVolumes(const ExportSpec& spec, i32 frame, const Scenes& scenes) const {
  std::vector<NamedField> fields;
  for (const auto& [name, node] : spec.grids) {
    if (const std::optional<Field> field = FieldAt(scenes, node)) fields.push_back({name, *field});
  }
  return EncodeVdb(fields, OriginOf(frame, scenes));
}

std::string Exporter::EncodePoints(const ExportSpec& spec, i32 frame, const Scenes& scenes) {
  static const ParticleSet none{};
  const Found found = Find(scenes, spec.particles.front());
  const auto* group = dynamic_cast<const ParticleGroup*>(found.object);
  const ParticleSet& particles = group && group->Has(FLAG_ENABLED) ? *group : none;
  const Scene& scene = found.scene ? *found.scene : *scenes.front();
  const exchange::NamedFormat named = exchange::FormatOfName(spec.file);
  exchange::ParticleTable table = TableOf(particles, spec.kinds);
  table.spacing = scene.mDomain.cellSize;
  table.remarks = RemarksOf(OriginOf(frame, scenes), "m");
  table.remarks.emplace_back("comment", "metres, seconds");
  exchange::WriteReport report;
  std::string bytes = exchange::EncodeParticles(table, *named.format, named.isGzip, &report);
  for (const std::string& clause : mReports[spec.file].News(report))
    mWarnings.push_back(fmt::format("export {}: {}", Shown(spec.file), clause));
  return bytes;
}

std::string Exporter::EncodeMeshOf(const ExportSpec& spec, const Scenes& scenes) const {
  return EncodeMesh(MeshAt(scenes, spec.meshes.front()), fs::path(spec.file).extension().string());
}

ExportOrigin Exporter::OriginOf(i32 frame, const Scenes& scenes) const {
  const SulvaScene& scene = *scenes.front();
  return {SULVA_VERSION, frame, scene.mTime.elapsed, scene.GetDocument()->fps, mSimulation};
}

std::string Exporter::EncodePicture(const ExportSpec& spec, i32 frame, const Scenes& scenes) const {
  PictureContent content;
  std::vector<StoredObject> shown;
  bool isFirst = true;
  for (const auto& [name, node] : spec.grids) {
    const Found found = Find(scenes, node);
    const std::optional<Field> field = found.object ? FieldOf(*found.object) : std::nullopt;
    if (!field) continue;
    shown.push_back({found.object->mName, field->unit});
    if (!content.scene) content.scene = found.scene;
    content.Add(*field, isFirst);
    isFirst = false;
  }
  for (const host::NodeId node : spec.particles) {
    const Found found = Find(scenes, node);
    const auto* group = dynamic_cast<const ParticleGroup*>(found.object);
    if (!group || !group->Has(FLAG_ENABLED)) continue;
    shown.push_back({group->mName, "particles"});
    if (!content.scene) content.scene = found.scene;
    content.Add(*group, spec.kinds);
  }
  for (const host::NodeId node : spec.meshes) {
    const Found found = Find(scenes, node);
    if (!content.scene) content.scene = found.scene;
    content.Add(MeshAt(scenes, node), content.scene ? *content.scene : *scenes.front());
    shown.push_back({scenes.front()->GetDocument()->Find(node)->Name(), "polygons"});
  }
  const Scene& scene = content.scene ? *content.scene : *scenes.front();
  if (content.looseBox.IsValid() && !content.content)
    content.content = SteadyBox({content.looseBox.min, content.looseBox.max});
  content.BlackenByFire();
  content.AddSolids(scenes);
  const double h = scene.mDomain.cellSize;
  const Box box = SolverBox(scene).value_or(content.content.value_or(Box{{}, {h, h, h}}));
  PreviewView view{box.min, box.max, h, spec.axis == 'x' ? 0 : spec.axis == 'y' ? 1 : 2};
  return EncodePng(DrawPreview(view, content.layers, content.solids, content.dots),
                   TextsOf(OriginOf(frame, scenes), shown));
}

}  // namespace MELDO_GLOBAL::app
