// What a kind of node is: the one descriptor that stands in the file of its class.
#pragma once
#include <memory>
#include <optional>
#include <string_view>
#include <type_traits>
#include <vector>

#include "framework/object_ids.h"
#include "host/parameter.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class ConstraintList;
class iBase;
class Scene;

/// The rows that every kind has; see `iBase::CommonParameters`.
namespace common_row {
enum Row : i32 {
  kConstraints = 2502,
  kClassOption = 2604,
  kStage = 10001,
  kPriority = 10002,
  kGroupBreak = 10003
};
}

/// A scene of some ten lines in which a kind does its work: its host objects and the nodes of its
/// server, a text line each; a line that goes on in the next begins that one with two blanks.
struct KindExample {
  std::vector<std::string_view> objects{};
  std::vector<std::string_view> nodes{};
};

/// The factory of a kind, with what its class says of itself; it makes nothing for kinds without a
/// core object.
struct NodeMaker {
  std::unique_ptr<iBase> (*make)(host::BaseNode*, Scene*) = nullptr;
  bool takesConstraints = false;

  explicit operator bool() const { return make != nullptr; }
  std::unique_ptr<iBase> operator()(host::BaseNode* node, Scene* scene) const {
    return make(node, scene);
  }
};

/// One kind of node. Everything that speaks of kinds comes from here: scene lists, stages, the
/// catalogue, its menu, help and examples.
struct NodeKind {
  i32 id = 0;                    ///< plug-in id: the type of the host node
  std::string_view type{};       ///< short name used by scene files
  std::string_view label{};      ///< name shown, and given to new nodes
  std::string_view className{};  ///< core class
  i32 typeId = 0;                ///< `GetTypeId`
  i32 list = 0;                  ///< scene list; 0 for nodes without a core object
  u32 categories = 0;            ///< `GetCategories`; the fixed part where the class computes it
  /// S sequential, I iterative (passes that it shares out itself), E ready anew before each pass,
  /// V runs on refresh, R resets on change, A an amount, of which a ledger is kept; a star: varies.
  std::string_view flags{};
  std::vector<i32> stages{};      ///< in which it runs, unless its parameter `stage` moves it
  std::optional<i32> priority{};  ///< base priority inside a stage
  std::vector<std::string_view> menu{};  ///< groups in which it stands, as `Menu` names them
  std::string_view purpose{};            ///< what it is for, in a clause
  KindExample example{};
  const host::ParameterTable& (*rows)() = nullptr;  ///< the class's own rows
  NodeMaker make{};
  bool isPolygonObject =
      false;  ///< its nodes are polygon objects of the document, for what it makes

  /// Whether its nodes work for those alone that name them: geometry, settings, time windows,
  /// properties of particles and the filters of pictures.
  bool OnlyServes() const {
    if (isPolygonObject) return false;
    return list == kListGeometry || list == kListSettings || list == kListAuxiliary ||
           (categories & kCategoryProperty) || (list == 0 && categories != 0);
  }
  /// Whether a row that every kind has does something for its nodes: those that no stage runs have
  /// no place in one, and those whose class asks no constraint are everywhere.
  bool Reads(i32 commonRow) const {
    if (commonRow == common_row::kConstraints) return make.takesConstraints;
    return !stages.empty() ||
           (commonRow != common_row::kStage && commonRow != common_row::kPriority &&
            commonRow != common_row::kGroupBreak);
  }
  bool HasFlag(char flag) const { return flags.find(flag) != flags.npos; }
};

/// Whether a class, or one that it derives from, has constraints of its own.
template <class T>
inline constexpr bool kTakesConstraints =
    !std::is_same_v<decltype(&T::Constraints), ConstraintList* (iBase::*)()>;

/// The factory of a class.
template <class T>
inline constexpr NodeMaker MakeNode = {
    [](host::BaseNode* node, Scene* scene) -> std::unique_ptr<iBase> {
      return std::make_unique<T>(node, scene);
    },
    kTakesConstraints<T>};

/// Lines that many examples share.
namespace example {
inline constexpr std::string_view kBall =
    R"({ "name": "ball", "type": "sphere", "radius": 40, "position": [0, 60, 0] })";
inline constexpr std::string_view kCube =
    R"({ "name": "cube", "type": "box", "size": [60, 60, 60], "position": [0, 160, 0] })";
inline constexpr std::string_view kSmoke = R"({ "type": "channel_scalar", "name": "smoke" })";
inline constexpr std::string_view kHeat =
    R"({ "type": "channel_temp", "name": "heat", "parameters": { "value_max": 1000 } })";
inline constexpr std::string_view kFuel = R"({ "type": "channel_fuel", "name": "fuel" })";
inline constexpr std::string_view kFire = R"({ "type": "channel_fire", "name": "fire" })";
inline constexpr std::string_view kBallMesh =
    R"({ "type": "mesh", "name": "ball mesh", "parameters": { "object": "ball" } })";
inline constexpr std::string_view kBallVolume =
    R"({ "type": "volume", "name": "ball volume", "parameters": { "mesh": "ball mesh" } })";
inline constexpr std::string_view kRate =
    R"({ "type": "emission_setting", "name": "rate", "parameters": { "amount": 3 } })";
inline constexpr std::string_view kPair =
    R"({ "type": "channelsettings", "name": "pair", "parameters": { "channel": "smoke", "settings": "rate" } })";
inline constexpr std::string_view kEmitter =
    R"({ "type": "gridemitter", "name": "source", "parameters": { "volume": "ball volume", "channels": ["pair"] } })";
inline constexpr std::string_view kGas =
    R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "box_size": [300, 400, 300] } })";
}  // namespace example

}  // namespace MELDO_GLOBAL::MELDO_SULVA
