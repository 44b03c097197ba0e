#include "scene/scene_exports.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "exchange/particle_files.h"
#include "fluids/mesh/mesh.h"
#include "fluids/particles/particle_group.h"
#include "nodes/catalogue.h"
#include "scene/output_name.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using MELDO_SULVA::Catalogue;
using MELDO_SULVA::kMeshMakerNode;
using MELDO_SULVA::Mesh;
using MELDO_SULVA::NodeKind;
using MELDO_SULVA::ParticleGroup;

namespace {

/// A format with the keys that only it has.
struct Format {
  std::string_view name;
  std::vector<std::string_view> keys;
};

const std::vector<Format>& Formats() {
  static const std::vector<Format> formats = {
      {"vdb", {"grids"}},
      {"png", {"grids", "particles", "kinds", "meshes", "axis"}},
      {"points", {"particles", "kinds"}},
      {"mesh", {"mesh"}},
      {"bodies", {}},
  };
  return formats;
}

/// The kinds of nodes that hold grids: channels, solvers and volumes.
std::vector<i32> KindsWithGrids() {
  std::vector<i32> ids;
  for (const NodeKind& kind : Catalogue()) {
    const bool isVolume =
        kind.list == MELDO_SULVA::kListGeometry && (kind.categories & MELDO_SULVA::kCategoryVolume);
    if (kind.list == MELDO_SULVA::kListChannels || kind.list == MELDO_SULVA::kListSolvers ||
        isVolume)
      ids.push_back(kind.id);
  }
  return ids;
}

/// The suffixes between which a format is chosen; none where it has but one.
std::vector<std::string> SuffixesOf(const std::string& format) {
  if (format == "points") {
    std::vector<std::string> suffixes = {".ply", ".csv", ".vdb"};
    for (const exchange::ParticleFormat* each : exchange::ParticleFormats())
      for (const std::string_view suffix : each->extensions)
        if (each->write && std::find(suffixes.begin(), suffixes.end(), suffix) == suffixes.end())
          suffixes.emplace_back(suffix);
    return suffixes;
  }
  if (format == "mesh") return {".ply", ".obj", ".stl", ".glb"};
  if (format == "bodies") return {".glb"};
  return {};
}

/// Whether a file's name ends in one of the suffixes; those of points may have .gz behind it where
/// the format is wrapped so.
bool NamesFormat(const std::string& format, const std::filesystem::path& path,
                 const std::vector<std::string>& suffixes) {
  const auto has = [&](const std::string& suffix) {
    return std::find(suffixes.begin(), suffixes.end(), suffix) != suffixes.end();
  };
  if (has(path.extension().string())) return true;
  const exchange::NamedFormat named = exchange::FormatOfName(path);
  return format == "points" && named.isGzip && named.format &&
         named.format->gzip != exchange::GzipUse::Never && has(path.stem().extension().string());
}

class ExportReader {
 public:
  ExportReader(SceneContext& context, const NameTable& names)
      : mContext(context), mValues(context, names), mKinds(KindsWithGrids()) {}

  std::optional<ExportSpec> Read(const JsonValue& value) {
    const Format* format = ReadFormat(value);
    if (!format) return {};
    const Subject subject = fmt::format("{} export: ", format->name);
    std::vector<std::string_view> keys = {"format", "file"};
    keys.insert(keys.end(), format->keys.begin(), format->keys.end());
    mContext.CheckKeys(value, keys, subject);
    ExportSpec spec;
    spec.format = format->name;
    spec.where = mContext.Where(value);
    const bool hasFile = ReadFile(value, spec, subject);
    const bool hasContent = ReadContent(value, spec, subject);
    const bool hasKinds = ReadKinds(value, spec, subject);
    const bool hasAxis = ReadAxis(value, spec, subject);
    if (!hasFile || !hasContent || !hasKinds || !hasAxis) return {};
    return spec;
  }

 private:
  const Format* ReadFormat(const JsonValue& value) {
    const JsonValue* word = value.Find("format");
    if (!word) {
      mContext.Error(value, "export: ", "'format' is missing");
      return nullptr;
    }
    const auto text = mContext.ReadText(*word, "export: ", "'format'");
    if (!text) return nullptr;
    std::vector<std::string_view> names;
    for (const Format& format : Formats()) {
      if (format.name == *text) return &format;
      names.push_back(format.name);
    }
    mContext.Error(
        *word, "export: ",
        fmt::format("unknown format '{}'; expected {}{}", Shown(*text),
                    AnyOf({names.begin(), names.end()}), mContext.Suggest(*text, names)));
    return nullptr;
  }

