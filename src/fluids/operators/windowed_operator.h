// What operators on particles have in common.
#pragma once
#include <algorithm>

#include "fluids/particles/particle_group.h"
#include "framework/constraint.h"
#include "framework/duration.h"
#include "framework/iobject.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// An operator on particles that works inside a time window, by what the window and constraints
/// leave of each of them.
class WindowedOperator : public iObject {
 public:
  using iObject::iObject;
  ConstraintList* Constraints() override { return &mConstraints; }
  void CheckDirty() override;
  void Finish() override;

 protected:
  /// Looks at the step and the time window; false, and inactive, where there is nothing to do.
  bool OpenWindow();
  /// Makes constraints ready; active from then on.
  void Start();
  /// Calls f(row, weight) for the living particles of `rows`, by ascending row; those of which
  /// constraints leave nothing come with a weight of 0.
  template <class F>
  void ForEachLiving(const ParticleStore& store, const IndexRange& rows, u32 worker, F&& f) const;

  Duration* mDuration = nullptr;
  ConstraintList mConstraints;
  double mWeight = 1;  ///< of the time window in this step
};

template <class F>
void WindowedOperator::ForEachLiving(const ParticleStore& store, const IndexRange& rows, u32 worker,
                                     F&& f) const {
  constexpr i32 kRun = 64;
  double weights[kRun];
  for (i32 first = rows.first; first < rows.last; first += kRun) {
    const auto n = static_cast<std::size_t>(std::min(kRun, rows.last - first));
    const std::span<const u16> flags = store.Flags().subspan(first, n);
    for (std::size_t i = 0; i < n; ++i) weights[i] = flags[i] & PF_ALIVE ? mWeight : 0.0;
    if (!mConstraints.IsEmpty())
      mConstraints.TestRow({store.Positions().subspan(first, n), {weights, n}, &store, first}, this,
                           worker);
    for (std::size_t i = 0; i < n; ++i)
      if (flags[i] & PF_ALIVE) f(first + static_cast<i32>(i), weights[i]);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
