// Constraints turn a position into a weight.
#pragma once
#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "framework/ibase.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class ParticleColumns;

/// What a constraint keeps for one of its holders, from step to step.
class ConstraintState {
 public:
  virtual ~ConstraintState() = default;
  /// As `iBase::Persist`.
  virtual void Persist(StateArchive& /*archive*/) {}
};

/// Who asks a constraint, and of what.
struct ConstraintUse {
  const iBase* owner = nullptr;
  ConstraintState* state = nullptr;  ///< of the holder; null for a constraint that keeps nothing
  u32 worker = 0;                    ///< which of the workers that ask at a time
  const ParticleColumns* particles = nullptr;  ///< of which one is meant; null for a mere place
  i32 particle = 0;                            ///< its row
};

/// Points that a constraint is asked about in one call.
struct ConstraintRow {
  std::span<const Vec3d> positions;  ///< simulation units
  std::span<double> weights;         ///< as many; points whose weight is 0 are out already
  const ParticleColumns* particles = nullptr;  ///< whose rows the points are; null for mere places
  i32 firstParticle = 0;                       ///< the row of the first point; the next ones follow
};

/// Base of the constraints that emitters, forces and operators hold a list of (parameter 2502).
/// Several holders may name one: what it keeps for one of them alone stands in that one's state,
/// what it keeps for all, beside its settings, in its `Persist`.
///
/// A constraint measures something at a point. What it measures goes through a range that all have
/// in common, and comes out as the factor of the weight there.
class Constraint : public iBase {
 public:
  using iBase::iBase;
  i32 GetListIndex() const override { return kListAuxiliary; }
  void GetCategories(u32& mask) const override { mask |= kCategoryConstraint; }
  /// Makes ready anew at the next `Prepare`.
  bool ResolveLinks() override;
  void ClearLinks() override;

  /// It asks for something that particles alone have, and lets mere places pass.
  virtual bool IsOfParticles() const { return false; }
  /// Reads its settings and links anew, where they were dropped.
  virtual void Relink();
  /// A state as it is at the start of a simulation.
  virtual std::unique_ptr<ConstraintState> MakeState() const { return nullptr; }
  /// Before any test of a holder, on the pipeline thread. The first holder in a run of a stage
  /// opens it for all; what it reads is fetched for each.
  virtual void Prepare(const ConstraintUse& use);
  virtual void Finish(const ConstraintUse& /*use*/) {}
  /// Multiplies `weight` at `position` (simulation units); false where nothing is left of it.
  /// Runs on all workers at once.
  virtual bool Test(const Vec3d& position, double& weight, const ConstraintUse& use) = 0;
  /// The same, to the last bit, at every point of a row that is still in.
  virtual void TestRow(const ConstraintRow& row, const ConstraintUse& use);

  /// What a measure comes to: with t its place in the input range, through the curve and turned
  /// round where wanted, the number at t in the output range, times the strength.
  double FactorOf(double measure) const;

  /// The rows of the range, which follow those of a kind.
  static host::ParameterTable WithRange(host::ParameterTable own);
  static constexpr i32 kInvertRow = 1100, kStrengthRow = 1103, kClampLowRow = 1106,
                       kClampHighRow = 1107, kInputLowRow = 1108, kInputHighRow = 1109,
                       kOutputLowRow = 1110, kOutputHighRow = 1111, kUseCurveRow = 1112,
                       kCurveRow = 1113;

 protected:
  /// Works out what holds for a whole run of a stage, such as an average. False, told by
  /// `Deactivate`, where something is missing: the constraint then lets everything pass as it is.
  virtual bool Open() { return true; }
  /// Takes what tests read where it is now: grids and trees may be others than for the last holder.
  virtual bool Fetch() { return true; }
  /// Takes the place of the input range of the rows, until these are read anew.
  void SetInput(double low, double high) { mInputLow = low, mInputHigh = high; }

  bool mInvert = false;
  double mStrength = 1;

 private:
  bool mClampsLow = true, mClampsHigh = true;
  double mInputLow = 0, mInputHigh = 1;
  double mOutputLow = 0, mOutputHigh = 1;
  bool mUsesCurve = false;
  const host::SplineData* mCurve = nullptr;
  u64 mOpenedIn = 0;     ///< the run of a stage, by `Scene::mStageRuns`; 0 for none
  bool mIsOpen = false;  ///< in that run
};

