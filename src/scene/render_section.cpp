#include "scene/render_section.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "fluids/mesh/mesh.h"
#include "host/deformer.h"
#include "host/polygon_object.h"
#include "host/render_objects.h"
#include "nodes/media.h"
#include "scene/output_name.h"

namespace MELDO_GLOBAL::app {

using namespace host;

const std::vector<MaterialType>& MaterialTypes() {
  using Use = MaterialType::Use;
  static const std::vector<MaterialType> types = [] {
    std::vector<MaterialType> all = {
        {kSurfaceMaterial, "surface", SurfaceParameters, Use::Surface},
        {kDielectricMaterial, kDielectricName, DielectricParameters, Use::Surface},
        {kGridSamplerShader, kGridSamplerName, GridSamplerParameters, Use::Shader},
        {kParticleMaterial, kParticlesName, ParticleMaterialParameters, Use::Particles}};
    for (const MediumType& type : MediumTypes())
      all.push_back({type.id, type.name, type.rows, Use::Medium});
    return all;
  }();
  return types;
}

const std::vector<PictureTable>& PictureTables() {
  static const std::vector<PictureTable> tables = [] {
    std::vector<PictureTable> all = {
        {"camera", "\"parameters\" of an object of the type camera", CameraParameters},
        {"light", "\"parameters\" of an object of the type light", LightParameters},
        {"deformer", "\"parameters\" of an object of the type deformer, which bends particles",
         DeformerParameters},
        {"render",
         "keys of the section \"render\" beside size, files, camera, lights and materials",
         RenderParameters}};
    for (const MaterialType& type : MaterialTypes())
      all.push_back({type.name, "\"parameters\" of a material of this type", type.rows});
    return all;
  }();
  return tables;
}

namespace {

const Subject kSubject = "render: ";

class RenderReader {
 public:
  RenderReader(SceneContext& context, SceneBuilder& builder)
      : mContext(context), mBuilder(builder), mValues(context, builder.Names()) {}

  std::optional<RenderSpec> Read(const JsonValue& section) {
    CheckKeys(section);
    mSpec.settings = &Create(kRenderSettings, "render settings", RenderParameters());
    mSpec.standard = &Create(kSurfaceMaterial, "standard surface", SurfaceParameters());
    ReadSize(section.Find("size"));
    ReadFiles(section.Find("files"));
    // All names first, then what refers to them.
    const JsonValue* materials = section.Find("materials");
    MakeMaterials(materials);
    ReadCamera(section);
    ReadLights(section.Find("lights"));
    for (const SurfaceEntry& entry : mSurfaces) AssignSurface(entry);
    ReadSettings(section);
    if (!mSpec.camera) return {};
    return std::move(mSpec);
  }

 private:
  /// A material of surfaces, where it stands and what kind it is.
  struct SurfaceEntry {
    const JsonValue* value;
    BaseNode* node;
    std::string_view type;
  };

  void CheckKeys(const JsonValue& section) {
    std::vector<std::string_view> keys(std::begin(kRenderKeys), std::end(kRenderKeys));
    for (const ParameterRow& row : RenderParameters()) keys.push_back(row.name);
    mContext.CheckKeys(section, keys, kSubject);
  }

  BaseNode& Create(i32 type, const std::string& name, const ParameterTable& table) {
    auto& node = mContext.document.Create<BaseNode>(type, name, nullptr);
    node.SetTable(&table);
    return node;
  }

  void ReadSize(const JsonValue* size) {
    if (!size) return;
    const auto numbers = mContext.ReadNumbers(*size, 2, kSubject, "'size'");
    if (!numbers) return;
    i32* const sides[] = {&mSpec.width, &mSpec.height};
    for (std::size_t i = 0; i < 2; ++i) {
      const auto side = mContext.ReadWhole((*size->Items())[i], kSubject, "'size'");
      if (!side) continue;
      if (*side < 1 || *side > kLargestPicture)
        mContext.Error((*size->Items())[i], kSubject,
                       fmt::format("'size': {} is out of range; expected 1 to {} pixels", *side,
                                   kLargestPicture));
      *sides[i] = *side;
    }
  }

