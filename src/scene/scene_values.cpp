#include "scene/scene_values.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <limits>

#include "framework/server_rows.h"
#include "host/deformer.h"
#include "host/image.h"
#include "host/render_objects.h"
#include "nodes/catalogue.h"
#include "nodes/media.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using MELDO_SULVA::FindKind;
using MELDO_SULVA::NodeKind;

namespace {

/// The word of a node type in messages, empty for one that no scene can hold.
std::string WordOfType(i32 type) {
  switch (type) {
    case kMeshObject: return "mesh object";
    case kSplineObject: return "spline object";
    case kPointsObject: return "points object";
    case kImageObject: return "image object";
    case kDeformerObject: return "deformer object";
    case kLightObject: return "light object";
    case kCameraObject: return "camera object";
    case kSurfaceMaterial: return "surface material";
    case kDielectricMaterial: return fmt::format("{} material", kDielectricName);
    case kParticleMaterial: return fmt::format("{} material", kParticlesName);
    case kGridSamplerShader: return fmt::format("{} material", kGridSamplerName);
    default: break;
  }
  if (const MediumType* medium = FindMediumType(type))
    return fmt::format("{} material", medium->name);
  const NodeKind* kind = FindKind(type);
  return kind ? std::string(kind->type) : std::string();
}

std::string WithArticle(const std::string& word) {
  const bool isOpen = std::string_view("aeiou").find(word.front()) != std::string_view::npos;
  return (isOpen ? "an " : "a ") + word;
}

/// What a link takes: "a mesh object", "a node of type volume or group".
std::string WordsOfTypes(const std::vector<i32>& types) {
  constexpr std::size_t kMost = 6;
  std::vector<std::string> objects, nodes;
  for (const i32 type : types) {
    const std::string word = WordOfType(type);
    if (word.empty()) continue;
    if (FindKind(type)) {
      nodes.push_back(word);
    } else {
      objects.push_back(WithArticle(word));
    }
  }
  if (nodes.size() > kMost) {
    nodes.resize(kMost);
    nodes.emplace_back("another of its like");
  }
  if (!nodes.empty()) objects.push_back(fmt::format("a node of type {}", AnyOf(nodes)));
  return objects.empty() ? "a node of another kind" : AnyOf(objects);
}

bool Accepts(const std::vector<i32>& types, const BaseNode& node) {
  if (types.empty() || node.Type() == kUnknownNode) return true;
  return std::any_of(types.begin(), types.end(), [&](i32 type) { return node.IsInstanceOf(type); });
}

/// A port for kinds of which none is in the catalogue.
bool TakesNoKind(const ParameterRow& row) { return row.accepts.empty() && !row.acceptsAny.empty(); }

std::string RangeWords(double min, double max) {
  constexpr double kOpen = std::numeric_limits<double>::infinity();
  if (max == kOpen) return fmt::format("at least {}", min);
  if (min == -kOpen) return fmt::format("at most {}", max);
  return fmt::format("{} to {}", min, max);
}

/// Words for kinds of particles, with the flag of an entry that means each.
constexpr std::pair<std::string_view, u32> kKindFlags[] = {
    {"passive", 1}, {"liquid", 2}, {"vorticity", 4}, {"diffuse", 8}};

/// "a volume node", "a mesh object".
std::string KindWord(const BaseNode& node) {
  return WithArticle(FindKind(node.Type()) ? TypeWord(node) + " node" : TypeWord(node));
}

std::string What(const ParameterRow& row) { return fmt::format("'{}'", row.name); }

}  // namespace

bool CanBeKeyed(ParameterType type) {
  return type == ParameterType::Real || type == ParameterType::Long ||
         type == ParameterType::Bool || type == ParameterType::Vector;
}

bool RestartsSimulation(i32 kind, const ParameterRow& row) {
  using namespace MELDO_SULVA::server_row;
  return kind == kServerNode &&
         std::find(std::begin(kRestarting), std::end(kRestarting), row.id) != std::end(kRestarting);
}

std::string TypeWord(const BaseNode& node) {
  const std::string word = WordOfType(node.Type());
  return word.empty() ? "node" : word;
}

std::string KindAndName(const BaseNode& node) {
  return fmt::format("{} \"{}\"", TypeWord(node), Shown(node.Name()));
}

std::string Named(const BaseNode& node) { return fmt::format("'{}'", Shown(node.Name())); }