  bool ReadFile(const JsonValue& value, ExportSpec& spec, const Subject& subject) {
    const JsonValue* file = value.Find("file");
    if (!file) {
      mContext.Error(value, subject, "'file' is missing");
      return false;
    }
    const auto text = mContext.ReadText(*file, subject, "'file'");
    if (!text) return false;
    const std::filesystem::path path(*text);
    const std::vector<std::string> suffixes = SuffixesOf(spec.format);
    const std::string suffix = suffixes.empty() ? "." + spec.format : suffixes.front();
    const bool isName = text->find('\0') == std::string::npos && path.has_filename();
    const bool hasNumber = text->find('#') != std::string::npos;
    if (!isName || hasNumber == spec.IsOfWholeRun()) {
      mContext.Error(*file, subject,
                     spec.IsOfWholeRun()
                         ? fmt::format("'file': '{}' has to name one file for all frames, as in "
                                       "'{}{}'",
                                       Shown(*text), spec.format, suffix)
                         : fmt::format("'file': '{}' needs a run of # for the frame number, as in "
                                       "'{}/####{}'",
                                       Shown(*text), spec.format, suffix));
      return false;
    }
    if (!suffixes.empty() && !NamesFormat(spec.format, path, suffixes)) {
      const std::vector<std::string_view> names(suffixes.begin(), suffixes.end());
      mContext.Error(
          *file, subject,
          fmt::format("'file': '{}' tells the format by its suffix; expected {}{}", Shown(*text),
                      AnyOf(suffixes), mContext.Suggest(path.extension().string(), names)));
      return false;
    }
    if (const std::string fault = FaultOfOutputName(*text); !fault.empty()) {
      mContext.Error(*file, subject, fmt::format("'file': '{}' {}", Shown(*text), fault));
      return false;
    }
    const auto [first, isNew] = mFiles.try_emplace(path.lexically_normal().string(), file->line);
    if (!isNew) {
      mContext.Error(*file, subject,
                     fmt::format("'file': the export in line {} writes '{}' too", first->second,
                                 Shown(*text)));
      return false;
    }
    spec.file = *text;
    return true;
  }

  /// What the format shows: fields, particles, meshes, or in a picture at least one of them.
  bool ReadContent(const JsonValue& value, ExportSpec& spec, const Subject& subject) {
    if (spec.IsOfWholeRun()) return true;
    if (spec.format == "vdb") return ReadGrids(value, spec, subject);
    if (spec.format == "points") return ReadParticles(value, spec, subject);
    if (spec.format == "mesh") return ReadMeshes(value, "mesh", spec, subject);
    const bool hasParticles = value.Find("particles"), hasMeshes = value.Find("meshes");
    bool isWhole = !hasParticles || ReadParticles(value, spec, subject);
    isWhole = (!hasMeshes || ReadMeshes(value, "meshes", spec, subject)) && isWhole;
    if ((hasParticles || hasMeshes) && !value.Find("grids")) return isWhole;
    return ReadGrids(value, spec, subject) && isWhole;
  }

  bool ReadMeshes(const JsonValue& value, std::string_view key, ExportSpec& spec,
                  const Subject& subject) {
    const std::string what = fmt::format("'{}'", key);
    const auto read = [&](const JsonValue& at) {
      const auto name = mContext.ReadText(at, subject, what);
      const BaseNode* node =
          name ? mValues.ResolveLink(*name,
                                     {Mesh::Kind().id, kMeshMakerNode, kGeometryNode, kMeshObject},
                                     at, subject, what, "a mesher, a mesh or an object of polygons")
               : nullptr;
      if (node) spec.meshes.push_back(node->Id());
      return node != nullptr;
    };
    return ReadOneOrMore(value, key, spec, subject, read);
  }

