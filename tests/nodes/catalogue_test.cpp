#include "nodes/catalogue.h"

#include <gtest/gtest.h>

#include <set>
#include <typeinfo>

#include "fluids/fields/plain_grid_channel.h"
#include "framework/cache_setup_rows.h"
#include "framework/duration.h"
#include "nodes/help_words.h"
#include "nodes/media.h"
#include "nodes/menu.h"
#include "scene/render_section.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

using namespace host;

TEST(Catalogue, KindsAreSortedUniqueAndFound) {
  std::set<std::string_view> types, labels;
  i32 last = 0;
  for (const NodeKind& kind : Catalogue()) {
    EXPECT_GT(kind.id, last) << kind.type;
    last = kind.id;
    EXPECT_TRUE(types.insert(kind.type).second) << kind.type;
    EXPECT_TRUE(labels.insert(kind.label).second) << kind.label;
    EXPECT_EQ(FindKind(kind.id), &kind);
    EXPECT_EQ(FindKind(kind.type), &kind);
    EXPECT_EQ(FindKind(kind.label), &kind);
    EXPECT_EQ(FindKind(std::to_string(kind.id)), &kind);
    EXPECT_FALSE(GroupsOf(kind.id).empty()) << kind.type;
    EXPECT_EQ(bool(kind.make), kind.list != 0) << kind.type;
  }
  EXPECT_EQ(FindKind("no such kind"), nullptr);
  EXPECT_EQ(FindKind(1399999), nullptr);
}

/// Whether a row's default is of the row's type; empty means that new nodes don't hold it.
bool FitsType(const ParameterRow& row, const Value& v) {
  if (std::holds_alternative<std::monostate>(v)) return true;
  switch (row.type) {
    case ParameterType::Real: return std::holds_alternative<double>(v);
    case ParameterType::Long:
    case ParameterType::Bool: return std::holds_alternative<i32>(v);
    case ParameterType::String: return std::holds_alternative<std::string>(v);
    case ParameterType::Vector: return std::holds_alternative<Vec3d>(v);
    case ParameterType::Link: return std::holds_alternative<Link>(v);
    case ParameterType::Filename: return std::holds_alternative<Filename>(v);
    case ParameterType::Links: return std::holds_alternative<InExcludeData>(v);
    case ParameterType::Curve: return std::holds_alternative<SplineData>(v);
    case ParameterType::Gradient: return std::holds_alternative<Gradient>(v);
    default: return false;
  }
}

void ExpectInRange(const ParameterRow& row, const Value& value) {
  double number;
  if (const double* real = std::get_if<double>(&value)) {
    number = *real;
  } else if (const i32* whole = std::get_if<i32>(&value)) {
    number = *whole;
  } else {
    return;
  }
  EXPECT_GE(number, row.min);
  EXPECT_LE(number, row.max);
  if (row.choices.empty() || row.orNumbers) return;
  EXPECT_TRUE(std::any_of(row.choices.begin(), row.choices.end(),
                          [&](const Choice& choice) { return choice.value == number; }));
}

/// Words of small letters and digits, joined by single underscores, the first one a letter.
bool IsSnakeCase(std::string_view name) {
  if (name.empty() || name[0] < 'a' || name[0] > 'z' || name.ends_with('_')) return false;
  const auto belongs = [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); };
  for (std::size_t i = 1; i < name.size(); ++i)
    if (!belongs(name[i]) && !(name[i] == '_' && name[i - 1] != '_')) return false;
  return true;
}

void ExpectSoundRow(const ParameterRow& row) {
  EXPECT_TRUE(IsSnakeCase(row.name));
  EXPECT_FALSE(row.help.empty());
  EXPECT_FALSE(row.help.ends_with('.')) << "help is a clause";
  EXPECT_LE(row.min, row.max);
  const bool isReal = row.type == ParameterType::Real || row.type == ParameterType::Vector;
  EXPECT_FALSE(isReal && row.unit.empty()) << "a unit, or 'none'";
  EXPECT_TRUE(FitsType(row, row.creation));
  EXPECT_TRUE(FitsType(row, row.WhenMissing()));
  ExpectInRange(row, row.creation);
  ExpectInRange(row, row.WhenMissing());
  std::set<std::string_view> words;
  for (const Choice& choice : row.choices) EXPECT_TRUE(words.insert(choice.name).second);
}