  void ReadFiles(const JsonValue* files) {
    if (!files) {
      mSpec.files = {"render/####.png"};
      return;
    }
    if (!files->Items() || files->Items()->empty()) {
      mContext.Error(*files, kSubject, "'files': expected a list of file names, at least one");
      return;
    }
    for (const JsonValue& item : *files->Items()) {
      const auto text = mContext.ReadText(item, kSubject, "'files'");
      if (text && IsPictureName(item, *text)) mSpec.files.push_back(*text);
    }
  }

  bool IsPictureName(const JsonValue& at, const std::string& text) {
    const std::filesystem::path path(text);
    const std::string extension = path.extension().string();
    std::string wrong;
    if (text.find('\0') != std::string::npos || text.find('#') == std::string::npos)
      wrong = "needs a run of # for the frame number, as in 'render/####.png'";
    else if (extension != ".png" && extension != ".exr")
      wrong = "has to end in .png or .exr";
    else if (const std::string fault = FaultOfOutputName(text); !fault.empty())
      wrong = fault;
    else if (std::find(mSpec.files.begin(), mSpec.files.end(), text) != mSpec.files.end())
      wrong = "is written already";
    if (!wrong.empty())
      mContext.Error(at, kSubject, fmt::format("'files': '{}' {}", Shown(text), wrong));
    return wrong.empty();
  }

  void ReadCamera(const JsonValue& section) {
    const JsonValue* camera = section.Find("camera");
    if (!camera) {
      const std::vector<BaseNode*> all = ObjectsOfType(kCameraObject);
      if (all.size() == 1) mSpec.camera = all.front();
      if (all.size() != 1)
        mContext.Error(section, kSubject,
                       all.empty()
                           ? "'camera' is missing; give it as \"camera\": { \"position\": [x, y, "
                             "z], \"parameters\": { \"target\": [x, y, z] } }"
                           : "'camera' is missing: the scene has several; name one of them");
      return;
    }
    mSpec.camera = ReadNode(*camera, "camera", kCameraObject);
  }

  void ReadLights(const JsonValue* lights) {
    if (!lights) {
      mSpec.lights = ObjectsOfType(kLightObject);
      return;
    }
    if (!lights->Items()) {
      mContext.Error(*lights, kSubject,
                     fmt::format("'lights': expected a list, got {}", KindOf(*lights)));
      return;
    }
    for (const JsonValue& item : *lights->Items()) {
      BaseNode* light = ReadNode(item, "light", kLightObject);
      if (light && std::find(mSpec.lights.begin(), mSpec.lights.end(), light) != mSpec.lights.end())
        mContext.Error(item, kSubject,
                       fmt::format("'lights': '{}' stands here twice", Shown(light->Name())));
      else if (light)
        mSpec.lights.push_back(light);
    }
  }

  std::vector<BaseNode*> ObjectsOfType(i32 type) const {
    std::vector<BaseNode*> found;
    mContext.document.ForEachNode([&](BaseNode& node) {
      if (node.Type() == type) found.push_back(&node);
    });
    return found;
  }

  /// A camera or light: the name of an object of the scene, or an object that stands here.
  BaseNode* ReadNode(const JsonValue& value, std::string_view word, i32 type) {
    if (value.Members()) return mBuilder.MakeObjectOf(value, word);
    const std::string what = fmt::format("'{}'", word);
    if (const std::string* name = value.Text()) {
      BaseNode* node = mValues.ResolveLink(*name, {type}, value, kSubject, what);
      return node && node->Type() == type ? node : nullptr;
    }
    mContext.Error(value, kSubject,
                   fmt::format("{}: expected the name of a {} or an object, got {}", what, word,
                               KindOf(value)));
    return nullptr;
  }

  void MakeMaterials(const JsonValue* materials) {
    if (!materials) return;
    if (!materials->Items()) {
      mContext.Error(*materials, kSubject,
                     fmt::format("'materials': expected a list, got {}", KindOf(*materials)));
      return;
    }
    for (const JsonValue& item : *materials->Items()) {
      if (item.Members())
        MakeMaterial(item);
      else
        mContext.Error(item, kSubject,
                       fmt::format("'materials': expected an object, got {}", KindOf(item)));
    }
  }