void ValueReader::LookFrom(const BaseNode& node) {
  mServer = mSelf = &node;
  while (mServer->Parent()) mServer = mServer->Parent();
}

// ---- parameters -------------------------------------------------------------------------------

void ValueReader::ReadParameters(const JsonValue& object, BaseNode& node, i32 frame,
                                 const Subject& subject) {
  std::map<i32, std::string> given;
  for (const JsonMember& member : *object.Members()) {
    const ParameterRow* row = FindRow(member, *node.Table(), subject);
    if (!row) continue;
    const auto [first, isNew] = given.try_emplace(row->id, member.key);
    if (!isNew) {
      mContext.Error(
          member, subject,
          fmt::format("'{}' and '{}' are the same parameter", first->second, Shown(member.key)));
      continue;
    }
    ReadParameter(*row, member.value, node, frame, subject);
  }
}

const ParameterRow* RowNamed(const ParameterTable& table, std::string_view key) {
  i32 id = 0;
  const char* end = key.data() + key.size();
  const auto [stop, error] = std::from_chars(key.data(), end, id);
  const bool isId = error == std::errc() && stop == end;
  for (const ParameterRow& row : table)
    if (isId ? row.id == id : row.name == key) return &row;
  return nullptr;
}

const ParameterRow* ValueReader::FindRow(const JsonMember& key, const ParameterTable& table,
                                         const Subject& subject) {
  if (const ParameterRow* row = RowNamed(table, key.key)) return row;
  std::vector<std::string_view> names;
  for (const ParameterRow& row : table) names.push_back(row.name);
  mContext.Error(
      key, subject,
      fmt::format("unknown parameter '{}'{}", Shown(key.key), mContext.SuggestOrList(key.key, names)));
  return nullptr;
}

void ValueReader::ReadParameter(const ParameterRow& row, const JsonValue& value, BaseNode& node,
                                i32 frame, const Subject& subject) {
  if (row.script) return ReadScript(row, value, node, subject);
  const std::string what = What(row);
  const auto readPlain = [&](const JsonValue& v) { return ReadPlain(row, v, subject, what); };
  if (IsKeyed(value) && RestartsSimulation(node.Type(), row)) {
    mContext.Error(value, subject,
                   what + ": can't have keys: a change of it starts the simulation anew");
    return;
  }
  if (IsKeyed(value) && row.id == MELDO_SULVA::common_row::kStage && row.name == "stage") {
    mContext.Error(value, subject, what + ": can't have keys: a node stays in its stage");
    return;
  }
  if (IsKeyed(value) && row.type != ParameterType::Button) {
    if (!CanBeKeyed(row.type)) {
      mContext.Error(value, subject,
                     fmt::format("{}: a {} can't have keys", what, NameOf(row.type)));
      return;
    }
    auto track = ReadTrack(mContext, value, subject, what, readPlain);
    if (!track) return;
    // Words and switches have nothing between two values.
    if (row.type == ParameterType::Bool || !row.choices.empty())
      track->interpolation = Interpolation::Step;
    node.Set(row.id, track->Evaluate(frame));
    node.SetTrack(row.id, std::move(*track));
    return;
  }
  auto plain = readPlain(value);
  if (!plain) return;
  // A value from the command line takes the place of keys in the file.
  if (node.Tracks().contains(row.id)) node.SetTrack(row.id, {{{0, *plain}}, Interpolation::Step});
  if (std::holds_alternative<std::monostate>(*plain)) {
    node.Erase(row.id);
  } else {
    node.Set(row.id, std::move(*plain));
  }
}