TEST(Catalogue, RowsAreSound) {
  const auto check = [](std::string_view owner, const ParameterTable& table) {
    std::set<i32> ids;
    std::set<std::string_view> names;
    for (const ParameterRow& row : table) {
      SCOPED_TRACE(std::string(owner) + "." + std::string(row.name));
      EXPECT_TRUE(ids.insert(row.id).second);
      EXPECT_TRUE(names.insert(row.name).second);
      ExpectSoundRow(row);
    }
  };
  for (const NodeKind& kind : Catalogue()) {
    check(kind.type, ParametersOf(kind));
    for (const i32 id : {2502, 2604, 10001, 10002, 10003})
      EXPECT_NE(FindRow(ParametersOf(kind), id), nullptr) << kind.type << " " << id;
  }
  check("obstacle", ObstacleParameters());
}

TEST(Catalogue, EveryRowFillsAMemberOrSaysThatItIsKept) {
  const auto check = [](std::string_view owner, const ParameterTable& table) {
    for (const ParameterRow& row : table) {
      if (row.type == ParameterType::Button) continue;
      // A command reads these.
      if (owner == "server" && row.id >= cache_setup::kFirst && row.id <= cache_setup::kLast)
        continue;
      EXPECT_NE(row.kept, row.fill || row.connect) << owner << '.' << row.name;
    }
  };
  for (const NodeKind& kind : Catalogue()) check(kind.type, ParametersOf(kind));
  check("server", SulvaScene::Parameters());
  check("obstacle", ObstacleParameters());
  for (const app::PictureTable& picture : app::PictureTables()) check(picture.name, picture.rows());
}

TEST(Catalogue, HelpSaysMoreThanTheName) {
  const auto says = [](std::string_view name, std::string_view help) {
    ParameterRow row;
    row.name = name;
    row.help = help;
    return SaysMoreThanItsName(row);
  };
  EXPECT_FALSE(says("noise_octaves", "octaves of the noise"));
  EXPECT_FALSE(says("wall_low_x", "wall at the low x side"));
  EXPECT_TRUE(says("amount", "how fast a cell fills"));
  std::vector<std::pair<std::string_view, const ParameterTable*>> tables = {
      {"obstacle", &ObstacleParameters()}};
  for (const NodeKind& kind : Catalogue()) tables.emplace_back(kind.type, &ParametersOf(kind));
  for (const auto& [owner, table] : tables)
    for (const ParameterRow& row : *table)
      EXPECT_TRUE(SaysMoreThanItsName(row)) << owner << '.' << row.name << ": " << row.help;
}

TEST(Catalogue, ConditionsNameAParameterThatCanHaveTheValue) {
  for (const NodeKind& kind : Catalogue())
    for (const ParameterRow& row : ParametersOf(kind)) {
      if (!row.condition) continue;
      SCOPED_TRACE(std::string(kind.type) + "." + std::string(row.name));
      const ParameterRow* mode = FindRow(ParametersOf(kind), row.condition->id);
      ASSERT_NE(mode, nullptr);
      EXPECT_EQ(row.condition->values.empty(), mode->type == ParameterType::Link);
      for (const i32 value : row.condition->values)
        EXPECT_TRUE(mode->type == ParameterType::Bool
                        ? value == 0 || value == 1
                        : std::any_of(mode->choices.begin(), mode->choices.end(),
                                      [&](const Choice& choice) { return choice.value == value; }));
    }
}

/// The server of a document with a scene, and one node of every kind that has an object.
struct FullScene {
  FullScene() {
    for (const NodeKind& kind : Catalogue())
      if (kind.id != kServerNode) nodes[kind.id] = &CreateNode(document, kind, "", &server);
    scene->Synchronise(&document);
  }
  /// The object of a kind's node, or null.
  iBase* Object(const NodeKind& kind) const {
    for (i32 list = 1; list <= 11; ++list) {
      const auto found = scene->List(list).find(nodes.at(kind.id)->Id());
      if (found != scene->List(list).end()) return found->second.get();
    }
    return nullptr;
  }

  Document document;
  BaseNode& server = CreateNode(document, *FindKind(kServerNode), "server", nullptr);
  std::unique_ptr<SulvaScene> scene = CreateScene(server);
  std::map<i32, BaseNode*> nodes;
};

bool HasFlag(const NodeKind& kind, char letter) {
  return kind.flags.find(letter) != std::string_view::npos;
}

