// What may stay of the corrections of a field.
#pragma once
#include <vector>

#include "fluids/advection/correction_rows.h"
#include "fluids/advection/field_pieces.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Scales the corrections of a step, so that the limits change no total. What the limits favour,
/// the corrections up or those down, is scaled down until the sum is what it was without limits, or
/// what brings back the total where this is known. Where nothing is left of them and that isn't
/// enough, values go a share of their way to the limit on the other side (`LevelRoom`). Each cloud
/// of a field keeps its own total: what is off at an open side isn't taken from another room
/// (decisions 24, 28, 41, 54).
class CorrectionBalance {
 public:
  /// What stays of a correction, by its sign.
  struct Factors {
    double up = 1, down = 1;
  };

  /// Sums of `layers` layers follow. `pieces` have to last; null for one that is all.
  void Begin(i32 layers, const FieldPieces* pieces);
  bool HasPieces() const { return mPieces && mPieces->Count() > 1; }
  /// The sums of a piece in a layer, to add to at once: the next call may move them.
  Correction& SumsOf(i32 z, i32 piece);
  /// Calls f(piece, first, last) for the stretches of the cells [first, last) of an inner row.
  template <class F>
  void ForEachStretch(i32 first, i32 last, i32 y, i32 z, F&& f) const {
    if (HasPieces())
      mPieces->ForEachStretch(first, last, y, z, f);
    else
      f(0, first, last);
  }
  /// Finds the factors. Where the total is known, that behind the step is what there was, and
  /// `gain`, which belongs to piece 0.
  void Find(bool isTotalKnown, double gain);
  const Factors& FactorsOf(i32 piece) const { return mFactors[piece]; }
  /// Something changes.
  bool Scales() const { return mScales; }

  /// What the scaled corrections of a piece make too much, or below 0 too little.
  double ExcessOf(i32 piece) const { return mExcess[piece]; }
  /// Some piece has one.
  bool HasExcess() const { return mHasExcess; }
  /// Sums of the room follow that values have on that side.
  void BeginRoom();
  double& RoomOf(i32 z, i32 piece) { return SumsOf(z, piece).whole; }
  /// Finds the shares of the room that the excess takes.
  void FindShares();
  double ShareOf(i32 piece) const { return mShares[piece]; }

 private:
  void Clear();
  std::vector<Correction> SumPieces() const;

  struct Entry {
    i32 piece;
    Correction sums;
  };
  const FieldPieces* mPieces = nullptr;
  std::vector<Correction> mRest;             ///< by layer, of piece 0
  std::vector<std::vector<Entry>> mEntries;  ///< by layer, of the others, in order of their cells
  std::vector<Factors> mFactors;             ///< by piece
  bool mScales = false, mHasExcess = false;
  std::vector<double> mExcess, mShares;  ///< likewise
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
