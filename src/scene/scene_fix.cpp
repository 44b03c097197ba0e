#include "scene/scene_fix.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "fluids/mesh/multi_mesh.h"
#include "fluids/volume/multi_volume.h"
#include "nodes/catalogue.h"
#include "scene/object_types.h"
#include "scene/scene_context.h"
#include "scene/scene_values.h"
#include "scene/text_edits.h"

namespace MELDO_GLOBAL::app {

using MELDO_SULVA::FindKind;
using MELDO_SULVA::Mesh;
using MELDO_SULVA::MultiMesh;
using MELDO_SULVA::MultiVolume;
using MELDO_SULVA::NodeKind;
using MELDO_SULVA::VolumeMesh;

namespace {

constexpr std::size_t kMostSingleMeshes = 4;

std::string Joined(const std::vector<std::string>& parts) {
  std::string text;
  for (const std::string& part : parts) text.append(text.empty() ? "" : ", ").append(part);
  return text;
}

class VolumeFixer {
 public:
  VolumeFixer(std::string_view text, const JsonValue& root) : mEdits(text) {
    ForEachItem(root.Find("objects"), [&](const JsonValue& object) { AddObject(object); });
    ForEachItem(root.Find("nodes"), [&](const JsonValue& node) { AddNode(node); });
    ForEachItem(root.Find("nodes"), [&](const JsonValue& node) { FixNode(node); });
  }
  SceneFix Result() { return {mEdits.Apply(), std::move(mNotes)}; }

 private:
  template <class F>
  static void ForEachItem(const JsonValue* list, F&& f) {
    if (!list || !list->Items()) return;
    for (const JsonValue& item : *list->Items())
      if (item.Members()) f(item);
  }
  static std::string TextOf(const JsonValue* value) {
    return value && value->Text() ? *value->Text() : std::string();
  }
  static i32 TypeOf(const JsonValue& node) {
    const JsonValue* type = node.Find("type");
    if (!type) return kUnknownNode;
    const NodeKind* kind = nullptr;
    if (type->Text()) kind = FindKind(std::string_view(*type->Text()));
    if (const double* id = type->Number(); id && *id >= 0 && *id <= 2e9)
      kind = FindKind(static_cast<i32>(*id));
    return kind ? kind->id : kUnknownNode;
  }

  void AddObject(const JsonValue& object) {
    const std::string type = TextOf(object.Find("type"));
    const auto isMesh = [&](const ObjectType& known) {
      return known.name == type && known.type == host::kMeshObject;
    };
    const bool mesh = std::any_of(ObjectTypes().begin(), ObjectTypes().end(), isMesh);
    const auto [entry, isNew] = mIsMesh.try_emplace(TextOf(object.Find("name")), mesh);
    if (!isNew) entry->second = false;
  }
  void AddNode(const JsonValue& node) {
    // A name that a node has too may mean either.
    mIsMesh[TextOf(node.Find("name"))] = false;
    ForEachItem(node.Find("children"), [&](const JsonValue& child) { AddNode(child); });
  }
  /// The reference that a value holds, if it names a mesh object and nothing else.
  std::string MeshObject(const JsonValue& value) const {
    const std::string text = TextOf(value.Members() ? value.Find("node") : &value);
    const auto found = mIsMesh.find(text.starts_with('/') ? text.substr(1) : text);
    return found != mIsMesh.end() && found->second ? text : std::string();
  }
  /// Reserves a name that nothing in the scene has.
  std::string NewName(const std::string& base) {
    std::string name = base;
    for (int i = 2; mIsMesh.contains(name); ++i) name = fmt::format("{} {}", base, i);
    mIsMesh[name] = false;
    return name;
  }

  void FixNode(const JsonValue& node) {
    const JsonValue* parameters = node.Find("parameters");
    const auto parameter = [&](const host::ParameterTable& table, i32 row) -> const JsonValue* {
      if (!parameters || !parameters->Members()) return nullptr;
      for (const JsonMember& member : *parameters->Members())
        if (const host::ParameterRow* named = RowNamed(table, member.key);
            named && named->id == row)
          return &member.value;
      return nullptr;
    };
    const i32 type = TypeOf(node);
    if (type == VolumeMesh::Kind().id)
      FixLink(node, parameter(VolumeMesh::Parameters(), VolumeMesh::kMeshRow));
    if (type == MultiVolume::Kind().id)
      FixList(node, parameter(MultiVolume::Parameters(), MultiVolume::kMeshesRow));
    ForEachItem(node.Find("children"), [&](const JsonValue& child) { FixNode(child); });
  }

