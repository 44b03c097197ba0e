// What a move does to the ledger of its target.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "fluids/advection/grid_advection.h"
#include "fluids/flow/side_outflow.h"
#include "framework/scene.h"
#include "grids/fixed_blocks.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {
constexpr double kUnseen = 1e-6;  // of a total: nobody sees it
constexpr double kUnsure = 0.03;  // of what leaves through sides in a step
// Of a total, by which paths may change it, at once and in each second.
constexpr double kMostOwed = 0.004, kPaidPerSecond = 0.004;
}  // namespace

/// Paths keep what all air holds as it is, and of values of both signs there is no amount to keep.
bool GridAdvection::HoldsAmount() const {
  return mScalarTarget && mScalarTarget->IsAccounted() && mScalarTarget->mValueMin >= 0 &&
         mScalarTarget->mInitial <= mScalarTarget->mValueMin;
}

bool GridAdvection::IsOfAllAir() const {
  return mScalarTarget->mInitial > mScalarTarget->mValueMin;
}

bool GridAdvection::OwesTotal() const {
  return IsCorrected() && HoldsAmount() && std::abs(mOwed) > kMostOwed;
}

bool GridAdvection::FindStirred(const EGrid<double>* held) const {
  if (!held || !held->mData || HasConservativeScheme() || !HoldsAmount()) return false;
  if (!mSolver->GetFlow().GetLayout()) return false;
  const GridBoundary& boundary = mSolver->GetFlow().mBoundary;
  const double nothing = mScalarTarget->mValueMin;
  // What a solid covers or leaves is given to cells beside it.
  constexpr VecInt3D kBeside{2, 2, 2};
  const VecInt3D shift = mSolver->GetFlow().GetLayout()->originCell - held->mLayout.originCell;
  for (const GridBoundary::Mover& mover : boundary.Movers()) {
    const CellBox box = Clip({mover.reach.min + shift - kBeside, mover.reach.max + shift + kBeside},
                             {1, 1, 1}, held->Dims() - VecInt3D{1, 1, 1});
    const double there = ReduceBlocks(
        box.max.z - box.min.z, mScene->mThreadCount, 0.0,
        [&](i32 layer) {
          CellBox one = box;
          one.min.z += layer;
          one.max.z = one.min.z + 1;
          double sum = 0;
          ForEachCell(one, [&](i32 x, i32 y, i32 z) { sum += (*held)(x, y, z) - nothing; });
          return sum;
        },
        [](double a, double b) { return a + b; });
    if (there > kUnseen * mScalarTarget->mAccount.Size()) return true;
  }
  return false;
}

void GridAdvection::SetStirred(const EGrid<double>* held) {
  // A solid that has come to rest still moves in the flow that carries now.
  const bool follows = std::exchange(mMetMover, FindStirred(held));
  mIsStirred = follows || mMetMover || OwesTotal();
  // The volume of cells is known only from one conservative step to the next.
  if (!IsConservative()) mConservative.Release();
}

void GridAdvection::PrepareSource(EGrid<double>& source) {
  const Flow& flow = mSolver->GetFlow();
  const ScalarWalls& cells = flow.mWallCells;
  const ScalarWalls::Values values = WallValues();
  if (mIsBooking && !IsConservative()) mLeft += FindSideOutflow(flow, source, values);
  if (!cells.Fits(source)) return;
  const bool rests = flow.mBoundary.Movers().empty() && !cells.HasLeft();
  // Shares have to be given away, and what a source brings into a solid that rests no path fetches.
  if (IsConservative() || (rests && !IsOfAllAir())) {
    const ScalarWalls::Held held = cells.HandOver(values, HandOverReach(), source);
    mTrapped += held.stuck;
    mScalarTarget->mAccount.mLedger.handedOver += held.given;
    mLeft += held.gone;
    // Air that comes in brings what air holds.
    if (IsConservative()) return cells.FillOutside(values, source);
    mGain -= cells.Fill(values, false, source);
    return;
  }
  // Paths take what a solid has just covered along by themselves. A property of all air gets no
  // larger beside a solid for what a source brings into that.
  ScalarWalls::Held held;
  if (mIsBooking) held = cells.FindHeld(values, source);
  mTrapped += held.stuck + (rests ? held.given : 0);
  mGain += (rests ? 0 : held.given) - cells.Fill(values, false, source);
}

/// Whether the total of the target is known behind the move along paths: nothing lies in solids
/// that they might bring out. Values of both signs, as distances have, are no amount to keep.
bool GridAdvection::IsTotalKnown() const {
  return mIsBooking && mScalarTarget->mValueMin >= 0 &&
         mTrapped <= kUnseen * mScalarTarget->mAccount.Size();
}