std::optional<Value> ValueReader::ReadPlain(const ParameterRow& row, const JsonValue& value,
                                            const Subject& subject, const std::string& what) {
  switch (row.type) {
    case ParameterType::Real: {
      const auto number = mContext.ReadNumber(value, subject, what);
      if (!number || !InRange(*number, row, value, subject, what)) return {};
      return *number;
    }
    case ParameterType::Long: {
      if (!row.choices.empty()) return ReadChoice(row, value, subject, what);
      // The range of the row says more than that of whole numbers.
      const double* given = value.Number();
      if (given && *given == std::floor(*given) && !InRange(*given, row, value, subject, what))
        return {};
      const auto number = mContext.ReadWhole(value, subject, what);
      if (!number) return {};
      return *number;
    }
    case ParameterType::Bool: {
      const auto flag = mContext.ReadBool(value, subject, what);
      if (!flag) return {};
      return i32{*flag};
    }
    case ParameterType::String: {
      auto text = mContext.ReadText(value, subject, what);
      if (!text) return {};
      return std::move(*text);
    }
    case ParameterType::Vector: {
      const auto vector = mContext.ReadVector(value, subject, what);
      if (!vector) return {};
      for (int axis = 0; axis < 3; ++axis)
        if (!InRange((*vector)[axis], row, value, subject, what)) return {};
      return *vector;
    }
    case ParameterType::Filename: {
      if (value.IsNull()) return Filename{};
      auto text = mContext.ReadText(value, subject, what);
      if (!text) return {};
      return Filename{text->empty() ? std::string() : mContext.Resolve(*text).string()};
    }
    case ParameterType::Link: return ReadLink(row, value, subject, what);
    case ParameterType::Links: return ReadLinks(row, value, subject, what);
    case ParameterType::Curve: return ReadCurve(value, subject, what);
    case ParameterType::Gradient: return ReadGradient(value, subject, what);
    case ParameterType::Button: break;
  }
  mContext.Error(value, subject, fmt::format("{} is a button and holds no value", what));
  return {};
}

bool ValueReader::InRange(double number, const ParameterRow& row, const JsonValue& value,
                          const Subject& subject, const std::string& what) {
  using Whole = std::numeric_limits<i32>;
  double least = row.min, most = row.max;
  if (row.type == ParameterType::Long && std::abs(number) > Whole::max()) {
    least = std::max<double>(least, Whole::min());
    most = std::min<double>(most, Whole::max());
  }
  if (number >= least && number <= most) return true;
  mContext.Error(
      value, subject,
      fmt::format("{}: {} is out of range; expected {}", what, number, RangeWords(least, most)));
  return false;
}

std::optional<Value> ValueReader::ReadChoice(const ParameterRow& row, const JsonValue& value,
                                             const Subject& subject, const std::string& what) {
  std::vector<std::string_view> names;
  std::vector<std::string> words;
  for (const Choice& choice : row.choices) {
    names.push_back(choice.name);
    words.push_back(fmt::format("{} ({})", choice.name, choice.value));
  }
  if (row.orNumbers) words.emplace_back("a number");
  if (const std::string* text = value.Text()) {
    for (const Choice& choice : row.choices)
      if (choice.name == *text) return choice.value;
    mContext.Error(value, subject,
                   fmt::format("{}: unknown choice '{}'; expected {}{}", what, Shown(*text),
                               AnyOf(words), mContext.Suggest(*text, names)));
    return {};
  }
  if (const double* number = value.Number()) {
    for (const Choice& choice : row.choices)
      if (choice.value == *number) return choice.value;
    if (row.orNumbers) {
      if (!InRange(*number, row, value, subject, what)) return {};
      const auto whole = mContext.ReadWhole(value, subject, what);
      return whole ? std::optional<Value>(*whole) : std::nullopt;
    }
    mContext.Error(value, subject,
                   fmt::format("{}: {} is no choice; expected {}", what, *number, AnyOf(words)));
    return {};
  }
  mContext.Error(value, subject,
                 fmt::format("{}: expected {}, got {}", what, AnyOf(words), KindOf(value)));
  return {};
}

// ---- links ------------------------------------------------------------------------------------

std::string ValueReader::Hint(const std::string& reference, const std::vector<i32>& accepts) {
  const std::vector<std::string_view> names = mNames.Names([&](const BaseNode& node) {
    return &node != mSelf && (node.Type() == kGroupNode || Accepts(accepts, node));
  });
  const auto slash = reference.rfind('/');
  if (slash == std::string::npos) return mContext.Suggest(reference, names);
  // Of a path the last name is most likely the one that is misspelt.
  const std::string name = NearestName(std::string_view(reference).substr(slash + 1), names);
  const std::string path = reference.substr(0, slash + 1) + name;
  if (!name.empty() && !mNames.Find(path).empty()) return mContext.Suggest(reference, {path});
  return mContext.Suggest(reference.substr(slash + 1), names);
}

