// What hints about scenes look at: nodes, and what stands in their rows.
#pragma once
#include <functional>
#include <set>

#include "nodes/catalogue.h"
#include "scene/loaded_scene.h"
#include "scene/scene_places.h"
#include "scene/scene_values.h"

namespace MELDO_GLOBAL::app {

/// Base of those that look through the nodes of a scene and warn of some.
class HintBase {
 public:
  HintBase(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics)
      : mScene(scene), mPlaces(places), mDiagnostics(diagnostics) {}

 protected:
  using BaseNode = host::BaseNode;
  using NodeId = host::NodeId;

  /// Takes the nodes below one that are switched on.
  void Collect(const BaseNode& node);

  /// What a row gives: the node's value, else that of a node without one; null where the node has
  /// no such row, or one of another type.
  template <class T>
  static const T* Get(const BaseNode& node, i32 row) {
    const host::Value* value = ValueOf(node, row);
    return value ? std::get_if<T>(value) : nullptr;
  }
  static const host::Value* ValueOf(const BaseNode& node, i32 row);
  static double Number(const BaseNode& node, i32 row);
  static i32 Whole(const BaseNode& node, i32 row);
  static std::string Text(const BaseNode& node, i32 row);
  /// Whether a number or vector is 0, in all its keys.
  static bool StaysZero(const BaseNode& node, i32 row);
  /// Whether a number is nothing but `most` or less, in all its keys.
  static bool StaysAtMost(const BaseNode& node, i32 row, double most);
  /// Whether a row is given another value than a new node has.
  static bool IsGiven(const BaseNode& node, i32 row);
  const BaseNode* Linked(const BaseNode& node, i32 row) const;
  static std::string_view NameOf(const BaseNode& node, i32 row);
  /// Whatever a node links.
  static std::set<NodeId> LinksOf(const BaseNode& node);

  /// Some obstacle has a mass, so that all are bodies.
  bool HasBodies() const;
  bool MayWork(const BaseNode& node) const;
  const std::vector<const BaseNode*>& ReadersOf(const BaseNode& node) const;

  /// Warns that a node does nothing, so that a run need not tell of it again.
  void WarnOfSleep(const BaseNode& node, const std::string& text, i32 row = 0);
  /// Warns of a node, at one of its rows where one is given.
  void Warn(const BaseNode& node, const std::string& text, i32 row = 0);
  void Note(const BaseNode& node, const std::string& text, i32 row = 0);
  /// Notes a row that is given and that nothing asks for; `why` in a clause.
  void NoteUnread(const BaseNode& node, i32 row, const std::string& why);

  const LoadedScene& mScene;
  const ScenePlaces& mPlaces;
  Diagnostics& mDiagnostics;
  std::vector<const BaseNode*> mNodes;
};

/// The parts of `AddHints`, by what they look at.
void AddShapeHints(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics);
void AddSettingHints(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics);
void AddOutputHints(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics);
void AddFieldHints(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics);
void AddParticleHints(const LoadedScene& scene, const ScenePlaces& places,
                      Diagnostics& diagnostics);
void AddParticleEmitterHints(const LoadedScene& scene, const ScenePlaces& places,
                             Diagnostics& diagnostics);
void AddParticleOperatorHints(const LoadedScene& scene, const ScenePlaces& places,
                              Diagnostics& diagnostics);
void AddBodyHints(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics);
void AddConstraintHints(const LoadedScene& scene, const ScenePlaces& places,
                        Diagnostics& diagnostics);
void AddFireHints(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics);

}  // namespace MELDO_GLOBAL::app
