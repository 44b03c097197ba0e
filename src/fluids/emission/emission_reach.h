// Whether what an emitter gives comes anywhere.
#pragma once
#include "grids/set_once.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What the workers of an emitter have met in a step.
class EmissionReach {
 public:
  void Begin() { mHasReached = mHasFilled = false; }
  /// A cell of its shape lies in a field, inside of the outermost layer, which keeps nothing.
  void NoteReached(bool isSo) { SetOnce(mHasReached, isSo); }
  /// Such a cell took something.
  void NoteFilled(bool isSo) { SetOnce(mHasFilled, isSo); }
  /// Why nothing came into a field, for `iBase::Deactivate`; null where something did.
  const char* WhyNothing() const {
    if (!mHasReached) return "no cell whose centre lies inside of its shape is in the box of a gas";
    if (!mHasFilled) return "its weight is 0 in all cells, by falloff, duration or constraints";
    return nullptr;
  }

 private:
  std::atomic<bool> mHasReached = false, mHasFilled = false;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