/// The class computes the answer behind a letter.
bool IsComputed(const NodeKind& kind, char letter) {
  const auto at = kind.flags.find(letter);
  return at != std::string_view::npos && kind.flags.substr(at + 1).starts_with('*');
}

TEST(Menu, NamesEachKindOnceInAGroup) {
  std::set<std::string_view> names;
  for (const MenuGroup& group : Menu()) {
    EXPECT_TRUE(names.insert(group.name).second) << group.name;
    EXPECT_EQ(std::set<i32>(group.entries.begin(), group.entries.end()).size(),
              group.entries.size())
        << group.name;
  }
  EXPECT_EQ(GroupsOf(1300015),
            (std::vector<std::string_view>{"Bodies/Forces", "Grids/Forces", "Particles/Forces"}));
  EXPECT_EQ(GroupsOf(kObstacleTag), std::vector<std::string_view>{"Bodies"});
}

TEST(Catalogue, ObjectsAnswerAsTheirLineSays) {
  const FullScene full;
  for (const NodeKind& kind : Catalogue()) {
    if (kind.id == kServerNode) continue;
    SCOPED_TRACE(std::string(kind.type));
    iBase* object = full.Object(kind);
    ASSERT_EQ(object != nullptr, bool(kind.make));
    if (!object) continue;
    EXPECT_EQ(object->GetTypeId(), kind.typeId);
    EXPECT_EQ(object->GetListIndex(), kind.list);
    EXPECT_TRUE(full.scene->List(kind.list).contains(full.nodes.at(kind.id)->Id()));
    u32 categories = 0;
    object->GetCategories(categories);
    EXPECT_EQ(categories & kind.categories, kind.categories);
    const std::pair<char, bool> answers[] = {{'S', object->IsSequential()},
                                             {'I', object->IsIterative()},
                                             {'V', object->RunsOnRefresh()},
                                             {'R', object->ResetsOnChange()}};
    for (const auto& [letter, answer] : answers)
      EXPECT_TRUE(IsComputed(kind, letter) || answer == HasFlag(kind, letter)) << letter;
    u32 stages = 0;
    for (const i32 stage : kind.stages) stages |= StageBit(stage);
    EXPECT_EQ(object->mStageMask, stages);
    EXPECT_TRUE(object->IsPipelineObject() || stages == 0) << "only iObjects run";
    for (int i = 0; i < 2; ++i) object->ReadParameters();
    const i32 offset = object->mInterface.GetLong(10002);
    EXPECT_EQ(object->mPriority, kind.priority.value_or(0) + offset) << "once, not per reading";
    EXPECT_EQ(kind.Reads(common_row::kConstraints), object->Constraints() != nullptr);
    EXPECT_EQ(FindRow(ParametersOf(kind), common_row::kConstraints)->kept,
              object->Constraints() == nullptr);
  }
}

/// What is told as working has to do something: a place in a stage, for those that have none.
TEST(Catalogue, RowsOfPlaceAreKeptWhereNoStageRunsTheKind) {
  for (const NodeKind& kind : Catalogue())
    for (const i32 id : {common_row::kStage, common_row::kPriority, common_row::kGroupBreak})
      EXPECT_EQ(FindRow(ParametersOf(kind), id)->kept, kind.stages.empty()) << kind.type << id;
  FullScene full;
  BaseNode& wind = *full.nodes.at(FindKind("force_gravity")->id);
  wind.Set(common_row::kStage, i32{7});
  full.scene->LookAtOrder();
  EXPECT_EQ(full.Object(*FindKind("force_gravity"))->mStageMask, 0u);
}

TEST(Catalogue, ThePipelineSaysWhichStagesAreNobodysOwn) {
  std::set<i32> used;
  for (const NodeKind& kind : Catalogue()) used.insert(kind.stages.begin(), kind.stages.end());
  for (const StageRow& stage : kPipeline)
    EXPECT_FALSE(used.contains(stage.number) &&
                 stage.work.find("no kind has it") != stage.work.npos)
        << stage.number;
}

