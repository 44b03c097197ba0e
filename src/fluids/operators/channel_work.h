// What the operators that change channels cell by cell have in common.
#pragma once
#include "fluids/fields/fire_grid_channel.h"
#include "framework/constraint.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The scene moves on in this evaluation: operators on the content have work.
inline bool IsSimulating(const iBase& object) {
  return (object.mScene->mFlags & Scene::kTimeChanged) && object.mTime->IsUnderWay();
}

/// The dirt of an operator that works in every step of a simulation and sleeps outside of one.
/// Call after `iBase::CheckDirty`. True if it works.
inline bool WorkWhileSimulating(iBase& object) {
  const bool works = IsSimulating(object);
  if (!works)
    object.SetFlag(FLAG_DIRTY | FLAG_DIRTY_HARD, false);
  else if (!object.IsDirty())
    object.MarkDirty(false);
  return works;
}

/// A channel that changes has to be trimmed at the end of the step, even if nothing moves it.
inline void MarkChanged(iBase* channel) {
  if (channel) channel->MarkDirty(false);
}

/// A cache feeds one of these channels, which may be null, in this frame: it holds the outcome of
/// all that works on it.
template <class... Channels>
bool IsPlayed(const Channels*... channels) {
  return ((channels && channels->Has(FLAG_CACHED)) || ...);
}
/// Grid 0 of a channel that may be null; null without data.
inline EGrid<double>* DataOf(const ScalarField* channel) {
  EGrid<double>* grid = channel ? channel->GetGrid(0) : nullptr;
  return grid && grid->mData ? grid : nullptr;
}

/// Below this value a fire no longer burns but fades, for a temperature range that ends at
/// `hottest`: 0.99 at most, so that a burning part is left.
inline double FlameThreshold(const FireField& fire, double hottest) {
  const double threshold = fire.mIgnition / hottest;
  return threshold < 0.99 ? threshold : 0.99;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
