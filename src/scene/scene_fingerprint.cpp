#include "scene/scene_fingerprint.h"

#include <algorithm>

#include "cache/cache_rows.h"
#include "cache/hyper_file.h"
#include "exchange/particles_object.h"
#include "framework/plugin_kinds.h"
#include "host/atomic_file.h"
#include "host/image.h"
#include "host/polygon_object.h"
#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::app {

namespace {

template <class T>
void AppendBytes(std::string& out, const T* data, std::size_t count) {
  const u64 length = count;
  out.append(reinterpret_cast<const char*>(&length), sizeof length);
  out.append(reinterpret_cast<const char*>(data), count * sizeof(T));
}

/// A list of nodes may hold some that don't count.
using Names = std::set<std::string>;

const std::string* TextOf(const JsonValue& object, const char* key) {
  const JsonValue* value = object.Find(key);
  return value ? value->Text() : nullptr;
}

bool IsOneOf(const JsonValue& value, const Names& names) {
  if (names.empty() || !value.Members()) return false;
  const std::string *name = TextOf(value, "name"), *type = TextOf(value, "type");
  if (!name || !type || !names.contains(*name)) return false;
  const MELDO_SULVA::NodeKind* kind = MELDO_SULVA::FindKind(*type);
  return kind && kind->list == MELDO_SULVA::kListCaches;
}

/// Texts that may stand in any order; empty ones say nothing.
void AppendSorted(std::string& out, std::vector<std::string> texts) {
  std::sort(texts.begin(), texts.end());
  for (const std::string& text : texts)
    if (!text.empty()) AppendBytes(out, text.data(), text.size());
}

/// Nodes and objects are told apart by their names: their order in the file means nothing.
bool IsListOfNodes(std::string_view key) {
  return key == "nodes" || key == "children" || key == "objects";
}

/// A text in which different values differ; `key` is that of the value in its object.
void Append(std::string& out, const JsonValue& value, const Names& without,
            std::string_view key = {}) {
  out += static_cast<char>('0' + value.data.index());
  if (const bool* truth = value.Bool()) out += *truth ? '1' : '0';
  if (const double* number = value.Number()) AppendBytes(out, number, 1);
  if (const std::string* text = value.Text()) AppendBytes(out, text->data(), text->size());
  if (const JsonValue::Array* items = value.Items()) {
    std::vector<std::string> nodes;
    for (const JsonValue& item : *items) {
      if (IsOneOf(item, without)) continue;
      const bool isNode = IsListOfNodes(key) && item.Members();
      Append(isNode ? nodes.emplace_back() : out, item, without);
    }
    AppendSorted(out, std::move(nodes));
    out += ']';
  }
  if (const JsonValue::Object* members = value.Members()) {
    std::vector<std::string> texts;
    for (const JsonMember& member : *members) {
      std::string& text = texts.emplace_back();
      AppendBytes(text, member.key.data(), member.key.size());
      Append(text, member.value, without, member.key);
    }
    AppendSorted(out, std::move(texts));
    out += '}';
  }
}

/// All files of a sequence, also those of later frames. Very large ones count by size and time:
/// nobody waits for gigabytes to be read before the first frame.
void AppendSequence(std::string& out, const std::string& pattern) {
  constexpr u64 kMostBytes = u64{512} << 20;
  const std::map<i32, std::filesystem::path> files = host::FilesOfSequence(pattern);
  u64 total = 0;
  std::error_code failed;
  for (const auto& [frame, path] : files) {
    const u64 size = std::filesystem::file_size(path, failed);
    if (!failed) total += size;
  }
  for (const auto& [frame, path] : files) {
    AppendBytes(out, &frame, 1);
    if (total <= kMostBytes) {
      // What can't be read ends the run in its own frame.
      try {
        const u64 sum = ChecksumOf(host::ReadFile(path));
        AppendBytes(out, &sum, 1);
      } catch (const host::FileError&) {
        continue;
      }
    } else {
      const u64 size = std::filesystem::file_size(path, failed);
      const i64 time = std::filesystem::last_write_time(path, failed).time_since_epoch().count();
      AppendBytes(out, &size, 1);
      AppendBytes(out, &time, 1);
    }
  }
}

/// The scripts of a node, which may stand in files of their own.
void AppendScripts(std::string& out, const host::BaseNode& node) {
  if (!node.Table()) return;
  for (const host::ParameterRow& row : *node.Table()) {
    const host::TextOrigin* origin = row.script ? node.OriginOf(row.id) : nullptr;
    const host::Value* value = origin ? node.Get(row.id) : nullptr;
    const auto* text = value ? std::get_if<std::string>(value) : nullptr;
    if (text) AppendBytes(out, text->data(), text->size());
  }
}

void AppendHostData(std::string& out, const host::BaseNode& node) {
  const auto* object = dynamic_cast<const host::PolygonObject*>(&node);
  if (object && !object->IsOutput()) {
    const host::Geometry& geometry = object->GetGeometry();
    AppendBytes(out, geometry.points.data(), geometry.points.size());
    AppendBytes(out, geometry.polygons.data(), geometry.polygons.size());
    if (!object->FramePattern().empty()) AppendSequence(out, object->FramePattern());
    for (const auto& [frame, placement] : object->GetPlacements().Frames()) {
      AppendBytes(out, &frame, 1);
      AppendBytes(out, &placement, 1);
    }
  }
  const auto* particles = dynamic_cast<const exchange::ParticlesObject*>(&node);
  if (particles && !particles->IsOutput()) {
    for (const exchange::ParticleColumn& column : particles->Table().Columns())
      std::visit([&](const auto& list) { AppendBytes(out, list.data(), list.size()); },
                 column.values);
    if (!particles->FramePattern().empty()) AppendSequence(out, particles->FramePattern());
  }
  if (const auto* image = dynamic_cast<const host::ImageObject*>(&node)) {
    AppendBytes(out, &image->picture.width, 1);
    AppendBytes(out, image->picture.pixels.data(), image->picture.pixels.size());
  }
  AppendScripts(out, node);
  if (const MELDO_SULVA::PluginKind* plugin = MELDO_SULVA::FindPluginKind(node.Type()))
    AppendBytes(out, plugin->identity.data(), plugin->identity.size());
  std::vector<std::string> children;
  for (const host::BaseNode* child : node.Children())
    AppendHostData(children.emplace_back(), *child);
  AppendSorted(out, std::move(children));
}

}  // namespace