  void MakeMaterial(const JsonValue& value) {
    const MaterialType* type = TypeOf(value);
    if (!type) return;
    std::vector<std::string_view> keys = {"type", "name", "parameters"};
    if (type->use == MaterialType::Use::Surface) keys.push_back("objects");
    BaseNode* node = mBuilder.MakeMaterial(value, type->id, type->name, type->rows(), keys);
    switch (type->use) {
      case MaterialType::Use::Surface: mSurfaces.push_back({&value, node, type->name}); break;
      case MaterialType::Use::Medium: mSpec.media.push_back(node); break;
      case MaterialType::Use::Shader: mSpec.shaders.push_back(node); break;
      case MaterialType::Use::Particles: mSpec.particles.push_back(node); break;
    }
  }

  const MaterialType* TypeOf(const JsonValue& value) {
    const JsonValue* type = value.Find("type");
    std::vector<std::string_view> names;
    std::vector<std::string> words;
    for (const MaterialType& known : MaterialTypes()) {
      names.push_back(known.name);
      words.emplace_back(known.name);
      if (!type) continue;
      const std::string id = std::to_string(known.id);
      if (type->Text() && (*type->Text() == known.name || *type->Text() == id)) return &known;
      if (type->Number() && *type->Number() == known.id) return &known;
    }
    if (!type) {
      mContext.Error(value, kSubject, "material: 'type' is missing; expected " + AnyOf(words));
    } else if (const std::string* text = type->Text()) {
      mContext.Error(*type, kSubject,
                     fmt::format("unknown material type '{}'; expected {}{}", Shown(*text),
                                 AnyOf(words), mContext.Suggest(*text, names)));
    } else {
      mContext.Error(
          *type, kSubject,
          fmt::format("material: 'type': expected {}, got {}", AnyOf(words), KindOf(*type)));
    }
    return nullptr;
  }

  /// A surface without a list of objects is that of all objects without a surface.
  void AssignSurface(const SurfaceEntry& entry) {
    const JsonValue& value = *entry.value;
    BaseNode& node = *entry.node;
    const JsonValue* objects = value.Find("objects");
    const Subject subject = fmt::format("{} \"{}\": ", entry.type, Shown(node.Name()));
    if (!objects) {
      if (mHasStandard)
        mContext.Error(value, subject, "'objects' is missing; only one surface may be without it");
      mHasStandard = true;
      mSpec.standard = &node;
      return;
    }
    if (!objects->Items()) {
      mContext.Error(*objects, subject,
                     fmt::format("'objects': expected a list of names, got {}", KindOf(*objects)));
      return;
    }
    for (const JsonValue& item : *objects->Items()) {
      const auto name = mContext.ReadText(item, subject, "'objects'");
      const BaseNode* object =
          name ? mValues.ResolveLink(*name,
                                     {kMeshObject, MELDO_SULVA::kMeshMakerNode, kGeometryNode},
                                     item, subject, "'objects'")
               : nullptr;
      if (!object) continue;
      const auto isSame = [&](const auto& given) { return given.first == object->Id(); };
      if (std::any_of(mSpec.surfaces.begin(), mSpec.surfaces.end(), isSame))
        mContext.Error(item, subject,
                       fmt::format("'objects': '{}' has a surface already", Shown(*name)));
      mSpec.surfaces.emplace_back(object->Id(), &node);
    }
  }

  void ReadSettings(const JsonValue& section) {
    for (const JsonMember& member : *section.Members())
      for (const ParameterRow& row : RenderParameters())
        if (row.name == member.key)
          mValues.ReadParameter(row, member.value, *mSpec.settings, mContext.document.previewMin,
                                kSubject);
  }

  SceneContext& mContext;
  SceneBuilder& mBuilder;
  ValueReader mValues;
  RenderSpec mSpec;
  std::vector<SurfaceEntry> mSurfaces;
  bool mHasStandard = false;
};

}  // namespace

std::optional<RenderSpec> ReadRender(SceneContext& context, SceneBuilder& builder,
                                     const JsonValue& section) {
  if (section.Members()) return RenderReader(context, builder).Read(section);
  context.Error(section, "", fmt::format("'render': expected an object, got {}", KindOf(section)));
  return {};
}

}  // namespace MELDO_GLOBAL::app