TEST(Catalogue, NodesGetOneObjectAndUnknownIdsNone) {
  FullScene full;
  for (const NodeKind& kind : Catalogue())
    if (kind.make) {
      EXPECT_FALSE(full.scene->CreateObject(full.nodes[kind.id], kind.id)) << kind.type;
    }
  BaseNode& stray = full.document.Create<BaseNode>(1, "stray", nullptr);
  for (const i32 id : {1300150, 1399999, 1300143 * 3, 0})
    EXPECT_FALSE(full.scene->CreateObject(&stray, id)) << id;
  EXPECT_FALSE(full.scene->CreateObject(nullptr, 1028240));
}

/// A scene of every kind at once, none linked to anything, runs and goes without a fault.
TEST(Catalogue, UnlinkedNodesRunQuietly) {
  FullScene full;
  HostThread thread;
  for (const i32 frame : {0, 1, 2, 3, 3, 0, 1}) {
    full.document.SetFrame(frame);
    EXPECT_TRUE(full.scene->Execute(&thread, false)) << frame;
  }
  full.document.Remove(*full.document.FindByName("server/Duration"));
  full.document.SetFrame(2);
  EXPECT_TRUE(full.scene->Execute(&thread, false));
}

/// Counts its own steps.
class Counter : public iObject {
 public:
  Counter(BaseNode* node, Scene* scene) : iObject(node, scene) {}
  static const ParameterTable& Rows() {
    static const ParameterTable rows = {
        RealRow(1000, "by", 2.0, "", "how far it counts in a step").To(&Counter::mBy)};
    return rows;
  }
  void CheckDirty() override { MarkDirty(false); }
  void Prepare() override { SetFlag(FLAG_ACTIVE, true); }
  void Evaluate(const EvaluationThreadData&) override { mSum += mBy; }
  double mBy = 0, mSum = 0;
};

/// What a node of a kind that is added counts to.
double SumOfABroughtKind() {
  const NodeKind added = {.id = 1399901,
                          .type = "counter",
                          .label = "Test::Counter",
                          .className = "Counter",
                          .list = kListOperators,
                          .categories = kCategoryGrid,
                          .flags = "S",
                          .stages = {kOperators},
                          .menu = {"Support"},
                          .purpose = "counts",
                          .rows = Counter::Rows,
                          .make = MakeNode<Counter>};
  AddKind(added);
  const auto isRefused = [&] {
    try {
      AddKind(added);
    } catch (const std::invalid_argument&) {
      return true;
    }
    return false;
  };
  if (!isRefused() || !FindKind("counter")) return 0;
  Document document;
  document.previewMax = 10;
  BaseNode& server = CreateNode(document, *FindKind("server"), "scene", nullptr);
  BaseNode& node = CreateNode(document, *FindKind("counter"), "mine", &server);
  node.Set(1000, 1.5);
  const auto scene = CreateScene(server);
  for (i32 frame = 0; frame < 4; ++frame) {
    document.SetFrame(frame);
    scene->Execute(nullptr, false);
  }
  const auto* counter = dynamic_cast<Counter*>(scene->FindObject(&node, kListAll));
  return counter ? counter->mSum : 0;
}

/// In a process of its own, started anew: other tests list the kinds that there are, whatever runs
/// before them.
TEST(Catalogue, TakesKindsThatAProgramBrings) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::_Exit(static_cast<int>(SumOfABroughtKind())), testing::ExitedWithCode(6), "");
}

bool TakesKind(const ParameterTable& table, i32 kind) {
  return std::any_of(table.begin(), table.end(), [&](const ParameterRow& row) {
    return std::find(row.accepts.begin(), row.accepts.end(), kind) != row.accepts.end();
  });
}

TEST(Catalogue, RowsOutsideOfItTakeKindsThatCome) {
  // In a process of its own: other tests list the kinds that there are.
  const auto isSo = [] {
    const ParameterTable &gas = app::MediumTypes().front().rows(), &tag = ObstacleParameters();
    NodeKind soot = PlainField::Kind(), ring = Duration::Kind();
    soot.id = 1399902, soot.type = "soot", soot.label = "Test::Soot";
    ring.id = 1399903, ring.type = "ring", ring.label = "Test::Ring";
    ring.categories = kCategoryConstraint;
    if (TakesKind(gas, soot.id) || TakesKind(tag, ring.id)) return false;
    AddKind(soot);
    AddKind(ring);
    return TakesKind(gas, soot.id) && TakesKind(tag, ring.id) &&
           TakesKind(app::MediumTypes().front().rows(), soot.id);
  };
  EXPECT_EXIT(std::_Exit(isSo() ? 0 : 1), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
