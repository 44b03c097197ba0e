#include "io/exporter.h"

#include <algorithm>

#include "fluids/solvers/fluid_solver.h"
#include "fluids/volume/volume_base.h"
#include "host/exit_codes.h"
#include "host/polygon_object.h"
#include "io/vdb_writer.h"
#include "scene/command_files.h"

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
  std::vector<std::unique_ptr<EGrid<double>>> made;
  std::optional<Box> content;  ///< union of the grids
  const Scene* scene = nullptr;

  void Add(const Field& field, bool isFirst);
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

std::vector<WrittenFile> Exporter::Write(i32 frame, const Scenes& scenes) const {
  std::vector<WrittenFile> written;
  for (const ExportSpec& spec : mExports) {
    const std::string bytes = spec.format == "vdb" ? EncodeVolumes(spec, frame, scenes)
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
  const Scene& scene = content.scene ? *content.scene : *scenes.front();
  content.BlackenByFire();
  content.AddSolids(scenes);
  const double h = scene.mDomain.cellSize;
  const Box box = SolverBox(scene).value_or(content.content.value_or(Box{{}, {h, h, h}}));
  PreviewView view{box.min, box.max, h, spec.axis == 'x' ? 0 : spec.axis == 'y' ? 1 : 2};
  return EncodePng(DrawPreview(view, content.layers, content.solids),
                   TextsOf(OriginOf(frame, scenes), shown));
}

}  // namespace MELDO_GLOBAL::app