  std::string NameOf(const JsonValue& node) const {
    const std::string name = TextOf(node.Find("name"));
    return name.empty() ? std::string(FindKind(TypeOf(node))->label) : name;
  }
  static std::string LastName(const std::string& reference) {
    return reference.starts_with('/') ? reference.substr(1) : reference;
  }
  /// The text of a node that holds one parameter.
  static std::string NodeText(const NodeKind& kind, const std::string& name, i32 row,
                              const std::string& value) {
    return fmt::format(R"({{ "type": "{}", "name": {}, "parameters": {{ "{}": {} }} }})", kind.type,
                       Quoted(name), host::FindRow(kind.rows(), row)->name, value);
  }
  /// The text of a mesh node, whose name is returned in `name`.
  std::string MeshNode(const JsonValue& volume, const std::string& reference, std::string& name) {
    name = NewName(NameOf(volume) + " " + LastName(reference));
    return NodeText(Mesh::Kind(), name, Mesh::kObjectRow, Quoted(reference));
  }

  void FixLink(const JsonValue& volume, const JsonValue* link) {
    const std::string reference = link && link->Text() ? MeshObject(*link) : std::string();
    if (reference.empty() || !CanTakeChildren(volume)) return;
    std::string name;
    AddChildren(volume, {MeshNode(volume, reference, name)});
    mEdits.Replace(*link, Quoted(name));
    Note(volume, fmt::format("made the mesh node '{}'", name));
  }

  void FixList(const JsonValue& volume, const JsonValue* list) {
    if (!list || !list->Items() || !CanTakeChildren(volume)) return;
    std::vector<const JsonValue*> moved;
    for (const JsonValue& entry : *list->Items())
      if (!MeshObject(entry).empty()) moved.push_back(&entry);
    if (moved.empty()) return;
    if (list->Items()->size() > kMostSingleMeshes) return FixLongList(volume, *list, moved);
    std::vector<std::string> children;
    for (const JsonValue* entry : moved) {
      std::string name;
      children.push_back(MeshNode(volume, MeshObject(*entry), name));
      mEdits.Replace(entry->Members() ? *entry->Find("node") : *entry, Quoted(name));
      Note(volume, fmt::format("made the mesh node '{}'", name));
    }
    AddChildren(volume, children);
  }

  void FixLongList(const JsonValue& volume, const JsonValue& list,
                   const std::vector<const JsonValue*>& moved) {
    const std::string first = MeshObject(*moved.front());
    const std::string name = NewName(NameOf(volume) + " " + LastName(first) + ",..");
    std::vector<std::string> objects, entries;
    for (const JsonValue& entry : *list.Items()) {
      const std::string reference = MeshObject(entry);
      if (reference.empty()) entries.push_back(mEdits.Raw(entry));
      if (&entry == moved.front()) entries.push_back(Quoted(name));
      if (!reference.empty()) objects.push_back(Quoted(reference));
    }
    mEdits.Replace(list, fmt::format("[{}]", Joined(entries)));
    AddChildren(volume, {NodeText(MultiMesh::Kind(), name, MultiMesh::kObjectsRow,
                                  fmt::format("[{}]", Joined(objects)))});
    Note(volume, fmt::format("made the node '{}' for {} objects", name, objects.size()));
  }

  static bool CanTakeChildren(const JsonValue& node) {
    const JsonValue* children = node.Find("children");
    return !children || children->Items();
  }
  void AddChildren(const JsonValue& node, const std::vector<std::string>& nodes) {
    const std::string text = Joined(nodes);
    if (const JsonValue* children = node.Find("children")) {
      mEdits.InsertFirst(*children,
                         fmt::format(" {}{}", text, children->Items()->empty() ? " " : ","));
    } else {
      mEdits.InsertFirst(node, fmt::format(R"( "children": [ {} ],)", text));
    }
  }
  void Note(const JsonValue& volume, const std::string& what) {
    mNotes.push_back(fmt::format("{} \"{}\": {}", FindKind(TypeOf(volume))->type,
                                 Shown(NameOf(volume)), Shown(what)));
  }

  TextEdits mEdits;
  std::vector<std::string> mNotes;
  std::map<std::string, bool> mIsMesh;  ///< every name, and whether it can only mean a mesh object
};

}  // namespace

SceneFix FixVolumes(std::string_view text, const JsonValue& root) {
  return VolumeFixer(text, root).Result();
}

}  // namespace MELDO_GLOBAL::app
