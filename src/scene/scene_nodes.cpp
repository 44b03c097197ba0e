#include "scene/scene_nodes.h"

#include <fmt/format.h>

#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using MELDO_SULVA::AddObstacleTag;
using MELDO_SULVA::Catalogue;
using MELDO_SULVA::CreateNode;
using MELDO_SULVA::FindKind;
using MELDO_SULVA::NodeKind;

namespace {

Subject SubjectOf(std::string_view type, std::string_view name) {
  return fmt::format("{} \"{}\": ", type, Shown(name));
}

/// The kind that the value of "type" means, or null.
const NodeKind* KindOfType(const JsonValue& type) {
  if (const std::string* text = type.Text()) return FindKind(std::string_view(*text));
  if (const double* id = type.Number())
    for (const NodeKind& kind : Catalogue())
      if (kind.id == *id) return &kind;
  return nullptr;
}

std::string UnknownType(SceneContext& context, const JsonValue& type) {
  if (const double* id = type.Number()) return fmt::format("unknown node type {}", *id);
  if (!type.Text()) return fmt::format("'type': expected a word or a number, got {}", KindOf(type));
  std::vector<std::string_view> names;
  for (const NodeKind& kind : Catalogue()) names.push_back(kind.type);
  for (const NodeKind& kind : Catalogue()) names.push_back(kind.label);
  return fmt::format("unknown node type '{}'{}", Shown(*type.Text()),
                     context.Suggest(*type.Text(), names));
}

bool IsProperName(const std::string& name) {
  return !name.empty() && std::none_of(name.begin(), name.end(), [](char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
  });
}

}  // namespace

void SceneBuilder::Make(const JsonValue* objects, const JsonValue* nodes) {
  const Members objectList = ObjectsOf(objects, "", "'objects'");
  const Members nodeList = ObjectsOf(nodes, "", "'nodes'");
  ReserveNames(objectList, mRootNames);
  ReserveNames(nodeList, mRootNames);
  for (const JsonValue* value : objectList) MakeObject(*value, mRootNames);
  for (const JsonValue* value : nodeList) MakeNode(*value, nullptr, mRootNames);
}

SceneBuilder::Members SceneBuilder::ObjectsOf(const JsonValue* list, const Subject& subject,
                                              const std::string& what) {
  Members members;
  if (!list) return members;
  if (!list->Items()) {
    mContext.Error(*list, subject, fmt::format("{}: expected a list, got {}", what, KindOf(*list)));
    return members;
  }
  for (const JsonValue& item : *list->Items()) {
    if (item.Members()) {
      members.push_back(&item);
    } else {
      mContext.Error(item, subject,
                     fmt::format("{}: expected an object, got {}", what, KindOf(item)));
    }
  }
  return members;
}

void SceneBuilder::ReserveNames(const Members& siblings, SiblingNames& names, std::string_view word,
                                std::string_view taken) {
  for (const JsonValue* value : siblings) {
    const JsonValue* name = value->Find("name");
    if (!name) continue;
    const std::string* text = name->Text();
    const JsonValue* type = value->Find("type");
    const Subject subject =
        SubjectOf(type && type->Text() ? Shown(*type->Text()) : word, text ? *text : std::string());
    if (!text) {
      mContext.Error(*name, subject, fmt::format("'name': expected text, got {}", KindOf(*name)));
    } else if (text->empty()) {
      mContext.Error(*name, subject, "'name': a name can't be empty");
    } else if (!IsProperName(*text)) {
      mContext.Error(*name, subject, "'name': a name can't hold control characters");
    } else if (!names.Reserve(*text)) {
      mContext.Error(*name, subject, std::string(taken));
    } else if (text->find('/') != std::string::npos) {
      mContext.Warning(*name, subject,
                       "'name': a '/' parts the names of a path, so that a link to this one may "
                       "be taken for another node");
    }
  }
}

std::string SceneBuilder::NameOf(const JsonValue& value, const std::string& label,
                                 SiblingNames& names) {
  const JsonValue* name = value.Find("name");
  if (name && name->Text() && IsProperName(*name->Text())) return *name->Text();
  return names.MakeUnique(label);
}

// ---- nodes ------------------------------------------------------------------------------------

