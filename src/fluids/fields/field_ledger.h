// Where what a field holds came from and went to.
#pragma once
#include "grids/grid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class StateArchive;

/// Sums over the samples inside the outermost layer, of some steps, in values times cells. Over
/// them the total changes by emitted + made - burnt - left - trimmed - trapped + drift, to
/// rounding.
struct FieldLedger {
  double emitted = 0;     ///< by emitters and caches, less what they took
  double made = 0;        ///< what the field starts with, and what operators added in all
  double burnt = 0;       ///< what operators took away in all
  double left = 0;        ///< through open sides, less what came in there
  double trimmed = 0;     ///< below or above the range
  double trapped = 0;     ///< in solids, without a way out; below 0, where these left room
  double handedOver = 0;  ///< what moving solids pushed to other cells; changes no total
  double drift = 0;       ///< what moving it added, and nothing else explains
  double total = 0;       ///< that there is at the end
};

/// Keeps the ledger of a field. Whoever changes the field has the change looked at and books it.
class FieldAccount {
 public:
  /// What the total of `field`, without its outermost layer, has changed by since the last look.
  double Look(const Grid<double>& field, i32 threads);
  /// The field is gone; returns what it held.
  double Close();

  void AddEmission(double change) { Give(mLedger.emitted, change); }
  /// What an operator, or a new grid, changed.
  void AddWork(double change);

  /// What became of the field since the last call.
  FieldLedger Take();
  /// What was emitted and made since the last call.
  double TakeGiven();
  /// Magnitudes at the last look, added up.
  double Size() const { return mSize; }
  void Persist(StateArchive& archive);

  FieldLedger mLedger;
  bool mHasWarned = false;  ///< the user was told that the field drifts

 private:
  void Give(double& entry, double amount);

  double mTotal = 0, mSize = 0;  ///< at the last look
  double mGiven = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