  /// A name, or in a picture a list of them.
  template <class Read>
  bool ReadOneOrMore(const JsonValue& value, std::string_view key, const ExportSpec& spec,
                     const Subject& subject, Read&& read) {
    const JsonValue* named = value.Find(key);
    if (!named) {
      mContext.Error(value, subject, fmt::format("'{}' is missing", key));
      return false;
    }
    if (spec.format != "png" || !named->Items()) return read(*named);
    bool isWhole = true;
    for (const JsonValue& item : *named->Items()) isWhole = read(item) && isWhole;
    return isWhole;
  }

  bool ReadParticles(const JsonValue& value, ExportSpec& spec, const Subject& subject) {
    const auto read = [&](const JsonValue& at) {
      const auto name = mContext.ReadText(at, subject, "'particles'");
      const BaseNode* node = name ? mValues.ResolveLink(*name, {ParticleGroup::kNodeType}, at,
                                                        subject, "'particles'", "a particle group")
                                  : nullptr;
      if (node) spec.particles.push_back(node->Id());
      return node != nullptr;
    };
    return ReadOneOrMore(value, "particles", spec, subject, read);
  }

  bool ReadKinds(const JsonValue& value, ExportSpec& spec, const Subject& subject) {
    const JsonValue* kinds = value.Find("kinds");
    if (!kinds || spec.format == "vdb" || spec.format == "mesh" || spec.IsOfWholeRun()) return true;
    std::vector<std::string> words;
    for (const auto& row : MELDO_SULVA::kParticleKindRows) words.emplace_back(row.name);
    const auto refuse = [&](const JsonValue& at) {
      mContext.Error(at, subject, fmt::format("'kinds': expected a list of {}", AnyOf(words)));
      return false;
    };
    if (!kinds->Items() || kinds->Items()->empty()) return refuse(*kinds);
    for (const JsonValue& item : *kinds->Items()) {
      const std::string* word = item.Text();
      const auto found = std::find(words.begin(), words.end(), word ? *word : std::string());
      if (found == words.end()) return refuse(item);
      spec.kinds |= 1u << (found - words.begin());
    }
    return true;
  }

  bool ReadGrids(const JsonValue& value, ExportSpec& spec, const Subject& subject) {
    const JsonValue* grids = value.Find("grids");
    if (!grids || !grids->Members() || grids->Members()->empty()) {
      mContext.Error(grids ? *grids : value, subject,
                     "'grids': expected an object of names in the file and nodes, at least one");
      return false;
    }
    bool isWhole = true;
    for (const JsonMember& member : *grids->Members()) {
      const std::string what = fmt::format("grid '{}'", Shown(member.key));
      if (member.key.empty()) {
        mContext.Error(member, subject, "'grids': a grid needs a name");
        isWhole = false;
        continue;
      }
      const auto name = mContext.ReadText(member.value, subject, what);
      const BaseNode* node = name ? mValues.ResolveLink(*name, mKinds, member.value, subject, what,
                                                        "a channel, a solver or a volume")
                                  : nullptr;
      if (node) spec.grids.emplace_back(member.key, node->Id());
      isWhole = isWhole && node;
    }
    return isWhole;
  }

  bool ReadAxis(const JsonValue& value, ExportSpec& spec, const Subject& subject) {
    const JsonValue* axis = value.Find("axis");
    if (!axis || spec.format != "png") return true;
    const std::string* text = axis->Text();
    if (text && (*text == "x" || *text == "y" || *text == "z")) {
      spec.axis = text->front();
      return true;
    }
    mContext.Error(*axis, subject, "'axis': expected \"x\", \"y\" or \"z\"");
    return false;
  }

  SceneContext& mContext;
  ValueReader mValues;
  std::vector<i32> mKinds;
  std::map<std::string, u32> mFiles;
};

}  // namespace

std::vector<ExportSpec> ReadExports(SceneContext& context, const NameTable& names,
                                    const JsonValue& list) {
  std::vector<ExportSpec> exports;
  if (!list.Items()) {
    context.Error(list, "", fmt::format("'exports': expected a list, got {}", KindOf(list)));
    return exports;
  }
  ExportReader reader(context, names);
  for (const JsonValue& item : *list.Items()) {
    if (!item.Members()) {
      context.Error(item, "", fmt::format("'exports': expected an object, got {}", KindOf(item)));
    } else if (auto spec = reader.Read(item)) {
      exports.push_back(std::move(*spec));
    }
  }
  return exports;
}

}  // namespace MELDO_GLOBAL::app