BaseNode* ValueReader::ResolveLink(const std::string& reference, const std::vector<i32>& accepts,
                                   const JsonValue& at, const Subject& subject,
                                   const std::string& what, std::string_view expected) {
  const std::vector<NameTable::Candidate> found = mNames.Find(reference);
  if (found.empty()) {
    mContext.Error(at, subject,
                   fmt::format("{}: no node or object is named '{}'{}", what, Shown(reference),
                               mContext.MaySuggest() ? Hint(reference, accepts) : ""));
    return nullptr;
  }
  std::vector<NameTable::Candidate> fitting, whole, own;
  for (const auto& candidate : found)
    if (Accepts(accepts, *candidate.node)) fitting.push_back(candidate);
  for (const auto& candidate : fitting)
    if (mServer && candidate.node->HasAncestor(mServer)) own.push_back(candidate);
  if (!own.empty()) fitting = own;
  for (const auto& candidate : fitting)
    if (candidate.isWholePath) whole.push_back(candidate);
  if (fitting.size() == 1) return fitting.front().node;
  if (whole.size() == 1) return whole.front().node;
  if (fitting.empty()) {
    mContext.Error(at, subject,
                   fmt::format("{}: '{}' is {}; expected {}", what, Shown(reference),
                               KindWord(*found.front().node),
                               expected.empty() ? WordsOfTypes(accepts) : std::string(expected)));
  } else {
    const std::string first = Shown(fitting[0].node->Path()),
                      second = Shown(fitting[1].node->Path());
    mContext.Error(at, subject,
                   first == second
                       ? fmt::format("{}: there are several nodes '{}'; give them different names",
                                     what, first)
                       : fmt::format("{}: '{}' may be '{}' or '{}'; give the path", what,
                                     Shown(reference), first, second));
  }
  return nullptr;
}

std::optional<Value> ValueReader::ReadLink(const ParameterRow& row, const JsonValue& value,
                                           const Subject& subject, const std::string& what) {
  if (value.IsNull()) return Link{};
  if (!value.Text()) {
    mContext.Error(value, subject,
                   fmt::format("{}: expected the name of a node or object (or null), got {}", what,
                               KindOf(value)));
    return {};
  }
  const BaseNode* node = ResolveLinkOrGroup(*value.Text(), row, value, subject, what);
  if (!node) return {};
  if (node->Type() != kGroupNode) return Link{node->Id()};
  std::vector<const BaseNode*> members;
  if (!Members(*node, row, value, subject, what, members)) return {};
  if (members.size() == 1) return Link{members.front()->Id()};
  mContext.Error(value, subject,
                 fmt::format("{}: the group '{}' has {} children; a group stands here for its one "
                             "child, so name the child that is meant",
                             what, Shown(node->Name()), members.size()));
  return {};
}

BaseNode* ValueReader::ResolveLinkOrGroup(const std::string& reference, const ParameterRow& row,
                                          const JsonValue& at, const Subject& subject,
                                          const std::string& what) {
  const std::vector<NameTable::Candidate> found = mNames.Find(reference);
  if (TakesNoKind(row) && !found.empty() && found.front().node->Type() != kUnknownNode &&
      found.front().node->Type() != kGroupNode) {
    mContext.Error(at, subject,
                   fmt::format("{}: '{}' is {}, and there is no kind yet that this parameter takes",
                               what, Shown(reference), KindWord(*found.front().node)));
    return nullptr;
  }
  const auto fits = [&](const auto& candidate) { return Accepts(row.accepts, *candidate.node); };
  const auto isGroup = [](const auto& candidate) { return candidate.node->Type() == kGroupNode; };
  const bool mayBeGroup = std::none_of(found.begin(), found.end(), fits) &&
                          std::any_of(found.begin(), found.end(), isGroup);
  const std::vector<i32> groups = {kGroupNode};
  return ResolveLink(reference, mayBeGroup ? groups : row.accepts, at, subject, what);
}

bool ValueReader::Members(const BaseNode& group, const ParameterRow& row, const JsonValue& at,
                          const Subject& subject, const std::string& what,
                          std::vector<const BaseNode*>& members) {
  const auto refuse = [&](const std::string& why) {
    mContext.Error(at, subject,
                   fmt::format("{}: the group '{}' {}", what, Shown(group.Name()), why));
    return false;
  };
  if (group.Children().empty()) return refuse("is empty; it stands for its children");
  for (const BaseNode* child : group.Children()) {
    if (child->Type() == kGroupNode) {
      if (!Members(*child, row, at, subject, what, members)) return false;
    } else if (Accepts(row.accepts, *child) && !TakesNoKind(row)) {
      members.push_back(child);
    } else {
      return refuse(fmt::format("stands for its children, but its '{}' is {}; expected {}",
                                Shown(child->Name()), KindWord(*child), WordsOfTypes(row.accepts)));
    }
  }
  return true;
}