u64 FingerprintOf(const JsonValue& scene, const std::vector<std::string>& overrides,
                  const host::Document& document, const Names& without) {
  std::string out;
  std::vector<std::string> sections;
  if (const JsonValue::Object* members = scene.Members())
    for (const JsonMember& member : *members) {
      if (member.key == "exports" || member.key == "render" || member.key == "range" ||
          member.key == "$schema")
        continue;
      std::string& text = sections.emplace_back();
      AppendBytes(text, member.key.data(), member.key.size());
      Append(text, member.value, without, member.key);
    }
  AppendSorted(out, std::move(sections));
  AppendBytes(out, &document.previewMin, 1);
  for (const std::string& text : overrides) AppendBytes(out, text.data(), text.size());
  std::vector<std::string> polygons;
  for (const host::BaseNode* root : document.Roots())
    AppendHostData(polygons.emplace_back(), *root);
  AppendSorted(out, std::move(polygons));
  return ChecksumOf(out);
}

bool IsRecorder(const host::BaseNode& node) {
  const MELDO_SULVA::NodeKind* kind = MELDO_SULVA::FindKind(node.Type());
  const host::Value* mode = node.Get(MELDO_SULVA::cache_row::kMode);
  return kind && kind->list == MELDO_SULVA::kListCaches && mode &&
         *mode != host::Value(i32{MELDO_SULVA::cache_row::kPlayBack});
}

Names RecordersOf(const host::Document& document) {
  Names names;
  const std::function<void(const host::BaseNode&)> visit = [&](const host::BaseNode& node) {
    if (IsRecorder(node)) names.insert(node.Name());
    for (const host::BaseNode* child : node.Children()) visit(*child);
  };
  for (const host::BaseNode* root : document.Roots()) visit(*root);
  return names;
}

}  // namespace MELDO_GLOBAL::app
