// What operators on particles have in common.
#pragma once
#include <algorithm>
#include <span>

#include "fluids/particles/particle_group.h"
#include "framework/constraint.h"
#include "framework/duration.h"
#include "framework/iobject.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Base of what changes or shows particles: those of one kind of a group, or of several kinds of
/// several groups, inside a time window, each by what the window and constraints leave of it.
class ParticleOperator : public iObject {
 public:
  using iObject::iObject;
  static constexpr i32 kGroupRow = 1000;  ///< of one group or of a list
  ConstraintList* Constraints() override { return &mConstraints; }
  void CheckDirty() override;
  void Prepare() override;
  void Finish() override;

 protected:
  /// Makes ready for a step in the time window; false, told by `Deactivate`, where something is
  /// missing.
  virtual bool PrepareOperator() = 0;
  /// Ends a step in which it worked.
  virtual void FinishOperator() {}
  /// Whether it works once a frame, behind all substeps, in frames without a step too, and on
  /// particles that a cache plays; else in every step, and on others alone.
  virtual bool ShowsParticles() const { return false; }

  // The rows that these classes have in common, by the ids that each has for them.
  static host::ParameterRow GroupRow(std::string_view help);
  static host::ParameterRow KindRow(i32 id, i32 kind, std::string_view help);
  static host::ParameterRow GroupsRow(std::string_view help);
  static host::ParameterRow DurationRow(i32 id, std::string_view help);

  /// Whether its one group has particles of the kind to work on; told by `Deactivate`.
  bool FindParticles();
  /// Calls f(group, kind) for what its list of groups names, where there are particles to work on.
  template <class F>
  void ForEachNamedKind(F&& f) const;

  /// What window and constraints leave of the particles from row `first` on: of the dead nothing.
  void Weigh(const ParticleStore& store, i32 first, std::span<double> weights, u32 worker) const;
  /// Calls f(row, weight) for the living among `rows`, by ascending row. A weight may be 0.
  template <class F>
  void ForEachLiving(const ParticleStore& store, const IndexRange& rows, u32 worker, F&& f) const;
  /// Calls f(store, row, weight, worker) for a share of what `FindParticles` found, without those
  /// of which nothing is left.
  template <class F>
  void ForEachChosen(const EvaluationThreadData& share, F&& f) const;

  std::vector<host::Linked<ParticleGroup>> mGroups;
  ParticleGroup* mGroup = nullptr;
  i32 mKind = kLiquid;
  Duration* mDuration = nullptr;
  ConstraintList mConstraints;
  double mWeight = 1;  ///< of the time window, in this step

 private:
  bool OpenWindow();
};

template <class F>
void ParticleOperator::ForEachNamedKind(F&& f) const {
  for (const host::Linked<ParticleGroup>& entry : mGroups)
    for (i32 kind = 0; kind < kParticleKinds; ++kind)
      if (NamesKind(entry.flags, kind) && entry.object->Count(kind) > 0 &&
          !entry.object->IsCached(kind))
        f(*entry.object, kind);
}

template <class F>
void ParticleOperator::ForEachLiving(const ParticleStore& store, const IndexRange& rows, u32 worker,
                                     F&& f) const {
  constexpr i32 kRun = 64;
  double weights[kRun];
  for (i32 first = rows.first; first < rows.last; first += kRun) {
    const i32 n = std::min(kRun, rows.last - first);
    Weigh(store, first, {weights, static_cast<std::size_t>(n)}, worker);
    for (i32 i = 0; i < n; ++i)
      if (store.Flags()[first + i] & PF_ALIVE) f(first + i, weights[i]);
  }
}

template <class F>
void ParticleOperator::ForEachChosen(const EvaluationThreadData& share, F&& f) const {
  if (!Has(FLAG_ACTIVE) || share.TestBreak()) return;
  ParticleStore& store = mGroup->Store(mKind);
  const auto worker = static_cast<u32>(share.index);
  ForEachLiving(store, store.PartOf(share.index, share.count), worker, [&](i32 row, double weight) {
    if (weight != 0) f(store, row, weight, worker);
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