/// A constraint whose class `Law` has `Measure(position, use)`: the measure, or nothing where the
/// point is out whatever the range says.
template <class Law>
class MeasuredConstraint : public Constraint {
 public:
  using Constraint::Constraint;
  bool Test(const Vec3d& position, double& weight, const ConstraintUse& use) override {
    return !Has(FLAG_ACTIVE) || Weigh(position, weight, use);
  }
  void TestRow(const ConstraintRow& row, const ConstraintUse& use) override {
    if (!Has(FLAG_ACTIVE)) return;
    ConstraintUse at = use;
    at.particles = row.particles;
    for (std::size_t i = 0; i < row.positions.size(); ++i) {
      at.particle = row.firstParticle + static_cast<i32>(i);
      if (row.weights[i] != 0) Weigh(row.positions[i], row.weights[i], at);
    }
  }

 private:
  bool Weigh(const Vec3d& position, double& weight, const ConstraintUse& use) const {
    const std::optional<double> measure = static_cast<const Law*>(this)->Measure(position, use);
    weight = measure ? weight * FactorOf(*measure) : 0.0;
    return weight != 0;
  }
};

/// Items whose points are asked about, by number; where they are particles, by row.
struct WeighedRange {
  i32 first = 0, last = 0;
  const iBase* owner = nullptr;
  u32 worker = 0;
  const ParticleColumns* particles = nullptr;
};

/// The constraints of one holder, in list order, with the states that they keep for it.
class ConstraintList : public LinkPort {
 public:
  /// Takes the enabled constraints among what a list of links names, in its order. One that was
  /// named before goes on with its state.
  void Connect(std::span<const host::LinkTarget> targets) override;
  void Clear() { mNamed.clear(); }
  /// Reads what the constraints are set to anew, where their links were dropped.
  void Relink();
  bool IsEmpty() const { return mNamed.empty(); }
  /// Forgets what the constraints keep, as at the start of a simulation.
  void Reset();
  void Prepare(const iBase* owner);
  void Finish(const iBase* owner);
  /// Runs the enabled constraints in order on `weight`, up to the first that leaves nothing of it:
  /// then it is 0, and the answer false. Only between `Prepare` and `Finish`.
  bool Test(const Vec3d& position, double& weight, const iBase* owner, u32 worker) const;
  /// The same of a particle, by the row that it has in `particles`; `onlyOfParticles` leaves out
  /// the constraints that look at places.
  bool Test(const Vec3d& position, double& weight, const iBase* owner, u32 worker,
            const ParticleColumns* particles, i32 particle, bool onlyOfParticles = false) const;
  /// The same, to the last bit, at every point of a row.
  void TestRow(const ConstraintRow& row, const iBase* owner, u32 worker) const;
  /// Asks about items in runs: take(i, weight) is called for those of which something is left, by
  /// ascending number. An item stands at place(i) and begins with the weight start(i), of which 0
  /// leaves it out unasked; the starts of a run are all called before the first of its takes.
  template <class Place, class Start, class Take>
  void ForEachWeighed(const WeighedRange& range, Place&& place, Start&& start, Take&& take) const;
  /// As `iBase::Persist`; `scene` holds the constraints.
  void Persist(StateArchive& archive, const Scene& scene);

 private:
  struct Entry {
    Constraint* constraint;
    ConstraintState* state;
  };
  std::vector<Entry> mNamed;
  std::map<host::NodeId, std::unique_ptr<ConstraintState>> mStates;  ///< null for those without one
};

template <class Place, class Start, class Take>
void ConstraintList::ForEachWeighed(const WeighedRange& range, Place&& place, Start&& start,
                                    Take&& take) const {
  constexpr i32 kRun = 64;
  Vec3d places[kRun];
  double weights[kRun];
  for (i32 first = range.first; first < range.last; first += kRun) {
    const i32 count = std::min(kRun, range.last - first);
    bool isAsked = false;
    for (i32 i = 0; i < count; ++i) {
      weights[i] = start(first + i);
      places[i] = weights[i] != 0 ? place(first + i) : Vec3d{};
      isAsked = isAsked || weights[i] != 0;
    }
    if (!isAsked) continue;
    const auto n = static_cast<std::size_t>(count);
    TestRow({{places, n}, {weights, n}, range.particles, first}, range.owner, range.worker);
    for (i32 i = 0; i < count; ++i)
      if (weights[i] != 0) take(first + i, weights[i]);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