void SceneBuilder::MakeNode(const JsonValue& value, BaseNode* parent, SiblingNames& names) {
  const JsonValue* type = value.Find("type");
  const NodeKind* kind = type ? KindOfType(*type) : nullptr;
  const std::string name = NameOf(value, kind ? std::string(kind->label) : "node", names);
  const std::string_view word = kind ? kind->type : "node";
  const Subject subject = SubjectOf(word, name);
  if (!type) mContext.Error(value, subject, "'type' is missing");
  if (type && !kind) mContext.Error(*type, subject, UnknownType(mContext, *type));
  if (kind && (kind->id == kServerNode) != !parent)
    mContext.Error(*type, subject,
                   parent ? "a server can't stand under another node"
                          : "only a server can stand here; other nodes are its children");

  mContext.CheckKeys(value,
                     {"type", "name", "parameters", "children", "position", "rotation", "scale",
                      "enabled", "obstacle"},
                     subject, kind ? &MELDO_SULVA::ParametersOf(*kind) : nullptr);
  BaseNode& node = kind ? CreateNode(mContext.document, *kind, name, parent)
                        : mContext.document.Create<BaseNode>(kUnknownNode, name, parent);
  if (node.Type() == kServerNode) mServers.push_back(&node);
  mNames.Add(node);
  ReadPlacement(value, node, subject);
  if (const JsonValue* enabled = value.Find("enabled"))
    node.SetEnabled(mContext.ReadBool(*enabled, subject, "'enabled'").value_or(true));
  Remember(node, subject, value);
  MakeChildren(value, node, subject);
}

void SceneBuilder::MakeChildren(const JsonValue& value, BaseNode& node, const Subject& subject) {
  const Members children = ObjectsOf(value.Find("children"), subject, "'children'");
  SiblingNames names;
  ReserveNames(children, names);
  for (const JsonValue* child : children) MakeNode(*child, &node, names);
}

BaseNode* SceneBuilder::MakeMaterial(const JsonValue& value, i32 type, std::string_view word,
                                     const ParameterTable& table,
                                     const std::vector<std::string_view>& keys) {
  ReserveNames({&value}, mRootNames, word, kTakenName);
  const std::string name = NameOf(value, fmt::format("{} material", word), mRootNames);
  const Subject subject = SubjectOf(word, name);
  mContext.CheckKeys(value, keys, subject);
  BaseNode& node = mContext.document.Create<BaseNode>(type, name, nullptr);
  node.SetTable(&table);
  mNames.Add(node);
  Remember(node, subject, value);
  return &node;
}

void SceneBuilder::ReadPlacement(const JsonValue& value, BaseNode& node, const Subject& subject) {
  struct Component {
    const char* key;
    BaseNode::PlacementTrack track;
    Vec3d value;
  };
  Component components[] = {{"position", BaseNode::kPosition, {}},
                            {"rotation", BaseNode::kRotation, {}},
                            {"scale", BaseNode::kScale, {1, 1, 1}}};
  for (Component& component : components) {
    const JsonValue* given = value.Find(component.key);
    if (!given) continue;
    const std::string what = fmt::format("'{}'", component.key);
    const auto readVector = [&](const JsonValue& v) -> std::optional<Value> {
      const auto vector = mContext.ReadVector(v, subject, what);
      if (!vector) return {};
      if (component.track == BaseNode::kScale &&
          (vector->x == 0 || vector->y == 0 || vector->z == 0)) {
        mContext.Error(v, subject, what + ": a scale of 0 leaves nothing");
        return {};
      }
      return *vector;
    };
    if (IsKeyed(*given)) {
      auto track = ReadTrack(mContext, *given, subject, what, readVector);
      if (!track) continue;
      component.value = std::get<Vec3d>(track->Evaluate(mFirstFrame));
      node.SetPlacementTrack(component.track, std::move(*track));
    } else if (const auto vector = readVector(*given)) {
      component.value = std::get<Vec3d>(*vector);
    }
  }
  node.SetPlacement(components[0].value, components[1].value, components[2].value);
}

void SceneBuilder::Remember(BaseNode& node, Subject subject, const JsonValue& value) {
  MadeNode made{&node, std::move(subject), &value, value.Find("parameters"),
                value.Find("obstacle")};
  for (const auto& [section, key] :
       {std::pair{&made.parameters, "'parameters'"}, std::pair{&made.obstacle, "'obstacle'"}}) {
    if (!*section || (*section)->Members()) continue;
    mContext.Error(**section, made.subject,
                   fmt::format("{}: expected an object, got {}", key, KindOf(**section)));
    *section = nullptr;
  }
  mMade.push_back(std::move(made));
}

void SceneBuilder::ReadParameters() {
  ValueReader reader(mContext, mNames);
  for (const MadeNode& made : mMade) {
    reader.LookFrom(*made.node);
    if (made.parameters && made.node->Table())
      reader.ReadParameters(*made.parameters, *made.node, mFirstFrame, made.subject);
    if (made.obstacle)
      reader.ReadParameters(*made.obstacle, AddObstacleTag(*made.node), mFirstFrame,
                            made.subject + "obstacle: ");
  }
}

}  // namespace MELDO_GLOBAL::app
