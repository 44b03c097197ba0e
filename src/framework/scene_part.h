// What belongs to a simulation or to one of its objects and stands in no list.
#pragma once
#include <memory>
#include <string>
#include <vector>

#include "host/types.h"

namespace MELDO_GLOBAL {
struct GridLayout;
}

namespace MELDO_GLOBAL::MELDO_SULVA {

class Scene;
class SulvaScene;
class StateArchive;

/// A part of a simulation that no node stands for: the world of rigid bodies of a scene, the
/// particles or the iso density of an object. Its owner calls it at the places that it has in an
/// evaluation; each of them does nothing unless a class gives it something to do.
class ScenePart {
 public:
  virtual ~ScenePart() = default;
  /// Stage 2 of every step that moves time on, before the objects: contacts of the last step go.
  virtual void BeginStep(Scene& /*scene*/) {}
  /// Stage 3 of every step, before the objects of the stage: bodies move, then meshes follow.
  virtual void Advance(Scene& /*scene*/) {}
  /// Stage 3 of every step, behind the objects of the stage: bodies for meshes that have come.
  virtual void FollowVolumes(Scene& /*scene*/) {}
  /// Back to the state at the start of a simulation.
  virtual void Reset() {}
  /// Every evaluation, when the scene has read its scale and cells.
  virtual void UpdateDomain(SulvaScene& /*scene*/) {}
  /// The scale of the scene or its cells are others than before.
  virtual void DomainChanged(const GridLayout& /*domain*/) {}
  /// Saves or restores what a later frame depends on, as `iBase::Persist` does.
  virtual void Persist(StateArchive& /*archive*/) {}
  /// As `iBase::TakeWarnings`.
  virtual std::vector<std::string> TakeWarnings() { return {}; }
  /// Bytes that it holds or is going to hold in this step.
  virtual double Memory() const { return 0; }
};

/// The parts of an owner, in the order in which they came. A copy of the owner has none.
class ScenePartList {
 public:
  ScenePartList() = default;
  ScenePartList(const ScenePartList&) {}
  ScenePartList& operator=(const ScenePartList&) = delete;
  void Add(std::unique_ptr<ScenePart> part) { mParts.push_back(std::move(part)); }
  auto begin() const { return mParts.begin(); }
  auto end() const { return mParts.end(); }

 private:
  std::vector<std::unique_ptr<ScenePart>> mParts;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