std::optional<Value> ValueReader::ReadLinks(const ParameterRow& row, const JsonValue& value,
                                            const Subject& subject, const std::string& what) {
  if (value.IsNull()) return row.allWhenAbsent ? Value() : row.creation;
  const JsonValue::Array* items = value.Items();
  if (!items) {
    mContext.Error(value, subject,
                   fmt::format("{}: expected a list of names, got {}", what, KindOf(value)));
    return {};
  }
  InExcludeData list;
  bool allRead = true;
  for (const JsonValue& item : *items)
    allRead = ReadEntry(row, item, subject, what, list) && allRead;
  if (!allRead) return {};
  return list;
}

bool ValueReader::ReadEntry(const ParameterRow& row, const JsonValue& item, const Subject& subject,
                            const std::string& what, InExcludeData& list) {
  const JsonValue* name = &item;
  std::vector<u32> flags = {0};
  if (item.Members()) {
    mContext.CheckKeys(item, {"node", "flags", "kinds"}, subject + what + ": ");
    name = item.Find("node");
    flags = ReadEntryFlags(item, subject, what);
  }
  if (!name || !name->Text()) {
    mContext.Error(name ? *name : item, subject,
                   fmt::format("{}: expected a name or {{\"node\": name, \"kinds\": [word]}}, "
                               "got {}",
                               what, name ? KindOf(*name) : "an object without 'node'"));
    return false;
  }
  const BaseNode* node = ResolveLinkOrGroup(*name->Text(), row, *name, subject, what);
  if (!node || flags.empty()) return false;
  std::vector<const BaseNode*> members = {node};
  if (node->Type() == kGroupNode) {
    members.clear();
    if (!Members(*node, row, *name, subject, what, members)) return false;
  }
  for (const BaseNode* member : members)
    for (const u32 word : flags) list.entries.push_back({member->Id(), word});
  return true;
}

std::vector<u32> ValueReader::ReadEntryFlags(const JsonValue& item, const Subject& subject,
                                             const std::string& what) {
  const JsonValue* number = item.Find("flags");
  const JsonValue* kinds = item.Find("kinds");
  if (number && kinds) {
    mContext.Error(*kinds, subject, what + ": 'flags' and 'kinds' say the same; give one of them");
    return {};
  }
  if (kinds) return ReadKinds(*kinds, subject, what);
  if (!number) return {0};
  const std::optional<u32> flags = ReadFlags(*number, subject, what);
  return flags ? std::vector<u32>{*flags} : std::vector<u32>{};
}

std::vector<u32> ValueReader::ReadKinds(const JsonValue& value, const Subject& subject,
                                        const std::string& what) {
  std::vector<std::string_view> words;
  for (const auto& [word, flag] : kKindFlags) words.push_back(word);
  const std::string expected = AnyOf({words.begin(), words.end()});
  const JsonValue::Array* items = value.Items();
  if (!items || items->empty()) {
    mContext.Error(value, subject,
                   fmt::format("{}: 'kinds': expected a list of {}, got {}", what, expected,
                               items ? "an empty one" : KindOf(value)));
    return {};
  }
  std::vector<u32> flags;
  for (const JsonValue& item : *items) {
    const std::string* text = item.Text();
    const auto found = std::find_if(std::begin(kKindFlags), std::end(kKindFlags),
                                    [&](const auto& kind) { return text && kind.first == *text; });
    if (found == std::end(kKindFlags)) {
      mContext.Error(
          item, subject,
          text ? fmt::format("{}: 'kinds': unknown kind '{}'; expected {}{}", what, Shown(*text),
                             expected, mContext.Suggest(*text, words))
               : fmt::format("{}: 'kinds': expected {}, got {}", what, expected, KindOf(item)));
      return {};
    }
    flags.push_back(found->second);
  }
  return flags;
}

std::optional<u32> ValueReader::ReadFlags(const JsonValue& value, const Subject& subject,
                                          const std::string& what) {
  constexpr double kAllBits = 4294967295;
  const auto number = mContext.ReadNumber(value, subject, what + ": 'flags'");
  if (!number) return {};
  if (*number >= 0 && *number <= kAllBits && *number == std::floor(*number))
    return static_cast<u32>(*number);
  mContext.Error(
      value, subject,
      fmt::format("{}: 'flags': {} is out of range; expected a whole number from 0 to {}", what,
                  *number, kAllBits));
  return {};
}

}  // namespace MELDO_GLOBAL::app
