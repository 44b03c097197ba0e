// The second half of a MacCormack step, many samples at a time.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Sums of what a MacCormack step adds to its prediction, over some samples, as thin as it gets.
struct Correction {
  double whole = 0;         ///< before it is limited
  double up = 0, down = 0;  ///< what the limits leave of it, above and below 0
  double lost = 0;          ///< what the prediction lacks of what there was
};

/// Samples side by side that are corrected.
struct CorrectedRow {
  enum Mark : u8 {
    kUncorrected = 1,  ///< the prediction stands
    kSolid = 2,        ///< the sample keeps what it holds
    /// Along an axis the path starts at a sample, but for a hair: of three that limit, `corners`
    /// has the middle one.
    kAtX = 4,
    kAtY = 8,
    kAtZ = 16,
    kAtAny = kAtX | kAtY | kAtZ,
  };
  const double* before;     ///< what they held
  const double* predicted;  ///< what comes to them
  const double* returned;   ///< what is predicted where they go
  double share;             ///< of the difference that is added
  const double* limits;     ///< the field whose samples round the starts of paths limit them,
  const i32* corners;       ///< the lowest of these by sample
  i32 ny, nz;               ///< the size of its rows and layers
  const u8* marks;
  const double* thinning = nullptr;  ///< shares that remain of them, in sums alone; may be null

  /// The same without its first `i` samples.
  CorrectedRow From(i32 i) const {
    CorrectedRow rest = *this;
    rest.before += i;
    rest.predicted += i;
    rest.returned += i;
    rest.corners += i;
    rest.marks += i;
    if (thinning) rest.thinning += i;
    return rest;
  }
};

/// The limits of samples of a `CorrectedRow` on one side: the highest that a value may become, or
/// the lowest.
void LimitRow(const CorrectedRow& row, bool isHighest, i32 n, double* out);

/// out = predicted + share (before - returned), inside of the limits.
void CorrectRow(const CorrectedRow& row, i32 n, double* out);
/// The same; adds what was done to `sums`.
void CorrectAndSumRow(const CorrectedRow& row, i32 n, double* out, Correction& sums);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