void GridAdvection::Finish() {
  if (std::exchange(mIsBooking, false)) BookMove();
}

void GridAdvection::BookMove() {
  FieldAccount& account = mScalarTarget->mAccount;
  const double before = account.Size();
  double drift = mScalarTarget->LookAtTotal() + mLeft + mTrapped;
  // What paths bring out of solids wasn't trapped there.
  const double fetched = IsConservative() ? 0 : std::clamp(drift, 0.0, std::max(mTrapped, 0.0));
  drift -= fetched;
  const double solids = ShareOfSolids(drift);
  drift -= solids;
  Owe(drift, std::max(before, account.Size()));
  const double passed = ShareOfSides(drift);
  drift -= passed;
  mLeft -= passed;
  account.mLedger.left += mLeft;
  account.mLedger.trapped += mTrapped - fetched - solids;
  account.mLedger.drift += drift;
  DriftWatch::Step step{.seconds = mTime->stepDuration,
                        .drift = drift,
                        .given = account.TakeGiven(),
                        .there = std::max(before, account.Size())};
  const auto share = mWatch.Add(step);
  step.drift = solids;
  const auto bySolids = mSolidWatch.Add(step);
  if (bySolids && !std::exchange(mHasToldSolids, true)) WarnOfSolids(*bySolids);
  if (share && !std::exchange(account.mHasWarned, true)) WarnOfDrift(*share);
}

/// Where all air holds something, paths keep values, not amounts: what a solid covers is gone with
/// its volume, and what it leaves fills up with what is around.
double GridAdvection::ShareOfSolids(double drift) const {
  if (IsConservative() || HoldsAmount()) return 0;
  return std::clamp(-mGain, std::min(drift, 0.0), std::max(drift, 0.0));
}

/// What passes a side is measured along paths in the field as it was before the step. Corrections
/// and their limits let the cells that leave have a little more or less.
double GridAdvection::ShareOfSides(double drift) const {
  if (!IsCorrected() || IsConservative() || !HoldsAmount()) return 0;
  const double most = kUnsure * std::abs(mLeft);
  return std::clamp(drift, -most, most);
}

/// Limits leave a correction less room than what paths make too much, where gas speeds up: what
/// drifts so is waited for with steps that keep the total.
void GridAdvection::Owe(double drift, double total) {
  if (!IsConservative() && total > 0 && mTrapped <= kUnseen * total) mOwed += drift / total;
  const double paid = kPaidPerSecond * mTime->stepDuration;
  mOwed = mOwed > 0 ? std::max(mOwed - paid, 0.0) : std::min(mOwed + paid, 0.0);
}

namespace {
/// The word that scene files have for a choice of a row.
std::string_view WordFor(i32 row, i32 value) {
  for (const Choice& choice : FindRow(GridAdvection::Parameters(), row)->choices)
    if (choice.value == value) return choice.name;
  return {};
}
}  // namespace

void GridAdvection::WarnOfSolids(double share) {
  mWarnings.push_back(
      fmt::format("\"{}\" {} {:.2g} % a second at {:.3g} s by moving obstacles that {}, as all air "
                  "holds some of "
                  "it; '{}' as 'scheme' keeps the total instead",
                  mScalarTarget->mName, share > 0 ? "gains" : "loses", std::abs(100 * share),
                  mTime->elapsed, share > 0 ? "leave room to the gas" : "take room from the gas",
                  WordFor(kSchemeRow, static_cast<i32>(AdvectionScheme::Conservative))));
}

void GridAdvection::WarnOfDrift(double share) {
  const auto scheme = [](AdvectionScheme s) { return WordFor(kSchemeRow, static_cast<i32>(s)); };
  std::string text = fmt::format(
      "\"{}\" {} {:.2g} % a second at {:.3g} s that nothing explains, by the scheme '{}'",
      mScalarTarget->mName, share > 0 ? "gains" : "loses", std::abs(100 * share), mTime->elapsed,
      WordFor(kSchemeRow, mScheme));
  if (!IsConservative()) {
    text += fmt::format("; '{}' or '{}' as 'scheme' keeps all of it",
                        scheme(AdvectionScheme::Conservative),
                        scheme(AdvectionScheme::ConservativeMacCormack));
    if (mTraceOrder == 0)
      text += fmt::format(", '{}' as 'path_integration' more of it", WordFor(kPathRow, 1));
  }
  mWarnings.push_back(std::move(text));
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
